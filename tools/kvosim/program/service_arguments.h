// The options of the commands that serve a plant.
#pragma once

#include "kvosim/service.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace kvosim {

struct ServiceArguments {
    std::string plant;
    std::string registry;
    std::string usbLockAddress;
    std::string socketMode;
    std::string remote;
    std::string remoteAddress;
    uint32_t alive = 10;  // seconds
    bool verbose = false;
};

/// Adds the options that "serve" and "run" share. Returns those that only a plant has a use for, not a recording.
std::vector<CLI::Option *> addServiceOptions(CLI::App &command, ServiceArguments &arguments);
CLI::Option *addVerboseOption(CLI::App &command, ServiceArguments &arguments);
CLI::Option *addSocketModeOption(CLI::App &command, ServiceArguments &arguments);

ServiceOptions serviceOptions(const ServiceArguments &arguments);

/// Loads a plant. If that takes long, shows the progress on the terminal.
Plant loadWithProgress(const std::string &file);

}  // namespace kvosim
