// What the service answers to each request line; one row a command.
#pragma once

#include "event_loop.h"
#include "plant.h"
#include "registry.h"

#include <string>
#include <string_view>

namespace kvosim {

/// The answer to everything that the service does not know or can not do.
inline constexpr const char *kFailed = "failed";

/// What commands work on.
struct ServiceContext {
    Plant &plant;
    Registry &registry;
    Clock::time_point started = Clock::now();
    bool ending = false;  ///< set by the command that ends the service
};

/// Answers one request; both lines without their line end.
std::string answer(ServiceContext &context, std::string_view request);

}  // namespace kvosim
