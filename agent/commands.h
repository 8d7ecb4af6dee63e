// The commands as the agent itself looks them up.
#pragma once

#include <kvo_hws/agent.h>

#include <iterator>

namespace kvo_hws::agent {

/// The rows of cmds, with the hidden names of their handlers.
extern const HwsCommand commands[std::size(cmds)];

}  // namespace kvo_hws::agent
