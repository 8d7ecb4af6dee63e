// "kvoctl anonymize": replaces what a recording says about a plant.
#pragma once

#include "common/recording/anonymizer.h"
#include "common/recording/recording.h"
#include "kvoctl/command_line/command_line.h"

#include <functional>

namespace kvoctl {

/// Calls @p write with each line that follows the start of the recording.
void writeAnonymized(const tools::recording::Recording &recording, tools::recording::Anonymizer &anonymizer,
                     const std::function<void(const tools::recording::Line &)> &write);

void addAnonymize(CommandLine &commandLine);

}  // namespace kvoctl
