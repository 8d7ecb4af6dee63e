// Listening sockets: checks whether a path is free, and claims it.
#include "common/listening_socket.h"

#include "common/lock_file.h"
#include "common/socket_folder.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <thread>

namespace tools {

namespace {

constexpr int kWaitingConnections = 1024;
constexpr std::chrono::milliseconds kLongestGiveUp{500};
constexpr std::chrono::milliseconds kPause{10};

[[noreturn]] void fail(const std::string &what, int error = errno)
{
    throw std::runtime_error(what + ": " + std::generic_category().message(error));
}

sockaddr_un addressOf(const std::string &path)
{
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error(path + ": too long for a socket, at most " + std::to_string(sizeof address.sun_path - 1) +
                                 " bytes");
    }
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    return address;
}

/// A directory that only this user can write to. No run removes it while the descriptor is open.
Descriptor ownDirectory(const std::filesystem::path &path)
{
    LockedFolder folder = lockFolder(path, FolderUse::serve, kServiceFolderMode);
    struct stat status {};
    if (fstat(folder.descriptor.get(), &status) != 0) {
        fail("cannot examine " + path.string());
    }
    const mode_t mode = status.st_mode & 07777;
    const mode_t narrowed = mode & kServiceFolderMode;
    // A directory that a run made keeps its mark, so that the last run removes it.
    if (mode != kRunFolderMode && mode != narrowed && fchmod(folder.descriptor.get(), narrowed) != 0) {
        fail("cannot remove other users' write permission from " + path.string());
    }
    return std::move(folder.descriptor);
}

/// A tap that has the place of a service gives it up when the service has ended. That takes a moment.
SocketState settledStateOf(const std::filesystem::path &path)
{
    const std::filesystem::path tapped = path.parent_path() / (kTapFilePrefix + path.filename().string());
    const auto until = std::chrono::steady_clock::now() + kLongestGiveUp;
    for (;;) {
        const SocketState state = socketStateOf(path);
        if (state != SocketState::live || !std::filesystem::exists(tapped) || std::chrono::steady_clock::now() > until) {
            return state;
        }
        std::this_thread::sleep_for(kPause);
    }
}

/// Removes the socket of an earlier service that has ended. Throws if anything else is at the path.
void clearPath(const std::string &path)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return;
    }
    if (!S_ISSOCK(status.st_mode)) {
        throw std::runtime_error(path + " exists and is not a socket; remove it first");
    }
    const SocketState state = settledStateOf(path);
    if (state == SocketState::live) {
        throw std::runtime_error("a service is already running at " + path + "; stop it first, or use \"kvosim run\"");
    }
    if (state != SocketState::stale) {
        fail("cannot find out whether a service runs at " + path);
    }
    if (unlink(path.c_str()) != 0) {
        fail("cannot remove the stale socket " + path);
    }
}

}  // namespace

ListeningSocket::ListeningSocket(std::filesystem::path path, mode_t mode) : path_(std::move(path))
{
    const sockaddr_un address = addressOf(path_);
    const Descriptor directory = ownDirectory(path_.parent_path());
    // Another service that starts at the same time may find the same stale socket.
    const LockFile starting(path_.parent_path() / (std::string(kLockFilePrefix) + "start"));
    clearPath(path_);
    socket_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // Restrict the socket before it has a path, so that no other user can connect in between. The umask may remove more bits,
    // so chmod follows bind. No other user can replace the file meanwhile: only this user can write to the directory.
    if (fchmod(socket_.get(), mode) != 0 ||
        bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        chmod(path_.c_str(), mode) != 0 || listen(socket_.get(), kWaitingConnections) != 0) {
        fail("cannot listen at " + path_.string());
    }
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0) {
        device_ = status.st_dev;
        inode_ = status.st_ino;
    }
}

ListeningSocket::~ListeningSocket()
{
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_) {
        unlink(path_.c_str());
    }
}

}  // namespace tools
