// The subcommands that control a running simulator: status, station, fault, usb, remote and event.
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

    /// Runs the subcommand that was given. Returns false if it is not one of these. Throws as askSimulator does.
    [[nodiscard]] bool carryOut() const;

    /// Adds a subcommand with its action.
    CLI::App *add(CLI::App &parent, const char *name, const char *description, std::function<void()> action);
    /// Sends a request to the simulator and prints the reply with @p print, or as JSON if --json was given.
    void ask(const tools::Json &request, void (*print)(const tools::Json &reply),
             tools::Timeout timeout = tools::kDefaultTimeout) const;
    /// Whether replies are printed as JSON.
    [[nodiscard]] bool json() const;

private:
    struct Options;

    void addFaultCommands(CLI::App &fault);

    std::unique_ptr<Options> options_;
};

/// Adds the subcommands of "usb".
void addUsbCommands(ControlCommands &commands, CLI::App &app);
/// Adds the subcommands of "remote".
void addRemoteCommands(ControlCommands &commands, CLI::App &app);
/// Adds "event".
void addEventCommand(ControlCommands &commands, CLI::App &app);

}  // namespace kvosim
