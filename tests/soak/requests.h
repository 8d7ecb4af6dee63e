// The requests of a soak run, each with the results that its function may return.
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

/// The requests of the catalogue that a soak run may make, and some others.
const std::vector<RequestRow> &requestRows();

/// The stations of the plant. Call it once before the other requests.
std::vector<uint32_t> knownStations();

}  // namespace soak
