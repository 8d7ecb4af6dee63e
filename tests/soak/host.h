// The program under test that asks, pushes and listens: eight threads of requests, an agent with two threads of indications,
// and the listener for the events of embedded stations.
#pragma once

#include "shared_state.h"

namespace soak {

/// Works until the end of the run; to be called in a process of its own.
void runHost(Share &share, uint64_t seed);

}  // namespace soak
