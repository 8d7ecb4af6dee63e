// A listening socket at a path, taken over from nobody and removed at its end.
#pragma once

#include "common/descriptor.h"

#include <filesystem>
#include <sys/types.h>

namespace tools {

/// Who may connect to a socket, as file modes, whatever the umask: those who may write it.
inline constexpr mode_t kWidest = 0666;
inline constexpr mode_t kForThisUser = 0600;

class ListeningSocket {
public:
    /// Creates the directory where it is missing, removes a socket that nobody listens at any more, and listens.
    /// Throws std::runtime_error where a live service listens there, the directory is another user's, or the path is taken
    /// by something that is no socket.
    explicit ListeningSocket(std::filesystem::path path, mode_t mode = kForThisUser);
    ListeningSocket(const ListeningSocket &) = delete;
    ListeningSocket &operator=(const ListeningSocket &) = delete;
    ~ListeningSocket();

    [[nodiscard]] int get() const noexcept { return socket_.get(); }
    [[nodiscard]] const std::filesystem::path &path() const noexcept { return path_; }

private:
    std::filesystem::path path_;
    Descriptor socket_;
    // Which file is this socket's: whoever has put another one in its place keeps that.
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

}  // namespace tools
