// The state that all commands of the service share.
#pragma once

#include "kvosim/plant/plant.h"
#include "kvosim/plant/registry.h"

#include <string>

namespace kvosim {

struct ServiceContext {
    Plant &plant;
    Registry &registry;
    PlantClock::TimePoint started = plant.clock.now();
    bool ending = false;     ///< set by the command that ends the service
    uint64_t exchanges = 0;  ///< number of requests so far
    bool usbEventsActivated = false;
    std::string usbLockAddress{};  ///< where the service receives datagrams; empty if nowhere
};

}  // namespace kvosim
