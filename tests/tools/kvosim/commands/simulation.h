// A simulated plant that answers single requests.
#pragma once

#include "kvosim/commands/commands.h"
#include "kvosim/plant_file/plant_file.h"

#include <optional>
#include <string>
#include <string_view>

namespace kvosim_test {

/// A plant with two stations. The first one has the additional @p keys.
inline std::string plantWith(const std::string &keys)
{
    return "[[station]]\naddress = \"10.0.0.5\"\nname = \"A\"\n" + keys +
           "\n[[station]]\naddress = \"10.0.0.6\"\nname = \"B\"\n";
}

class Simulation {
public:
    explicit Simulation(const std::string &plant) : plant_(kvosim::parsePlant(plant, "plant")) {}

    std::string ask(std::string_view request) { return kvosim::answer(context, request); }

private:
    kvosim::Plant plant_;
    kvosim::Registry registry_{std::nullopt};

public:
    kvosim::ServiceContext context{.plant = plant_, .registry = registry_};
};

}  // namespace kvosim_test
