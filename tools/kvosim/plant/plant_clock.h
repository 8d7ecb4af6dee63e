// The clock of a simulated plant: the real time, until a time is set.
#pragma once

#include <chrono>
#include <optional>

namespace kvosim {

class PlantClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    [[nodiscard]] TimePoint now() const { return set_ ? *set_ : std::chrono::steady_clock::now(); }
    /// Stops the clock at @p time, for a plant that repeats what happened at recorded times.
    void set(TimePoint time) { set_ = time; }

private:
    std::optional<TimePoint> set_;
};

/// For stations outside a plant.
inline const PlantClock kRealTime;

}  // namespace kvosim
