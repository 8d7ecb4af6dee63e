// Reads all properties of a station.
#pragma once

#include "common/station/properties.h"

#include <functional>

namespace tools {

/// Requests each property of the station in turn and passes the reading on. A reading without values has the result of the
/// request, which may only mean that the station does not have the property. Throws Failure if no service answers, or if it
/// stops answering.
void readStation(uint32_t station, const std::function<void(const NamedProperty &asked, const Reading &reading)> &onReading);

}  // namespace tools
