// "kvoctl anonymize": replaces what a recording says about a plant.
#pragma once

#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

void addAnonymize(CommandLine &commandLine);

}  // namespace kvoctl
