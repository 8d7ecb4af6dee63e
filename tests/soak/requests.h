// The mix of requests that a soak run makes, each with the results that its function may have.
#pragma once

#include "workers.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace soak {

/// Results as bits: 1, 0, -1, ... -10.
using ResultSet = uint32_t;

template <class... Result>
constexpr ResultSet oneOf(Result... results)
{
    return ((1U << static_cast<unsigned>(1 - results)) | ...);
}

constexpr bool contains(ResultSet set, int32_t result)
{
    return result <= Results::kHighest && result >= Results::kLowest && (set >> static_cast<unsigned>(1 - result) & 1U) != 0;
}

struct RequestRow {
    std::string name;
    std::function<int32_t(Worker &worker, uint32_t station)> ask;
    ResultSet results;
};

/// Those of the catalogue that a soak run may make, and others.
const std::vector<RequestRow> &requestRows();

/// The stations of the plant, to be asked once before the others.
std::vector<uint32_t> knownStations();

}  // namespace soak
