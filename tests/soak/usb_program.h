// A program that activates USB events and closes them again, over and over. Two of them take the events from one another.
#pragma once

#include "shared_state.h"

namespace soak {

/// Works until the end of the run; to be called in a process of its own.
void runUsbProgram(Share &share, Program program, uint64_t seed);

}  // namespace soak
