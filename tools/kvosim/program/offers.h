// What shells offer to complete in kvosim's arguments; most of it is asked of the simulator that runs.
#pragma once

#include <CLI/CLI.hpp>

namespace kvosim {

void offerStations(const CLI::Option *argument);
/// The USB devices that are plugged in, by either ident.
void offerDevices(const CLI::Option *argument);
/// The sessions of agents that are served.
void offerSessions(const CLI::Option *argument);
/// "KEY=" for each key of a station.
void offerStationKeys(const CLI::Option *argument);
/// Keywords of the service's commands.
void offerKeywords(const CLI::Option *argument);

}  // namespace kvosim
