// The families of subcommands; each adds its own to the command line.
#pragma once

#include "command_line.h"

namespace kvoctl {

void addServiceCommands(CommandLine &commandLine);
void addStationCommands(CommandLine &commandLine);
void addPanelCommands(CommandLine &commandLine);

}  // namespace kvoctl
