// "kvoctl report": everything that is needed to find a fault from another desk, in one file.
#pragma once

#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

void addReport(CommandLine &commandLine);

}  // namespace kvoctl
