// The simulated service without sockets, at times that are given.
#pragma once

#include "kvosim/commands/commands.h"
#include "kvosim/plant/plant.h"
#include "kvosim/plant/registry.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace kvosim {

class SimulatedService {
public:
    using Time = std::chrono::microseconds;

    /// The service reports from the time @p initialized that it is ready.
    SimulatedService(Plant plant, Time initialized);

    /// The reply to a request at a time, without its line end. Returns nullopt if a fault of the plant prevents the reply.
    std::optional<std::string> ask(std::string_view request, Time time);

private:
    Plant plant_;
    Registry registry_{std::nullopt};
    ServiceContext context_{.plant = plant_, .registry = registry_};
};

}  // namespace kvosim
