// A finding about this machine's service and libraries, and advice if something is wrong.
#pragma once

#include <string>

namespace tools {

/// Faults. The numbers are the exit statuses of "kvoctl doctor" (docs/kvoctl.md); their meanings never change.
enum class Fault : int {
    none = 0,
    directoryMissing = 10,
    socketMissing = 11,
    wrongFileType = 12,  ///< the path of the directory is not a directory, or that of the socket is not a socket
    staleSocket = 13,
    notPermitted = 14,
    queueFull = 15,
    noReply = 16,
    unexpectedReply = 17,
    notReady = 18,
    platformMissing = 19,
    tapLeft = 20  ///< a trace or a recording was killed and has left the service's socket aside
};

struct Finding {
    std::string check;  ///< the subject of the check
    std::string text;
    std::string advice{};  ///< what to do; empty if there is nothing to do
    Fault fault = Fault::none;
    [[nodiscard]] bool isFault() const noexcept { return fault != Fault::none; }
    /// Whether it is not a fault, but has advice.
    [[nodiscard]] bool isNote() const noexcept { return !isFault() && !advice.empty(); }
};

}  // namespace tools
