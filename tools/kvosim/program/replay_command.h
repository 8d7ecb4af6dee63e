// kvosim replay, and kvosim serve --replay.
#pragma once

#include "kvosim/program/service_arguments.h"
#include "kvosim/program/serving.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace kvosim {

struct ReplayArguments {
    std::string recording;
    std::string speed = "1";
    bool strict = false;
    bool json = false;
    std::string report;
};

/// Adds the options of a replay, except for the recording.
std::vector<CLI::Option *> addReplayOptions(CLI::App &command, ReplayArguments &arguments);

/// Loads the recording and the plant, and returns how the service of the replay starts. Throws Refused or PlantFileError if a file is
/// invalid.
StartService replayOf(const ReplayArguments &arguments, const ServiceArguments &service);

}  // namespace kvosim
