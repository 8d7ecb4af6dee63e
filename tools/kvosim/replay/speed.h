// How fast a recording is replayed.
#pragma once

#include "common/recording/line.h"

#include <optional>
#include <string>

namespace kvosim {

using tools::recording::Microseconds;

class Speed {
public:
    /// As fast as when it was recorded.
    Speed() = default;

    /// Reads a factor from 0.001 to 1000000, or "max". Returns nullopt for any other text.
    static std::optional<Speed> parse(const std::string &text);

    /// A recorded time in the replay.
    [[nodiscard]] Microseconds scaled(Microseconds recorded) const;

private:
    double factor_ = 1;  // 0 for "max"
};

}  // namespace kvosim
