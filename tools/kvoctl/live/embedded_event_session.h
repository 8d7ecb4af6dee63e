// "kvoctl events watch": the events of embedded stations, shown until it is told to end.
#pragma once

#include "kvoctl/live/event_program.h"
#include "kvoctl/live/stop_signals.h"

#include <optional>
#include <string>

namespace kvoctl {

struct EmbeddedEventPlan {
    LineFormat format;
    std::string complaint;  ///< begins what is written on standard error
    std::optional<EventProgram> program{};
};

/// How the variables of a program that is run for one begin.
inline constexpr const char *kEmbeddedEnvironment = "KVO_EVENT_";

/// Listens until a signal comes or the output's reader goes away. Throws Failure where the library does not listen, and
/// std::runtime_error where the output can not be written.
void watchEmbeddedEvents(const EmbeddedEventPlan &plan, const StopSignals &signals);

}  // namespace kvoctl
