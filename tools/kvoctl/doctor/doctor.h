// "kvoctl doctor": why nothing answers.
#pragma once

#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

void addDoctor(CommandLine &commandLine);

}  // namespace kvoctl
