// The subcommands that speak to a simulator that runs: status, station, fault, usb, remote, event.
#pragma once

#include "common/control_client.h"

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

    /// A subcommand, and what it does.
    CLI::App *add(CLI::App &parent, const char *name, const char *meaning, std::function<void()> action);
    /// Asks the simulator, and prints its answer, or with --json the answer as it is.
    void ask(const tools::Json &request, void (*print)(const tools::Json &reply),
             tools::Timeout patience = tools::kDefaultTimeout) const;
    /// Whether answers are to be printed as they are.
    [[nodiscard]] bool json() const;

private:
    struct Options;

    void addFaultCommands(CLI::App &fault);

    std::unique_ptr<Options> options_;
};

/// The subcommands of "usb".
void addUsbCommands(ControlCommands &commands, CLI::App &app);
/// The subcommands of "remote".
void addRemoteCommands(ControlCommands &commands, CLI::App &app);
/// "event".
void addEventCommand(ControlCommands &commands, CLI::App &app);

}  // namespace kvosim
