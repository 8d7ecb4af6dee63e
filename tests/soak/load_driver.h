// The load driver of a soak run. It lets the simulated service produce storms of USB events, requests, closes and resets of the
// remote side, temporary faults and events of embedded stations, and sends signals to the programs under test.
#pragma once

#include "workers.h"

#include <memory>

namespace soak {

class LoadDriver {
public:
    /// @param session  the session in which the simulator serves agents
    LoadDriver(SharedState &shared, uint64_t seed, unsigned session);
    LoadDriver(const LoadDriver &) = delete;
    LoadDriver &operator=(const LoadDriver &) = delete;
    ~LoadDriver();

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace soak
