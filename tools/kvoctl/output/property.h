// The report of a single property of a station.
#pragma once

#include "common/station/property.h"
#include "kvoctl/output/output.h"

#include <cstdint>

namespace kvoctl {

using tools::Property;
using tools::Reading;
using tools::Value;

/// Reads one property and reports it. Throws Failure if the request fails.
Report show(const Property &property, uint32_t station);

}  // namespace kvoctl
