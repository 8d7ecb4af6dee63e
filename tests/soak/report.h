// The verdict of a soak run and its figures, as text or as JSON.
#pragma once

#include "shared_state.h"

#include <cstdint>
#include <string>

namespace soak {

struct RunSummary {
    uint64_t seed = 0;
    double seconds = 0;
    bool memoryIsChecked = false;
    bool complete = false;  ///< false if it was aborted
};

/// Adds complaints at the end of a run: undocumented results, grown resource usage, and events that did not occur.
void check(SharedState &shared, const RunSummary &run);

std::string asText(const SharedState &shared, const RunSummary &run);
std::string asJson(const SharedState &shared, const RunSummary &run);

}  // namespace soak
