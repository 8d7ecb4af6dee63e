// Checks the steps of a request to the service one by one, and stops at the first that fails.
#pragma once

#include "common/finding.h"

#include <vector>

namespace tools {

/// Returns the findings. If there is a fault, it is the last one. Takes at most 7 s, whatever the service does.
std::vector<Finding> probeService();

}  // namespace tools
