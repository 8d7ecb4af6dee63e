// "kvoctl agent check": sends an agent every command of a remote service and checks the replies.
#pragma once

#include "kvoctl/agent/agent.h"
#include "kvoctl/output/output.h"

#include <optional>

namespace kvoctl {

struct CheckOptions {
    AgentOptions agent;  ///< without the remote service, which checkAgent provides
    AgentHost host;
    std::optional<unsigned> session{};  ///< without a value: the first whose port is free
    bool sendsAll = false;              ///< also send commands that change the station
};

/// Starts the agent, checks it and stops it. Throws Failure if the station in focus cannot be read, and std::runtime_error if
/// no port is free.
Report checkAgent(CheckOptions options);

}  // namespace kvoctl
