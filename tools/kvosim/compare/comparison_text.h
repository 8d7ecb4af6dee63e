// A comparison as a table for people, and as JSON.
#pragma once

#include "common/json.h"
#include "kvosim/compare/comparison.h"

#include <string>

namespace kvosim {

/// Lines for a terminal. Bytes that cannot be printed are escaped, and long replies are cut.
std::string textOf(const Comparison &comparison);

/// With whole replies.
tools::Json jsonOf(const Comparison &comparison);

}  // namespace kvosim
