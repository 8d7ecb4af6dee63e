// A program of the user that kvoctl runs for each event.
#pragma once

#include "kvoctl/live/event.h"

#include <csignal>
#include <optional>
#include <string>

namespace kvoctl {

class EventProgram {
public:
    /// @p variablePrefix  the prefix of the environment variables for the program
    /// @p signalMask      the signals that are blocked when the program starts
    /// @p messagePrefix   the prefix of messages on standard error
    EventProgram(std::string program, std::string variablePrefix, const sigset_t &signalMask, std::string messagePrefix);

    /// Runs the program with the event in its environment and waits for it. Returns its exit status if that is at most
    /// @p maxStatus; otherwise writes the reason to standard error and returns nothing. Several threads may call it at the same
    /// time.
    [[nodiscard]] std::optional<int> run(const Event &event, int maxStatus = 0) const;

private:
    std::string program_;
    std::string variablePrefix_;
    sigset_t signalMask_;
    std::string messagePrefix_;
};

}  // namespace kvoctl
