// A listening socket at a path. It never replaces a live socket, and it removes its file at the end.
#pragma once

#include "common/descriptor.h"

#include <filesystem>
#include <sys/types.h>

namespace tools {

/// File modes that decide who may connect to a socket, whatever the umask: the users who may write to it.
inline constexpr mode_t kForAllUsers = 0666;
inline constexpr mode_t kForThisUser = 0600;

class ListeningSocket {
public:
    /// Creates the directory if it is missing, removes a stale socket, and listens. Throws std::runtime_error if a live service
    /// listens there, the directory belongs to another user, or the path is something other than a socket.
    explicit ListeningSocket(std::filesystem::path path, mode_t mode = kForThisUser);
    ListeningSocket(const ListeningSocket &) = delete;
    ListeningSocket &operator=(const ListeningSocket &) = delete;
    ~ListeningSocket();

    [[nodiscard]] int get() const noexcept { return socket_.get(); }
    [[nodiscard]] const std::filesystem::path &path() const noexcept { return path_; }

private:
    std::filesystem::path path_;
    Descriptor socket_;
    // They identify this socket's file: a file that has replaced it is not removed.
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

}  // namespace tools
