// The verdict of a soak run and its figures, as text or as JSON.
#pragma once

#include "shared_state.h"

#include <cstdint>
#include <string>

namespace soak {

struct RunSummary {
    uint64_t seed = 0;
    double seconds = 0;
    bool memoryIsJudged = false;
    bool complete = false;  ///< it was not broken off
};

/// Complains of what a run shows in its end: what is held, and what has not happened at all.
void judge(Share &share, const RunSummary &run);

std::string asText(const Share &share, const RunSummary &run);
std::string asJson(const Share &share, const RunSummary &run);

}  // namespace soak
