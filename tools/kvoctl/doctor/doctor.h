// "kvoctl doctor": finds out why the service does not answer.
#pragma once

#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

void addDoctor(CommandLine &commandLine);

}  // namespace kvoctl
