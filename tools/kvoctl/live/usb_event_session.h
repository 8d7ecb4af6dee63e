// USB events activated for this process, from the activation to the end that the library tells.
#pragma once

#include "kvoctl/live/event_program.h"
#include "kvoctl/live/stop_signals.h"
#include "kvoctl/live/usb_event.h"

#include <optional>

namespace kvoctl {

/// What is to be done with events.
struct UsbEventPlan {
    bool olderCallback = false;
    bool closeWhenActivated = false;
    LineFormat format = nullptr;            ///< makes the event's line; none: events are not shown
    std::optional<EventProgram> program{};  ///< decides what the daemon is told of an event
};

enum class UsbEventEnd { closed, takenOver };

/// Activates USB events and waits until a signal comes, the output's reader goes away, or another program takes the events
/// over; closes them unless they are another's by then. One at a time in a process. Throws Failure where the service or the
/// library fails, and std::runtime_error where the output can not be written.
UsbEventEnd runUsbEvents(const UsbEventPlan &plan, const StopSignals &signals);

}  // namespace kvoctl
