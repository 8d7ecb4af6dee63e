// The console and sysfs-style files: offered to the host program, not used by the library itself.
#include <kvo_hws/agent.h>

#include "runtime/log.h"
#include "runtime/owners.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/vt.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <syslog.h>
#include <unistd.h>

int32_t VNCERRNO = 0;

namespace {

using kvo_hws::logAlways;

struct CloseDirectory {
    void operator()(DIR *directory) const noexcept { closedir(directory); }
};
struct CloseFile {
    void operator()(FILE *file) const noexcept { std::fclose(file); }
};

/// The first entry of a folder; empty where there is none.
std::string firstEntry(const char *folder)
{
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(folder));
    if (directory == nullptr) {
        return {};
    }
    while (const dirent *const entry = readdir(directory.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            return std::string(name);
        }
    }
    return {};
}

/// Where a "*" stands for a whole component behind another one; npos where the first "*" does not.
std::size_t placeholderIn(const std::string &path) noexcept
{
    const auto star = path.find('*');
    if (star == std::string::npos || star == 0 || path[star - 1] != '/') {
        return std::string::npos;
    }
    return star + 1 == path.size() || path[star + 1] == '/' ? star : std::string::npos;
}

/// The path with its placeholder replaced, as far as there is an entry for it.
std::string substituted(std::string path)
{
    if (const auto star = placeholderIn(path); star != std::string::npos) {
        if (const std::string entry = firstEntry(path.substr(0, star).c_str()); !entry.empty()) {
            path.replace(star, 1, entry);
        }
    }
    return path;
}

constexpr int kLongestLine = 127;

/// The first line of a file, on the heap; null where it can not be read.
char *firstLine(const std::string &path)
{
    const std::unique_ptr<FILE, CloseFile> file(std::fopen(path.c_str(), "re"));
    if (file == nullptr) {
        return nullptr;
    }
    char line[kLongestLine + 1] = {};
    if (std::fgets(line, sizeof line, file.get()) == nullptr) {
        line[0] = '\0';
    }
    if (const std::size_t length = std::strlen(line); length > 0 && line[length - 1] == '\n') {
        line[length - 1] = '\0';
    }
    char *const copy = strdup(line);
    if (copy == nullptr) {
        logAlways(LOG_CRIT, "out of memory");
        std::exit(1);
    }
    return copy;
}

const char *const kViewerErrors[] = {"Scaling not possible (depth mismatch)",
                                     "Viewer changes resolution",
                                     "Viewer preempted",
                                     "HMI timeout",
                                     "Framebuffer initialization error",
                                     "Server size too large (and no scaling)",
                                     "Framebuffer unsupported pixel format",
                                     "Format/encoding negotiation failed",
                                     "Viewer aborted"};
constexpr int kFirstViewerError = 246;
constexpr int kNotAServer = -1;
constexpr int kNoServer = 111;

}  // namespace

char *sysfsfile(const char *dir, const char *sub, const char *file) noexcept
{
    const kvo_hws::NoCancellation wholeFile;
    try {
        return firstLine(substituted(std::string(dir) + '/' + sub + '/' + file));
    } catch (const std::exception &) {
        logAlways(LOG_CRIT, "out of memory");
        std::exit(1);
    }
}

void sysfssubst(char *path) noexcept
{
    const kvo_hws::NoCancellation wholeFolder;
    const std::size_t length = std::strlen(path);
    if (length == 0) {
        return;
    }
    char *const star = path + length - 1;
    *star = '\0';
    std::string entry;
    try {
        entry = firstEntry(path);
    } catch (const std::exception &) {
        // Without memory there is as little to put there as without an entry.
    }
    std::strcpy(star, entry.empty() ? "*" : entry.c_str());  // NOLINT(*.strcpy): the interface gives no size
}

void enable_vt_control(int on) noexcept
{
    const kvo_hws::NoCancellation wholeSwitch;
    vt_mode mode = {};
    if (ioctl(STDIN_FILENO, VT_GETMODE, &mode) < 0) {
        logAlways(LOG_ERR, "VT_GETMODE: %s", std::strerror(errno));
        return;
    }
    // What is read besides, the wait flag and the signal of a forced release, is written back.
    mode.mode = on != 0 ? VT_PROCESS : VT_AUTO;
    mode.relsig = static_cast<short>(on != 0 ? SIGUSR1 : 0);
    mode.acqsig = static_cast<short>(on != 0 ? SIGUSR2 : 0);
    if (ioctl(STDIN_FILENO, VT_SETMODE, &mode) < 0) {
        logAlways(LOG_ERR, "VT_SETMODE: %s", std::strerror(errno));
    }
}

int get_shiftstate() noexcept
{
    const kvo_hws::NoCancellation wholeQuestion;
    constexpr char kReadShiftState = 6;
    char state = kReadShiftState;
    if (ioctl(STDIN_FILENO, TIOCLINUX, &state) < 0) {
        logAlways(LOG_WARNING, "TIOCLINUX(6): %s", std::strerror(errno));
        // The subcode itself is what callers have always been given then.
    }
    return state;
}

const char *vnc_strerror(int code) noexcept
{
    const kvo_hws::NoCancellation wholeText;  // the system's may have to be read from a file
    if (code >= kFirstViewerError && code < kFirstViewerError + static_cast<int>(std::size(kViewerErrors))) {
        return kViewerErrors[code - kFirstViewerError];
    }
    switch (code) {
    case kNotAServer: return "not a VNC server";
    case kNoServer: return "no server on this port";
    default: return std::strerror(code);
    }
}
