// The subcommand "compare".
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace kvosim {

class CompareCommand {
public:
    explicit CompareCommand(CLI::App &app);
    CompareCommand(const CompareCommand &) = delete;
    CompareCommand &operator=(const CompareCommand &) = delete;

    [[nodiscard]] bool parsed() const { return command_->parsed(); }
    /// Returns the exit status. Throws tools::Refused or PlantFileError if a file is not valid.
    [[nodiscard]] int carryOut() const;

private:
    CLI::App *command_;
    std::string recording_;
    std::string plant_;
    std::size_t differences_ = 3;
    bool json_ = false;
};

}  // namespace kvosim
