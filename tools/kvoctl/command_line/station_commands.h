// The kinds of subcommands about one station: send a request, show a property, show or set a property.
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

/// A subcommand that shows the property with these words: STATION.
inline CommandSetup showCommand(std::string_view subcommand)
{
    return [&property = tools::stationProperty(subcommand)](CLI::App &command) -> Action {
        const auto station = addStation(command);
        return [&property, station] { return show(property, stationAddress(*station)); };
    };
}

/// Calls @p request with a station and the values of @p given.
template <class... Parameters, class... Values>
Report call(Request<uint32_t, Parameters...> request, uint32_t station, const std::tuple<Argument<Values>...> &given)
{
    return reportDone(std::apply([&](const auto &...value) { return request(station, toParameter(*value.value)...); }, given));
}

/// A subcommand that sends a request: STATION and @p arguments, which the library's @p request takes in this order.
template <class... Parameters, class... Arguments>
CommandSetup requestCommand(Request<uint32_t, Parameters...> request, Arguments... arguments)
{
    return [=](CLI::App &command) -> Action {
        const auto station = addStation(command);
        // Braces guarantee that the arguments are declared in this order.
        const std::tuple given{arguments.addTo(command)...};
        std::apply([](const auto &...value) { (value.option->required(), ...); }, given);
        return [=] { return call(request, stationAddress(*station), given); };
    };
}

/// A subcommand that shows the property with these words, or sets it if values are given: STATION [VALUE...].
template <class... Parameters, class... Arguments>
CommandSetup settingCommand(std::string_view subcommand, Request<uint32_t, Parameters...> request, Arguments... arguments)
{
    return [=, &property = tools::stationProperty(subcommand)](CLI::App &command) -> Action {
        const auto station = addStation(command);
        const std::tuple given{arguments.addTo(command)...};
        return [=, &property] {
            const auto counted = std::apply([](const auto &...value) { return (value.option->count() + ...); }, given);
            if (counted == 0) {
                return show(property, stationAddress(*station));
            }
            if (counted < sizeof...(arguments)) {
                throw UsageError("give all values to set it, or none to show it");
            }
            return call(request, stationAddress(*station), given);
        };
    };
}

}  // namespace kvoctl
