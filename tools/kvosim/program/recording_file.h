// Loads recordings for the commands that use them.
#pragma once

#include "common/recording/recording.h"

#include <string>

namespace kvosim {

/// Throws tools::Refused if the file cannot be read or is not a valid recording.
tools::recording::Recording loadRecording(const std::string &path);

}  // namespace kvosim
