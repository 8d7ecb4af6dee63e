// A listening socket at a path. It never replaces a live socket. Its destructor removes the file.
#pragma once

#include "common/descriptor.h"

#include <filesystem>
#include <sys/types.h>

namespace tools {

/// File modes of a socket: users who may write to it may connect. The umask does not change them.
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
    // The identity of this socket's file. If another file has replaced it, the destructor does not remove that one.
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

}  // namespace tools
