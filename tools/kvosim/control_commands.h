// The subcommands that speak to a simulator that runs: status, station, fault.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>

namespace kvosim {

class ControlCommands {
public:
    explicit ControlCommands(CLI::App &app);
    ControlCommands(const ControlCommands &) = delete;
    ControlCommands &operator=(const ControlCommands &) = delete;
    ~ControlCommands();

    /// Carries out the subcommand that was given; false when it was none of these. Throws as askSimulator does.
    [[nodiscard]] bool carryOut() const;

private:
    struct Options;

    void addFaultCommands(CLI::App &fault);
    CLI::App *add(CLI::App &parent, const char *name, const char *meaning, std::function<void()> action);

    std::unique_ptr<Options> options_;
};

}  // namespace kvosim
