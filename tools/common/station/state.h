// Reads all properties of a station.
#pragma once

#include "common/station/properties.h"

#include <chrono>
#include <functional>

namespace tools {

/// A failed request that took longer got no reply. The library waits 4 s for a silent service, and would do so again for each
/// further request.
inline constexpr std::chrono::seconds kSilence{3};

/// Requests the properties of the station one by one and passes each reading to @p onReading. A reading without values may only
/// mean that the station does not have the property. Throws Failure if no service answers, or if the service stops answering.
void readStation(uint32_t station, const std::function<void(const NamedProperty &asked, const Reading &reading)> &onReading);

}  // namespace tools
