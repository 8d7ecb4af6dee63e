// Exchanges the names of two sockets. The lock file names the tap's own socket, so that another process can put things right
// after the tap was killed.
#include "common/tap/socket_place.h"

#include "common/refused.h"
#include "common/socket_folder.h"
#include "common/tap/listening.h"
#include "common/tap/unix_address.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <linux/fs.h>
#include <string_view>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <system_error>
#include <thread>
#include <vector>

namespace tools::tap {

namespace {

constexpr int kWaitingConnections = 1024;
constexpr const char *kAccessList = "system.posix_acl_access";
constexpr mode_t kPermissions = 0777;
constexpr std::chrono::milliseconds kLongestRepair{500};
constexpr std::chrono::milliseconds kRetryPause{10};

std::filesystem::path sibling(const std::filesystem::path &path, const std::string &suffix)
{
    return path.parent_path() / (kTapFilePrefix + path.filename().string() + suffix);
}

std::filesystem::path asideOf(const std::filesystem::path &path) { return sibling(path, ""); }
std::filesystem::path lockOf(const std::filesystem::path &path) { return sibling(path, ".lock"); }

std::string reason(int error = errno) { return std::generic_category().message(error); }

[[noreturn]] void refuse(const std::string &sentence) { throw Refused(sentence); }

[[noreturn]] void refuseExchange(const std::filesystem::path &path, int error)
{
    const std::string start = "cannot take the place of " + path.string() + ": ";
    switch (error) {
    case EPERM:
    case EACCES: refuse(start + "the folder or the socket belongs to another user; run the tap as that user or as root");
    case EINVAL:
    case ENOSYS: refuse(start + "its file system cannot exchange two names; use \"kvoctl trace -- PROGRAM\" instead");
    default: refuse(start + reason(error));
    }
}

bool exchange(const std::filesystem::path &one, const std::filesystem::path &other) noexcept
{
    return renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0;
}

/// The lock of the tap that has @p path; invalid if another process has it.
Descriptor lockedFile(const std::filesystem::path &path)
{
    const std::filesystem::path lock = lockOf(path);
    Descriptor file(open(lock.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.valid()) {
        refuseExchange(path, errno);
    }
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        return {};
    }
    // A tap that ended meanwhile may have removed the file.
    struct stat status {};
    const bool isThere = fstat(file.get(), &status) == 0 && fileAt(lock) == FileId{status.st_dev, status.st_ino};
    return isThere ? std::move(file) : lockedFile(path);
}

/// The same, but first waits a moment: a guardian may be putting things right.
Descriptor lockedSoon(const std::filesystem::path &path)
{
    const auto until = std::chrono::steady_clock::now() + kLongestRepair;
    for (;;) {
        Descriptor lock = lockedFile(path);
        if (lock.valid() || std::chrono::steady_clock::now() > until) {
            return lock;
        }
        std::this_thread::sleep_for(kRetryPause);
    }
}

FileId readId(int file)
{
    std::array<char, 64> text{};
    if (pread(file, text.data(), text.size() - 1, 0) <= 0) {
        return {};
    }
    char *end = nullptr;
    const unsigned long long device = std::strtoull(text.data(), &end, 10);
    return {static_cast<dev_t>(device), static_cast<ino_t>(std::strtoull(end, nullptr, 10))};
}

void writeId(int file, const FileId &id, const std::filesystem::path &path)
{
    const std::string text = std::to_string(id.device) + " " + std::to_string(id.inode) + "\n";
    if (ftruncate(file, 0) != 0 || pwrite(file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        refuse("cannot write " + lockOf(path).string() + ": " + reason());
    }
}

/// Puts the socket that is aside back, if the path still has the socket @p own of a tap. Returns whether nothing of the tap is left
/// at the path.
bool putBack(const std::filesystem::path &path, const FileId &own) noexcept
{
    const std::filesystem::path aside = asideOf(path);
    if (own != FileId{} && fileAt(path) == own) {
        const bool exchanged = exchange(path, aside);
        // Between the look and the exchange, a service may have put a socket of its own at the path.
        if (exchanged && fileAt(aside) != own) {
            exchange(path, aside);
        }
    }
    if (own != FileId{} && fileAt(path) == own) {
        return false;
    }
    // What is aside now is the tap's socket, or the socket of a service that has put a newer one at the path.
    unlink(aside.c_str());
    return true;
}

/// The socket that a killed tap has left at @p path, if it is still there.
FileId socketLeftAt(const std::filesystem::path &path, int lock)
{
    const FileId there = fileAt(path);
    const FileId own = readId(lock);
    if (own == FileId{}) {
        // Somebody has removed the lock file. What nothing listens at is the tap's.
        const bool isTaps = listeningAt(there) == Listening::no && listeningAt(fileAt(asideOf(path))) == Listening::yes;
        return isTaps ? there : FileId{};
    }
    // The file system may have given the number of the tap's file to the socket of a service that has started since.
    return own == there && listeningAt(there) == Listening::yes ? FileId{} : own;
}

/// Changes only a socket: the owner of the folder may have put a link to another file at @p to.
void copyRights(const std::filesystem::path &from, const std::filesystem::path &to)
{
    struct stat rights {};
    if (lstat(from.c_str(), &rights) != 0) {
        refuse("no socket at " + from.string() + ": " + reason());
    }
    const Descriptor file(open(to.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat own {};
    if (!file.valid() || fstat(file.get(), &own) != 0 || !S_ISSOCK(own.st_mode)) {
        refuse("somebody has replaced " + to.string() + "; the folder is not safe");
    }
    const std::string itself = "/proc/self/fd/" + std::to_string(file.get());
    if (fchownat(file.get(), "", rights.st_uid, rights.st_gid, AT_EMPTY_PATH) != 0 ||
        chmod(itself.c_str(), rights.st_mode & kPermissions) != 0) {
        refuseExchange(from, errno);
    }
    const ssize_t size = lgetxattr(from.c_str(), kAccessList, nullptr, 0);
    if (size <= 0) {
        return;  // no access list besides the mode
    }
    std::vector<char> list(static_cast<std::size_t>(size));
    if (lgetxattr(from.c_str(), kAccessList, list.data(), list.size()) != size ||
        setxattr(itself.c_str(), kAccessList, list.data(), list.size(), 0) != 0) {
        refuse("cannot give the tap's socket the access list of " + from.string() + ": " + reason());
    }
}

/// A listening socket at @p at. Only this user can connect until it gets the rights of the service's socket.
Descriptor listenAt(const std::filesystem::path &at)
{
    const sockaddr_un address = unixAddress(at);
    Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket");
    if (fchmod(listener.get(), 0600) != 0 ||
        bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener.get(), kWaitingConnections) != 0) {
        refuse("cannot listen at " + at.string() + ": " + reason());
    }
    return listener;
}

}  // namespace

SocketPlace::SocketPlace(std::filesystem::path path, Wait wait)
    : path_(std::move(path)), aside_(asideOf(path_)), lock_(wait == Wait::yes ? lockedSoon(path_) : lockedFile(path_))
{
    if (!lock_.valid()) {
        refuse("another tap is running at " + path_.string() + "; end it first");
    }
    if (fileAt(aside_) != FileId{} && !putBack(path_, socketLeftAt(path_, lock_.get()))) {
        refuse("cannot put back the socket that an earlier tap left at " + aside_.string() + ": " + reason());
    }
    struct stat status {};
    if (lstat(path_.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
        unlink(lockOf(path_).c_str());
        refuse("no socket at " + path_.string() + "; start the service first");
    }
    try {
        listener_ = listenAt(aside_);
        own_ = fileAt(aside_);
        copyRights(path_, aside_);
        writeId(lock_.get(), own_, path_);
        if (!exchange(path_, aside_)) {
            refuseExchange(path_, errno);
        }
    } catch (...) {
        if (own_ != FileId{} && fileAt(aside_) == own_) {
            unlink(aside_.c_str());
        }
        unlink(lockOf(path_).c_str());
        throw;
    }
}

SocketPlace::~SocketPlace()
{
    if (giveBack()) {
        unlink(lockOf(path_).c_str());
    }
}

bool SocketPlace::giveBack() noexcept
{
    if (fileAt(aside_) != FileId{}) {
        return putBack(path_, own_);
    }
    // Somebody has removed the service's socket. Without the tap, programs would find nothing either.
    if (own_ != FileId{} && fileAt(path_) == own_) {
        unlink(path_.c_str());
    }
    own_ = {};
    return true;
}

// Both look at the sockets first: the lock file may belong to another user, who has tapped the service or has been killed.
bool isTapped(const std::filesystem::path &path)
{
    if (fileAt(asideOf(path)) == FileId{} || !isServed(path)) {
        return false;
    }
    const Descriptor lock(open(lockOf(path).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    return lock.valid() ? flock(lock.get(), LOCK_SH | LOCK_NB) != 0 : errno == EACCES;
}

bool needsRepair(const std::filesystem::path &path)
{
    return fileAt(asideOf(path)) != FileId{} && fileAt(path) != FileId{} && !isServed(path);
}

bool repair(const std::filesystem::path &path)
{
    if (fileAt(asideOf(path)) == FileId{}) {
        return false;
    }
    const Descriptor lock = lockedSoon(path);
    if (!lock.valid()) {
        refuse("a tap is running at " + path.string() + "; end it instead");
    }
    if (!putBack(path, socketLeftAt(path, lock.get()))) {
        refuseExchange(path, errno);
    }
    unlink(lockOf(path).c_str());
    return true;
}

}  // namespace tools::tap
