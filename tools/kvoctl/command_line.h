// The command line: global options, and the subcommands that the families register.
#pragma once

#include "output.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace kvoctl {

/// What a subcommand does once the command line has been read.
using Action = std::function<Report()>;

/// Declares a subcommand's arguments and returns its action. Values that arguments are read into are shared with the action.
using SetUp = std::function<Action(CLI::App &command)>;

class CommandLine {
public:
    CommandLine();
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;

    void add(const std::string &family, const std::string &name, const std::string &summary,
             const std::vector<std::string> &examples, const SetUp &setUp);

    /// Throws CLI::ParseError, also for --help and --version.
    void parse(std::vector<std::string> arguments);

    /// Writes what a ParseError asks for, or throws UsageError for a wrong command line.
    void help(const CLI::ParseError &request) const;

    /// The subcommand's action, to be called after parse.
    [[nodiscard]] Report run() const { return action_(); }

    /// "kvoctl: stations", as far as the command line has been understood; begins what is written on standard error.
    [[nodiscard]] std::string prefix() const;
    /// How to ask for the help that fits.
    [[nodiscard]] std::string helpCall() const;
    [[nodiscard]] bool json() const noexcept { return json_; }
    [[nodiscard]] bool debug() const noexcept { return debug_; }

private:
    /// Empty while none has been read.
    [[nodiscard]] std::string chosen() const;

    CLI::App app_;
    bool json_ = false;
    bool debug_ = false;
    Action action_;
};

/// The subcommands of one family of requests under one heading of the help.
class Family {
public:
    Family(CommandLine &commandLine, std::string heading) : commandLine_(commandLine), heading_(std::move(heading)) {}

    void add(const std::string &name, const std::string &summary, const std::vector<std::string> &examples, const SetUp &setUp)
    {
        commandLine_.add(heading_, name, summary, examples, setUp);
    }

private:
    CommandLine &commandLine_;
    std::string heading_;
};

}  // namespace kvoctl
