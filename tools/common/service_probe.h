// Follows the way of a request to the service step by step, to the first one that fails.
#pragma once

#include "common/finding.h"

#include <vector>

namespace tools {

/// Takes 7 s at most, whatever the service does. What was found, the fault last.
std::vector<Finding> probeService();

}  // namespace tools
