// A program under test that repeatedly activates and closes USB events. Two of these programs take the events over from each
// other.
#pragma once

#include "shared_state.h"

namespace soak {

/// Runs until the end of the soak run. Call it in a separate process.
void runUsbProgram(SharedState &shared, Program program, uint64_t seed);

}  // namespace soak
