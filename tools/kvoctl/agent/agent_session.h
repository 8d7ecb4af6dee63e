// "kvoctl agent run": runs an agent until the user stops it.
#pragma once

#include "kvoctl/agent/agent.h"
#include "kvoctl/live/stop_signals.h"

namespace kvoctl {

/// Shows the agent's events and sends the lines of standard input as indications, until a signal arrives or the reader of the
/// output closes it. Then stops the agent, and returns false if it does not end in time. Throws Failure if the agent does not
/// start or ends by itself, and std::runtime_error if the output cannot be written.
[[nodiscard]] bool runAgent(const AgentOptions &options, const AgentHost &host, LineFormat format, const StopSignals &signals);

}  // namespace kvoctl
