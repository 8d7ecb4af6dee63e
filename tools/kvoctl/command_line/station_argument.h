// The argument that names a station, and the service's record of that station.
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

/// Adds the argument STATION. Its value is the user's text, in a form that the service accepts.
std::shared_ptr<std::string> addStation(CLI::App &command);

/// Adds an argument that takes any number of stations.
std::shared_ptr<std::vector<std::string>> addStations(CLI::App &command, const std::string &help);

/// Adds an option that takes one station and may be repeated.
std::shared_ptr<std::vector<std::string>> addStationOption(CLI::App &command, const std::string &name, const std::string &help);

enum class StationForms { addressOrName, address, name };

/// Lets shells complete the stations that the service knows.
void completeStations(const CLI::Option *argument, StationForms forms = StationForms::addressOrName);

/// The service's record of @p station, which has one of the kStationForms. Throws Failure if no such station exists.
KvoDescriptionEx lookUp(const std::string &station);

/// Whether @p station is a name, and not an address.
bool isStationName(const std::string &station);

/// The address of @p station, which has one of the kStationForms. The service resolves a name.
uint32_t stationAddress(const std::string &station);

/// Converts an address in the byte order of inet_addr, as the registry lists contain it. Returns nothing for INADDR_NONE, which
/// stands for a malformed address.
std::optional<std::string> dottedFromNetworkOrder(uint32_t address);

}  // namespace kvoctl
