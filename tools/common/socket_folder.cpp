// Makes, locks and removes the folder. Locks with flock keep it while a process uses it.
#include "common/socket_folder.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <pwd.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <thread>

namespace tools {

namespace {

constexpr mode_t kModeBits = 07777;
constexpr std::chrono::milliseconds kWaitingStep{50};

[[noreturn]] void fail(const std::string &what, int error = errno)
{
    throw std::runtime_error(what + ": " + std::generic_category().message(error));
}

bool lock(int folder, int kind)
{
    int result = 0;
    do {
        result = flock(folder, kind);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

std::string nameOf(uid_t user)
{
    const passwd *const entry = getpwuid(user);
    return entry == nullptr ? std::string() : entry->pw_name;
}

std::string described(uid_t user)
{
    const std::string name = nameOf(user);
    const std::string number = "number " + std::to_string(user);
    return name.empty() ? number : name + ", " + number;
}

std::string asRoot(const std::string &command) { return '"' + std::string(geteuid() == 0 ? "" : "sudo ") + command + '"'; }

std::string asUser(const std::string &name)
{
    return '"' + (geteuid() == 0 ? "runuser -u " + name + " --" : "sudo -u " + name) + " kvosim ...\"";
}

[[noreturn]] void refuseFile(const std::filesystem::path &path)
{
    struct stat status {};
    const bool known = lstat(path.c_str(), &status) == 0;
    throw std::runtime_error(
        path.string() + " is not a usable directory" +
        (known ? " (it belongs to " + described(status.st_uid) + "; it must be a directory, not a link)" : std::string()) +
        "; to remove it, type " + asRoot("rm " + path.string()));
}

[[noreturn]] void refuseOthers(const std::filesystem::path &path, uid_t owner, bool inUse)
{
    const std::string belongs = path.string() + " belongs to another user (" + described(owner) + ")";
    if (inUse) {
        throw std::runtime_error(belongs + ", whose \"kvosim run\" uses it; wait until that ends, or use \"kvosim run\"");
    }
    const std::string name = nameOf(owner);
    throw std::runtime_error(belongs + "; to remove it, type " + asRoot("rm -r " + path.string()) +
                             (name.empty() ? std::string(", or start the service as that user")
                                           : ", or start the service as that user: " + asUser(name)));
}

/// Returns whether the folder was missing. The mark of a run must be set from the start, whatever the umask.
bool makeFolder(const std::filesystem::path &path, mode_t mode)
{
    const mode_t mask = mode == kRunFolderMode ? umask(0) : 0;
    const bool made = mkdir(path.c_str(), mode) == 0;
    const int error = errno;
    if (mode == kRunFolderMode) {
        umask(mask);
    }
    if (!made && error != EEXIST) {
        fail("cannot create " + path.string(), error);
    }
    return made;
}

Descriptor openFolder(const std::filesystem::path &path)
{
    return Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Whether the path is a folder that only its owner can read. A run did not make it, so no run removes it.
bool isClosedFolder(const std::filesystem::path &path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// Removes a folder of another user if it is empty and not in use, so that this user can make one. Runs that mount on the
/// folder hold the lock.
bool removeIfEmpty(int folder, const std::filesystem::path &path)
{
    return lock(folder, LOCK_EX | LOCK_NB) && isAt(folder, path) && rmdir(path.c_str()) == 0;
}

bool isInUse(int folder)
{
    const bool free = lock(folder, LOCK_EX | LOCK_NB);
    if (free) {
        lock(folder, LOCK_UN);
    }
    return !free;
}

/// Returns true if the caller must try again: the folder of another user may be gone now.
bool canBeReplaced(int folder, const std::filesystem::path &path, const struct stat &status, FolderUse use,
                   const OnWait &onWait, bool &notified)
{
    if (geteuid() == 0 && removeIfEmpty(folder, path)) {
        return true;
    }
    if (use == FolderUse::mountOn) {
        return false;
    }
    const bool inUse = isInUse(folder);
    if (!inUse || !onWait || (status.st_mode & kModeBits) != kRunFolderMode) {
        if (!isAt(folder, path)) {
            return true;
        }
        refuseOthers(path, status.st_uid, inUse);
    }
    if (!std::exchange(notified, true)) {
        onWait("\"kvosim run\" of another user (" + described(status.st_uid) + ") to end");
    }
    std::this_thread::sleep_for(kWaitingStep);
    return true;
}

}  // namespace

bool isAt(int descriptor, const std::filesystem::path &path)
{
    struct stat opened {};
    struct stat there {};
    return fstat(descriptor, &opened) == 0 && lstat(path.c_str(), &there) == 0 && opened.st_dev == there.st_dev &&
           opened.st_ino == there.st_ino;
}

LockedFolder lockFolder(const std::filesystem::path &path, FolderUse use, mode_t mode, const OnWait &onWait)
{
    for (bool notified = false;;) {
        const bool made = makeFolder(path, mode);
        Descriptor folder = openFolder(path);
        struct stat status {};
        if (!folder.valid() || fstat(folder.get(), &status) != 0) {
            if (errno == ENOENT) {
                continue;  // a run removed it in the meantime
            }
            if (use == FolderUse::mountOn && errno == EACCES && isClosedFolder(path)) {
                return {};
            }
            refuseFile(path);
        }
        if (status.st_uid != geteuid() && canBeReplaced(folder.get(), path, status, use, onWait, notified)) {
            continue;
        }
        if (!lock(folder.get(), LOCK_SH)) {
            fail("cannot lock " + path.string());
        }
        if (isAt(folder.get(), path)) {
            return {.descriptor = std::move(folder), .made = made};
        }
    }
}

SocketState socketStateOf(const std::filesystem::path &path)
{
    sockaddr_un address{};
    if (path.native().size() >= sizeof address.sun_path) {
        return SocketState::unknown;
    }
    address.sun_family = AF_UNIX;
    path.native().copy(address.sun_path, path.native().size());
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // A full queue (EAGAIN) also means a live service.
    if (connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 || errno == EAGAIN) {
        return SocketState::live;
    }
    return errno == ECONNREFUSED ? SocketState::stale : SocketState::unknown;
}

namespace {

/// Removes the files of a run that was killed. All other files stay, and then the folder stays too.
void removeLeftovers(const std::filesystem::path &path)
{
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(path, ignored)) {
        const bool lockFile = entry.path().filename().native().starts_with(kLockFilePrefix);
        if (lockFile || (entry.is_socket(ignored) && socketStateOf(entry.path()) == SocketState::stale)) {
            unlink(entry.path().c_str());
        }
    }
}

}  // namespace

void removeUnusedFolder(int folder, const std::filesystem::path &path, bool wait)
{
    struct stat status {};
    if (!lock(folder, LOCK_EX | (wait ? 0 : LOCK_NB)) || !isAt(folder, path) || fstat(folder, &status) != 0 ||
        (status.st_mode & kModeBits) != kRunFolderMode) {
        return;
    }
    if (status.st_uid == geteuid()) {
        removeLeftovers(path);
    }
    // Fails if the folder is not empty: then a service or a program has its sockets there.
    rmdir(path.c_str());
}

}  // namespace tools
