// What a look at this machine's service and its libraries found: one sentence, and what to do where something is wrong.
#pragma once

#include <string>

namespace tools {

/// What can be wrong. The numbers are the exit statuses of "kvoctl doctor" (docs/kvoctl.md): none ever changes its meaning.
enum class Fault : int {
    none = 0,
    directoryMissing = 10,
    socketMissing = 11,
    noSocket = 12,  ///< something else stands in the place of the directory or the socket
    staleSocket = 13,
    notPermitted = 14,
    queueFull = 15,
    silent = 16,
    oddAnswer = 17,
    notReady = 18,
    platformMissing = 19
};

struct Finding {
    std::string check;  ///< what was looked at
    std::string words;
    std::string advice{};  ///< what to do; empty where there is nothing to do
    Fault fault = Fault::none;
    [[nodiscard]] bool isFault() const noexcept { return fault != Fault::none; }
    /// Something to know that is not a fault.
    [[nodiscard]] bool isNote() const noexcept { return !isFault() && !advice.empty(); }
};

}  // namespace tools
