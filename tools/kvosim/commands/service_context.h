// What all commands of the service work on.
#pragma once

#include "kvosim/base/event_loop.h"
#include "kvosim/plant/plant.h"
#include "kvosim/plant/registry.h"

#include <string>

namespace kvosim {

/// What commands work on.
struct ServiceContext {
    Plant &plant;
    Registry &registry;
    Clock::time_point started = Clock::now();
    bool ending = false;     ///< set by the command that ends the service
    uint64_t exchanges = 0;  ///< requests answered so far
    bool usbEventsActivated = false;
    std::string usbLockAddress{};  ///< where datagrams are taken; empty where they are not
};

}  // namespace kvosim
