// "kvoctl events watch": shows the events of embedded stations until the user stops it.
#pragma once

#include "kvoctl/live/event_program.h"
#include "kvoctl/live/stop_signals.h"

#include <optional>
#include <string>

namespace kvoctl {

struct EmbeddedEventOptions {
    LineFormat format;
    std::string messagePrefix;  ///< the prefix of messages on standard error
    std::optional<EventProgram> program{};
};

/// The prefix of the environment variables of a program that is run for an event.
inline constexpr const char *kEventVariablePrefix = "KVO_EVENT_";

/// Listens until a signal arrives or the reader of the output closes it. Throws Failure if the library cannot listen, and
/// std::runtime_error if the output cannot be written.
void watchEmbeddedEvents(const EmbeddedEventOptions &options, const StopSignals &signals);

}  // namespace kvoctl
