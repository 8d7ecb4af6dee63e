// The place of a service's socket in the file system. A tap takes the place in one step and gives it back in one step, so that
// no program ever finds the path without a socket.
#pragma once

#include "common/descriptor.h"
#include "common/tap/file_id.h"

#include <filesystem>
#include <string>

namespace tools::tap {

class SocketPlace {
public:
    /// Whether to wait a moment for a guardian that is putting things right.
    enum class Wait { no, yes };

    /// Puts a listening socket of this process in the place of the socket at @p path. The new socket has the owner, the mode and
    /// the access list of the old one before programs can find it. Puts back first what a tap that was killed has left. Throws
    /// Refused with a sentence that says what to do if another tap has the place, if a right is missing, or if the file system
    /// cannot exchange two names.
    explicit SocketPlace(std::filesystem::path path, Wait wait = Wait::yes);
    SocketPlace(const SocketPlace &) = delete;
    SocketPlace &operator=(const SocketPlace &) = delete;
    /// Gives the place back.
    ~SocketPlace();

    [[nodiscard]] int listener() const noexcept { return listener_.get(); }
    /// Where the service's own socket is now. Connect to this path to reach the service.
    [[nodiscard]] const std::filesystem::path &serviceSocket() const noexcept { return aside_; }
    /// Whether programs still find this tap's socket. A service that starts again replaces it.
    [[nodiscard]] bool isTaken() const { return fileAt(path_) == own_; }
    /// Puts the service's socket back, unless another socket is in the place by now. Connections that wait for the listener can
    /// still be accepted. Returns whether the service's socket is in its place again.
    bool giveBack() noexcept;

private:
    std::filesystem::path path_;
    std::filesystem::path aside_;
    Descriptor lock_;
    Descriptor listener_;
    FileId own_;
};

/// Puts the socket back that a tap at @p path has left aside when it was killed. Returns false if there was nothing to do. Throws
/// Refused if a tap is running, or if the right to do it is missing.
bool repair(const std::filesystem::path &path);

/// Whether a tap has the place of the socket at @p path now.
bool isTapped(const std::filesystem::path &path);

/// Whether a tap that was killed has left the socket of @p path aside, and programs still find the tap's dead socket at @p path. What
/// it leaves aside does no harm once a service has put a new socket at @p path; repair() and the next tap remove it.
bool needsRepair(const std::filesystem::path &path);

}  // namespace tools::tap
