// The table of commands that the agent itself uses.
#pragma once

#include <kvo_hws/agent.h>

#include <iterator>

namespace kvo_hws::agent {

/// The rows of cmds, but with the hidden names of the handlers.
extern const HwsCommand commands[std::size(cmds)];

}  // namespace kvo_hws::agent
