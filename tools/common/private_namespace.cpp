#include "common/private_namespace.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <string>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tools {

namespace {

[[noreturn]] void fail(const std::string &step) { throw std::system_error(errno, std::generic_category(), step); }

void writeFile(const std::string &path, std::string_view text)
{
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0) {
        fail("open " + path);
    }
    const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const int error = errno;
    close(file);
    if (!written) {
        errno = error;
        fail("write " + path);
    }
}

/// Without root, a user namespace in which this user keeps its own number grants the right to mount.
void unshareMounts()
{
    if (unshare(CLONE_NEWNS) == 0) {
        return;
    }
    if (errno != EPERM) {
        fail("new mount namespace");
    }
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        fail("new user namespace (the kernel may forbid them to ordinary users; root needs none)");
    }
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", user + " " + user + " 1");
    writeFile("/proc/self/gid_map", group + " " + group + " 1");
}

/// Whether a mount is seen in other namespaces as well.
bool isShared(std::string_view mountPoint)
{
    std::string place = " ";
    place.append(mountPoint).append(" ");
    std::ifstream mounts("/proc/self/mountinfo");
    bool shared = false;
    for (std::string line; std::getline(mounts, line);) {
        // Id, parent, device, root, mount point, options, and what it shares; the last mount of a place is the one that is seen.
        if (line.find(place) != std::string::npos) {
            shared = line.find(" shared:") != std::string::npos;
        }
    }
    return shared;
}

/// A link would be its owner's to turn elsewhere at any time, and the programs that work here with it.
void refuseLink()
{
    struct stat status {};
    if (lstat(kSocketDirectory, &status) != 0 || !S_ISDIR(status.st_mode)) {
        errno = ENOTDIR;
        fail(std::string("use ") + kSocketDirectory + " (it must be a directory, and no link)");
    }
}

}  // namespace

void enterPrivateNamespace()
{
    // The mount needs a directory to lie on; it stays behind, empty, as others may be using it by then.
    if (mkdir(kSocketDirectory, 0755) != 0 && errno != EEXIST) {
        fail(std::string("create ") + kSocketDirectory);
    }
    refuseLink();
    unshareMounts();
    // Nothing that is mounted from here on reaches the outside. In a chroot the root may be no mount of its own, and can not be told so.
    const bool toldPrivate = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (!toldPrivate && errno != EINVAL) {
        fail("make the mounts private");
    }
    if (mount("tmpfs", kSocketDirectory, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755,size=16m") != 0) {
        fail(std::string("mount ") + kSocketDirectory);
    }
    if (!toldPrivate && isShared(kSocketDirectory)) {
        umount(kSocketDirectory);
        errno = EINVAL;
        fail("make the mounts private (this is a chroot below a shared mount)");
    }
}

}  // namespace tools
