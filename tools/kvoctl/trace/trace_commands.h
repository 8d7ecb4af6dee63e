// "kvoctl trace" and "kvoctl record": what passes between the programs of this machine and the service.
#pragma once

#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

void addTraceCommands(CommandLine &commandLine);

}  // namespace kvoctl
