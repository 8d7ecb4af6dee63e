// A program of the user's that is run for each event.
#pragma once

#include "usb_event.h"

#include <csignal>
#include <string>

namespace kvoctl {

class EventProgram {
public:
    /// @p signals    what the program starts with blocked
    /// @p complaint  begins what is written on standard error
    EventProgram(std::string program, const sigset_t &signals, std::string complaint);

    /// Runs the program with the event in its environment and waits for it. True when it has ended with 0; otherwise standard
    /// error tells why not. Several threads may run it at once.
    [[nodiscard]] bool run(const UsbEvent &event) const;

private:
    [[nodiscard]] std::string runAndWait(const UsbEvent &event) const;

    std::string program_;
    sigset_t signals_;
    std::string complaint_;
};

}  // namespace kvoctl
