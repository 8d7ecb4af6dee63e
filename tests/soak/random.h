// Random numbers from the seed of a soak run. Each thread has a separate sequence.
#pragma once

#include <chrono>
#include <cstdint>
#include <random>

namespace soak {

class Random {
public:
    explicit Random(uint64_t seed) : engine_(seed) {}

    /// A number from 0 to @p end - 1.
    uint32_t below(uint32_t end) { return std::uniform_int_distribution<uint32_t>(0, end - 1)(engine_); }
    bool oneIn(uint32_t chances) { return below(chances) == 0; }
    std::chrono::milliseconds between(std::chrono::milliseconds shortest, std::chrono::milliseconds longest)
    {
        return shortest + std::chrono::milliseconds(below(static_cast<uint32_t>((longest - shortest).count()) + 1));
    }
    template <class List>
    auto &oneOf(List &list)
    {
        return list[below(static_cast<uint32_t>(std::size(list)))];
    }

private:
    std::mt19937_64 engine_;
};

}  // namespace soak
