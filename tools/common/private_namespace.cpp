// Creates the mount namespace. Without root's rights, creates a user namespace first.
#include "common/private_namespace.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <string>
#include <string_view>
#include <sys/mount.h>
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

/// Whether this process has root's right to mount.
bool mayMount()
{
    constexpr int kSystemAdministration = 21;  // CAP_SYS_ADMIN
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("CapEff:")) {
            return (std::stoull(line.substr(7), nullptr, 16) >> kSystemAdministration & 1) != 0;
        }
    }
    return false;
}

/// Why the process could not get a user namespace, which would grant the right to mount.
std::string reasonForNoUserNamespace(int error)
{
    std::string reason = std::generic_category().message(error);
    if (error == ENOSPC || error == EUSERS) {
        reason += "; their number is limited, see /proc/sys/user/max_user_namespaces";
    } else if (error == EPERM) {
        reason += "; the kernel or the container forbids them";
    }
    return reason;
}

[[noreturn]] void refuse(int error)
{
    const std::string denied = "new mount namespace: Operation not permitted (";
    if (mayMount()) {
        throw NamespaceRefused(
            denied + "although this process has CAP_SYS_ADMIN: a system call filter, such as a container's, forbids it)");
    }
    throw NamespaceRefused(denied +
                           (geteuid() == 0 ? "root has no CAP_SYS_ADMIN here, as in most containers" : "only root may") +
                           "); new user namespace, which would permit it: " + reasonForNoUserNamespace(error));
}

/// Without root's rights, a user namespace in which this user keeps its own number grants the right to mount.
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
        refuse(errno);
    }
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", user + " " + user + " 1");
    writeFile("/proc/self/gid_map", group + " " + group + " 1");
}

/// Whether other namespaces see a mount as well.
bool isShared(std::string_view mountPoint)
{
    std::string place = " ";
    place.append(mountPoint).append(" ");
    std::ifstream mounts("/proc/self/mountinfo");
    bool shared = false;
    for (std::string line; std::getline(mounts, line);) {
        // Fields: id, parent, device, root, mount point, options, propagation. The last mount at a path is the visible one.
        if (line.find(place) != std::string::npos) {
            shared = line.find(" shared:") != std::string::npos;
        }
    }
    return shared;
}

}  // namespace

PrivateNamespace::PrivateNamespace(const std::filesystem::path &shown) : folder_(FolderUse::mountOn)
{
    unshareMounts();
    // Keeps later mounts out of other namespaces. In a chroot "/" may not be a mount point, and then mount fails with EINVAL.
    const bool madePrivate = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (!madePrivate && errno != EINVAL) {
        fail("make the mounts private");
    }
    const bool mounted = shown.empty()
                             ? mount("tmpfs", kSocketDirectory, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755,size=16m") == 0
                             : mount(shown.c_str(), kSocketDirectory, nullptr, MS_BIND, nullptr) == 0;
    if (!mounted) {
        fail(std::string("mount ") + kSocketDirectory);
    }
    if (!madePrivate && isShared(kSocketDirectory)) {
        umount(kSocketDirectory);
        errno = EINVAL;
        fail("make the mounts private (this is a chroot below a shared mount)");
    }
}

}  // namespace tools
