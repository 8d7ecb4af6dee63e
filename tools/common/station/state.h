// Reading all of a station.
#pragma once

#include "common/station/properties.h"

#include <functional>

namespace tools {

/// Asks for each property of the station in turn, and hands on what came: values, or the result of a request that did not give
/// any, which may just mean that the station does not have it. Throws Failure where no service answers, or it stops answering.
void readStation(uint32_t station, const std::function<void(const NamedProperty &asked, const Reading &reading)> &take);

}  // namespace tools
