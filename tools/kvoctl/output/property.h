// A property of a station as a report of its own.
#pragma once

#include "common/station/property.h"
#include "kvoctl/output/output.h"

#include <cstdint>

namespace kvoctl {

using tools::Property;
using tools::Reading;
using tools::Value;

/// Asks for one property and reports it alone; throws Failure where there is none.
Report show(const Property &property, uint32_t station);

}  // namespace kvoctl
