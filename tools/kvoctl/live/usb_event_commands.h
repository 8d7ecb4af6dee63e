// The subcommands about USB events.
#pragma once

#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

/// Adds the subcommands to the family "usb" of @p commandLine.
void addUsbEventCommands(Family &usb, const CommandLine &commandLine);

}  // namespace kvoctl
