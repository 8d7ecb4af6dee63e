// "kvoctl agent check": asks an agent everything that a remote service can ask.
#pragma once

#include "kvoctl/agent/agent.h"
#include "kvoctl/output/output.h"

#include <optional>

namespace kvoctl {

struct CheckPlan {
    AgentPlan agent;  ///< but for the remote service
    AgentHost host;
    std::optional<unsigned> session{};  ///< none: the first whose port is free
    bool asksAll = false;               ///< also what changes the station
};

/// Starts the agent, asks it, and stops it. Throws Failure where the station in focus can not be read, and std::runtime_error
/// where no port is free.
Report checkAgent(CheckPlan plan);

}  // namespace kvoctl
