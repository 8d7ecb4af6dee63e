// "kvoctl doctor": finds out why the service does not answer.
#pragma once

#include "common/finding.h"
#include "kvoctl/command_line/command_line.h"

#include <vector>

namespace kvoctl {

/// All findings. Takes at most 7 s, whatever the service does.
std::vector<tools::Finding> examine();

Report reportOf(const std::vector<tools::Finding> &findings);

void addDoctor(CommandLine &commandLine);

}  // namespace kvoctl
