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

/// "@p subcommand STATION": shows the property of this subcommand.
inline CommandSetup showCommand(std::string_view subcommand)
{
    return [&property = tools::stationProperty(subcommand)](CLI::App &command) -> Action {
        const auto station = addStation(command);
        return [&property, station] { return show(property, stationAddress(*station)); };
    };
}

/// Sends @p request with a station and the values of @p given.
template <class... Parameters, class... Values>
Report call(Request<uint32_t, Parameters...> request, uint32_t station, const std::tuple<Argument<Values>...> &given)
{
    return reportDone(std::apply([&](const auto &...value) { return request(station, toParameter(*value.value)...); }, given));
}

/// A subcommand with STATION and @p arguments: sends @p request, whose parameters have the same order.
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

/// "@p subcommand STATION [VALUE...]": shows the property of this subcommand, or sets it with @p request if values are given.
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
