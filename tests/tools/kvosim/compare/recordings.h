// Recordings for tests, as text.
#pragma once

#include "common/recording/recording.h"

#include <algorithm>
#include <string>

namespace kvosim_test {

inline const std::string kRecordingHead = "kvo-recording 1\nstart 2026-11-22T14:00:00.000000Z\nprocess 1 4711 \"panel\"\n";

inline tools::recording::Recording recordingOf(const std::string &lines)
{
    return tools::recording::Recording::read(kRecordingHead + lines, "plant.rec");
}

/// One line for each line of a plant file.
inline std::string plantLines(const std::string &plant)
{
    std::string lines;
    for (std::size_t at = 0; at < plant.size();) {
        const std::size_t end = std::min(plant.find('\n', at), plant.size());
        lines += format(tools::recording::PlantLine{plant.substr(at, end - at)}) + '\n';
        at = end + 1;
    }
    return lines;
}

}  // namespace kvosim_test
