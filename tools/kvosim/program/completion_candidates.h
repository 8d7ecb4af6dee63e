// Candidates for shell completion of kvosim's arguments. Most of them come from the running simulator.
#pragma once

#include <CLI/CLI.hpp>

namespace kvosim {

void completeStations(const CLI::Option *argument);
/// The USB devices that are plugged in, by ident2 and by ident3.
void completeDevices(const CLI::Option *argument);
/// The sessions of agents that are served.
void completeSessions(const CLI::Option *argument);
/// "KEY=" for each key of a station.
void completeStationKeys(const CLI::Option *argument);
/// Keywords of the service's commands.
void completeKeywords(const CLI::Option *argument);

}  // namespace kvosim
