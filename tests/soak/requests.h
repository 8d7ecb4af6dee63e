// The mix of requests that a soak run makes, each with the results that its function may have.
#pragma once

#include "crew.h"

#include <cstdint>
#include <span>
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
    const char *name;
    int32_t (*ask)(Worker &worker, uint32_t station);
    ResultSet results;
};

std::span<const RequestRow> requestRows();

/// The stations of the plant, to be asked once before the others.
std::vector<uint32_t> knownStations();

}  // namespace soak
