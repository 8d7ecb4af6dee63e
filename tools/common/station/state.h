// Reads all properties of a station.
#pragma once

#include "common/station/properties.h"

#include <functional>

namespace tools {

/// Requests the properties of the station one by one and passes each reading to @p onReading. A reading without values may only
/// mean that the station does not have the property. Throws Failure if no service answers, or if the service stops answering.
void readStation(uint32_t station, const std::function<void(const NamedProperty &asked, const Reading &reading)> &onReading);

}  // namespace tools
