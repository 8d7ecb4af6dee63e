// The shapes of subcommands about one station: have something done, show a property, show it or set it.
#pragma once

#include "kvoctl/command_line/arguments.h"
#include "kvoctl/command_line/command_line.h"
#include "kvoctl/command_line/station_argument.h"

#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace kvoctl {

/// Shows a property: STATION.
inline Subcommand showing(const Property &property)
{
    const auto setUp = [property](CLI::App &command) -> Action {
        const auto station = addStation(command);
        return [=] { return show(property, stationAddress(*station)); };
    };
    return {setUp, {property}};
}

/// Calls @p request with a station and the values of @p given.
template <class Request, class... Values>
Report call(Request request, uint32_t station, const std::tuple<Given<Values>...> &given, const std::vector<Meaning> &codes)
{
    return done(std::apply([&](const auto &...value) { return request(station, passed(*value.value)...); }, given), codes);
}

/// Has something done: STATION and @p arguments, which the library's @p request takes in this order.
template <class Request, class... Arguments>
Subcommand order(Request request, const std::vector<Meaning> &codes, Arguments... arguments)
{
    return {[=](CLI::App &command) -> Action {
        const auto station = addStation(command);
        // In braces: the arguments are declared in their order.
        const std::tuple given{arguments.addTo(command)...};
        std::apply([](const auto &...value) { (value.option->required(), ...); }, given);
        return [=] { return call(request, stationAddress(*station), given, codes); };
    }};
}

/// Shows a property, or sets it where values are given: STATION [VALUE...].
template <class Request, class... Arguments>
Subcommand setting(const Property &property, Request request, const std::vector<Meaning> &codes, Arguments... arguments)
{
    const auto setUp = [=](CLI::App &command) -> Action {
        const auto station = addStation(command);
        const std::tuple given{arguments.addTo(command)...};
        return [=] {
            const auto counted = std::apply([](const auto &...value) { return (value.option->count() + ...); }, given);
            if (counted == 0) {
                return show(property, stationAddress(*station));
            }
            if (counted < sizeof...(arguments)) {
                throw UsageError("all values are needed to set it, or none to show it");
            }
            return call(request, stationAddress(*station), given, codes);
        };
    };
    return {setUp, {property}};
}

}  // namespace kvoctl
