// Plants of any size, for loads that no plant at hand has.
#pragma once

#include <cstdint>
#include <iosfwd>

namespace kvosim {

inline constexpr uint32_t kMaxGenerated = 100'000;

/// Writes a plant file of @p count stations; the same count and seed give the same text on every machine.
void generatePlant(std::ostream &out, uint32_t count, uint64_t seed);

}  // namespace kvosim
