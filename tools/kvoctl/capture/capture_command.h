// "kvoctl capture": writes the plant of the service as a plant file.
#pragma once

#include "kvoctl/capture/capture.h"
#include "kvoctl/command_line/command_line.h"

namespace kvoctl {

void addCapture(CommandLine &commandLine);

/// The option --rate of commands that capture a plant.
class RateOption {
public:
    explicit RateOption(CLI::App &command);

    [[nodiscard]] std::optional<unsigned> rate() const;
    [[nodiscard]] CLI::Option *option() const noexcept { return option_; }

private:
    std::shared_ptr<unsigned> value_ = std::make_shared<unsigned>(kCaptureRate);
    CLI::Option *option_;
};

/// Captures the plant, and shows the progress on a terminal.
Captured captureWithProgress(const CommandLine &commandLine, std::optional<unsigned> rate);

}  // namespace kvoctl
