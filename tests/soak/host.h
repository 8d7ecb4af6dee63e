// The main program under test: eight threads make requests, an agent runs with two threads that send indications, and a
// listener receives the events of embedded stations.
#pragma once

#include "shared_state.h"

namespace soak {

/// Runs until the end of the soak run. Call it in a separate process.
void runHost(SharedState &shared, uint64_t seed);

}  // namespace soak
