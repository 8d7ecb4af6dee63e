// Generates plants of any size, for load tests.
#pragma once

#include <cstdint>
#include <iosfwd>

namespace kvosim {

inline constexpr uint32_t kMaxGenerated = 100'000;

/// Writes a plant file with @p count stations. The same count and seed produce the same text on every machine.
void generatePlant(std::ostream &out, uint32_t count, uint64_t seed);

}  // namespace kvosim
