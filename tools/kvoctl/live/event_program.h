// A program of the user's that is run for each event.
#pragma once

#include "kvoctl/live/event.h"

#include <csignal>
#include <optional>
#include <string>

namespace kvoctl {

class EventProgram {
public:
    /// @p variables  begins the names of the variables that the program gets
    /// @p signals    what the program starts with blocked
    /// @p complaint  begins what is written on standard error
    EventProgram(std::string program, std::string variables, const sigset_t &signals, std::string complaint);

    /// Runs the program with the event in its environment and waits for it. Its exit status, where that is no more than
    /// @p greatest; otherwise nothing, and standard error tells why. Several threads may run it at once.
    [[nodiscard]] std::optional<int> run(const Event &event, int greatest = 0) const;

private:
    std::string program_;
    std::string variables_;
    sigset_t signals_;
    std::string complaint_;
};

}  // namespace kvoctl
