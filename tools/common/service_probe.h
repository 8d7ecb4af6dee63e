// Checks each step of a request to the service, up to the first one that fails.
#pragma once

#include "common/finding.h"

#include <vector>

namespace tools {

/// Returns the findings, the fault last. Takes at most 7 s, whatever the service does.
std::vector<Finding> probeService();

}  // namespace tools
