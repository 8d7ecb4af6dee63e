// The command line: global options, and the subcommands that the families add.
#pragma once

#include "common/command_line/mistake.h"
#include "kvoctl/output/output.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kvoctl {

/// The action of a subcommand, which runs after the command line has been parsed.
using Action = std::function<Report()>;

/// Declares the arguments of a subcommand, and returns its action, which uses their values.
using CommandSetup = std::function<Action(CLI::App &command)>;

class CommandLine {
public:
    CommandLine();
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;

    /// Throws CLI::ParseError, also for --help and --version.
    void parse(std::vector<std::string> arguments);

    /// Writes the help or the version if @p request asks for it.
    void help(const CLI::ParseError &request) const;

    /// Adds the command "help". Call it after all others have been added.
    void addHelp();

    /// Answers a shell that completes a command line, and the build of the manual page. Returns false for all other arguments.
    [[nodiscard]] bool answerShell(const std::vector<std::string> &arguments) const;

    /// Runs the subcommand's action. Call it after parse.
    [[nodiscard]] Report run() const { return action_(); }

    /// The prefix of messages on standard error: "kvoctl: usb lock get", with the commands that the parser has read.
    [[nodiscard]] std::string prefix() const { return tools::command_line::messagePrefix(app_); }
    [[nodiscard]] const CLI::App &app() const noexcept { return app_; }
    [[nodiscard]] bool json() const noexcept { return json_; }
    [[nodiscard]] bool debug() const noexcept { return debug_; }
    /// The program that a command such as "trace" runs: the words after "--". Nothing without "--".
    [[nodiscard]] const std::optional<std::vector<std::string>> &program() const noexcept { return program_; }

private:
    friend class Family;

    void extractProgram(std::vector<std::string> &arguments);

    CLI::App app_;
    bool json_ = false;
    bool debug_ = false;
    std::optional<std::vector<std::string>> program_;
    Action action_;
};

/// Explains why the library's version text is always the same.
std::string explainLibraryVersion();

/// The subcommands of one family of requests. The help lists them under one heading, and they can share a first word.
class Family {
public:
    /// Subcommands of one word: "kvoctl stations".
    Family(CommandLine &commandLine, std::string heading)
        : commandLine_(commandLine), parent_(commandLine.app_), heading_(std::move(heading))
    {
    }
    /// Subcommands after @p word: "kvoctl viewer start".
    Family(CommandLine &commandLine, const std::string &heading, const std::string &word, const std::string &summary)
        : Family(commandLine, commandLine.app_, heading, word, word, summary)
    {
    }
    /// Subcommands after a second word: "kvoctl usb lock get".
    Family(const Family &outer, const std::string &word, const std::string &summary)
        : Family(outer.commandLine_, outer.parent_, outer.heading_, outer.path_ + word, word, summary)
    {
    }

    /// @p examples  the arguments of example calls
    void add(const std::string &name, const std::string &summary, const std::vector<std::string> &examples,
             const CommandSetup &setUp);

private:
    Family(CommandLine &commandLine, CLI::App &parent, const std::string &heading, const std::string &path,
           const std::string &word, const std::string &summary);

    CommandLine &commandLine_;
    CLI::App &parent_;
    std::string heading_;
    std::string path_{};  ///< the words before a subcommand's name, each followed by a space
};

}  // namespace kvoctl
