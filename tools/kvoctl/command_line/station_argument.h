// How a station is named on the command line, and what the service knows of it.
#pragma once

#include <kvo_hws/codecs.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvoctl {

inline constexpr const char *kStationForms = "IPv4 address (10.0.0.5), eight hexadecimal digits (0A000005) or name";

/// The argument STATION, as the user wrote it: a text that the service can be asked for.
std::shared_ptr<std::string> addStation(CLI::App &command);

/// Any number of such arguments.
std::shared_ptr<std::vector<std::string>> addStations(CLI::App &command, const std::string &help);

enum class StationForms { addressOrName, address, name };

/// Lets shells complete a station of those that the service knows.
void completeStations(const CLI::Option *argument, StationForms forms = StationForms::addressOrName);

/// The service's record of a station named in any of these forms; throws Failure where there is none.
KvoDescriptionEx lookUp(const std::string &station);

/// The address of a station: dotted, as eight hexadecimal digits, or by name, for which the service is asked.
uint32_t stationAddress(const std::string &station);

/// @p address as inet_addr stores it, and as the registry lists carry it; nothing for the "none" of a malformed one.
std::optional<std::string> dottedFromNetworkOrder(uint32_t address);

}  // namespace kvoctl
