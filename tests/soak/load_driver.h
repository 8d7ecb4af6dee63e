// What makes the simulated service a bad day: storms of USB events, a remote side that asks, closes and resets, faults that come
// and go, events of embedded stations; and signals for the programs under test.
#pragma once

#include "workers.h"

#include <memory>

namespace soak {

class Conductor {
public:
    /// @p session is the one that the simulator serves agents for.
    Conductor(Share &share, uint64_t seed, unsigned session);
    Conductor(const Conductor &) = delete;
    Conductor &operator=(const Conductor &) = delete;
    ~Conductor();

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace soak
