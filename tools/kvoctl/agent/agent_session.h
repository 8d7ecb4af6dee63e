// "kvoctl agent run": an agent that runs until it is told to end.
#pragma once

#include "kvoctl/agent/agent.h"
#include "kvoctl/live/stop_signals.h"

namespace kvoctl {

/// Shows what happens to the agent and pushes the lines of standard input, until a signal comes or the output's reader goes
/// away. False where the agent has not ended in time then. Throws Failure where the agent is not started or ends by itself, and
/// std::runtime_error where the output can not be written.
[[nodiscard]] bool runAgent(const AgentPlan &plan, const AgentHost &host, LineFormat format, const StopSignals &signals);

}  // namespace kvoctl
