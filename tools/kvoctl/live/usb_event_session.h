// Runs an activation of USB events in this process, up to the end event of the library.
#pragma once

#include "kvoctl/live/event_program.h"
#include "kvoctl/live/stop_signals.h"
#include "kvoctl/live/usb_event.h"

#include <optional>

namespace kvoctl {

/// How to handle events.
struct UsbEventOptions {
    bool olderCallback = false;
    bool closeWhenActivated = false;
    LineFormat format = nullptr;            ///< formats an event as a line; null: events are not shown
    std::optional<EventProgram> program{};  ///< decides the answer to the daemon for an event
};

enum class UsbEventEnd { closed, takenOver };

/// Activates USB events and waits until a signal arrives, the reader of the output closes it, or another program takes over the
/// events. Then closes them, unless another program has taken them over. A process can have only one such call at a time.
/// Throws Failure if the service or the library fails, and std::runtime_error if the output cannot be written.
UsbEventEnd runUsbEvents(const UsbEventOptions &options, const StopSignals &signals);

}  // namespace kvoctl
