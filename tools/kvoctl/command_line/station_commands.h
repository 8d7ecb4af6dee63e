// The shapes of subcommands about one station: have something done, show a property, show it or set it.
#pragma once

#include "common/station/properties.h"
#include "kvoctl/command_line/arguments.h"
#include "kvoctl/command_line/command_line.h"
#include "kvoctl/command_line/station_argument.h"
#include "kvoctl/output/property.h"

#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace kvoctl {

/// Shows the property of these words: STATION.
inline SetUp showing(std::string_view words)
{
    return [&property = tools::stationProperty(words)](CLI::App &command) -> Action {
        const auto station = addStation(command);
        return [&property, station] { return show(property, stationAddress(*station)); };
    };
}

/// Calls @p request with a station and the values of @p given.
template <class... Parameters, class... Values>
Report call(Request<uint32_t, Parameters...> request, uint32_t station, const std::tuple<Given<Values>...> &given)
{
    return done(std::apply([&](const auto &...value) { return request(station, passed(*value.value)...); }, given));
}

/// Has something done: STATION and @p arguments, which the library's @p request takes in this order.
template <class... Parameters, class... Arguments>
SetUp order(Request<uint32_t, Parameters...> request, Arguments... arguments)
{
    return [=](CLI::App &command) -> Action {
        const auto station = addStation(command);
        // In braces: the arguments are declared in their order.
        const std::tuple given{arguments.addTo(command)...};
        std::apply([](const auto &...value) { (value.option->required(), ...); }, given);
        return [=] { return call(request, stationAddress(*station), given); };
    };
}

/// Shows the property of these words, or sets it where values are given: STATION [VALUE...].
template <class... Parameters, class... Arguments>
SetUp setting(std::string_view words, Request<uint32_t, Parameters...> request, Arguments... arguments)
{
    return [=, &property = tools::stationProperty(words)](CLI::App &command) -> Action {
        const auto station = addStation(command);
        const std::tuple given{arguments.addTo(command)...};
        return [=, &property] {
            const auto counted = std::apply([](const auto &...value) { return (value.option->count() + ...); }, given);
            if (counted == 0) {
                return show(property, stationAddress(*station));
            }
            if (counted < sizeof...(arguments)) {
                throw UsageError("all values are needed to set it, or none to show it");
            }
            return call(request, stationAddress(*station), given);
        };
    };
}

}  // namespace kvoctl
