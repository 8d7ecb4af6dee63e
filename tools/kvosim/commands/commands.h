// What the service answers to each request line, and what it makes of the datagrams of the USB lock.
#pragma once

#include "kvosim/base/arguments.h"
#include "kvosim/base/event_loop.h"
#include "kvosim/plant/plant.h"
#include "kvosim/plant/registry.h"

#include <string>
#include <string_view>
#include <vector>

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

/// Answers one request; both lines without their line end.
std::string answer(ServiceContext &context, std::string_view request);

/// The keyword of a request, without the "=" or space that ends it.
std::string_view keywordOf(std::string_view request);

/// A fault for a command of the table, or for all. Throws FaultError.
Fault makeFault(const FaultText &text);

/// The keywords of all commands, without what ends them, in alphabetical order.
std::vector<std::string_view> commandKeywords();

/// Carries out a datagram of the USB lock; false, with nothing changed, when it is none or names no station.
bool takeUsbLock(Plant &plant, std::string_view datagram);

}  // namespace kvosim
