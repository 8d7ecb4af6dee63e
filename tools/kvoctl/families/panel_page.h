// "kvoctl panel show": one station's whole state on one page.
#pragma once

#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

/// Shows everything that any subcommand of @p commandLine can show of a station.
Subcommand stationPage(const CommandLine &commandLine);

}  // namespace kvoctl
