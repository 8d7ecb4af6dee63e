// Functions for the console and sysfs-style files. They are for the host program; the library does not use them.
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

/// The first entry of a directory; empty if it has none.
std::string firstEntry(const char *path)
{
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path));
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

/// The position of the first "*" if it is a whole path component and not the first one; otherwise npos.
std::size_t placeholderIn(const std::string &path) noexcept
{
    const auto star = path.find('*');
    if (star == std::string::npos || star == 0 || path[star - 1] != '/') {
        return std::string::npos;
    }
    return star + 1 == path.size() || path[star + 1] == '/' ? star : std::string::npos;
}

/// The path with its placeholder replaced, if an entry for it exists.
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

/// The first line of a file, allocated with malloc; null if the file cannot be read.
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
    const kvo_hws::NoCancellation wholeDirectory;
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
        // Out of memory has the same result as an empty directory.
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
    // The other members, the wait flag and the signal of a forced release, are written back as they were read.
    mode.mode = on != 0 ? VT_PROCESS : VT_AUTO;
    mode.relsig = static_cast<short>(on != 0 ? SIGUSR1 : 0);
    mode.acqsig = static_cast<short>(on != 0 ? SIGUSR2 : 0);
    if (ioctl(STDIN_FILENO, VT_SETMODE, &mode) < 0) {
        logAlways(LOG_ERR, "VT_SETMODE: %s", std::strerror(errno));
    }
}

int get_shiftstate() noexcept
{
    const kvo_hws::NoCancellation wholeRequest;
    constexpr char kReadShiftState = 6;
    char state = kReadShiftState;
    if (ioctl(STDIN_FILENO, TIOCLINUX, &state) < 0) {
        logAlways(LOG_WARNING, "TIOCLINUX(6): %s", std::strerror(errno));
        // The result of a failure is the subcode: callers have always received it.
    }
    return state;
}

const char *vnc_strerror(int code) noexcept
{
    const kvo_hws::NoCancellation wholeText;  // strerror may read the text from a file
    if (code >= kFirstViewerError && code < kFirstViewerError + static_cast<int>(std::size(kViewerErrors))) {
        return kViewerErrors[code - kFirstViewerError];
    }
    switch (code) {
    case kNotAServer: return "not a VNC server";
    case kNoServer: return "no server on this port";
    default: return std::strerror(code);
    }
}
