// The command line: global options, and the subcommands that the families register.
#pragma once

#include "common/command_line/mistake.h"
#include "kvoctl/output/output.h"

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

    /// Throws CLI::ParseError, also for --help and --version.
    void parse(std::vector<std::string> arguments);

    /// Writes what a ParseError asks for that is no mistake.
    void help(const CLI::ParseError &request) const;

    /// Adds the command "help", which is the last.
    void addHelp();

    /// Answers a shell that completes a command line, and the build of the manual page; false where nobody of them asks.
    [[nodiscard]] bool answerShell(const std::vector<std::string> &arguments) const;

    /// The subcommand's action, to be called after parse.
    [[nodiscard]] Report run() const { return action_(); }

    /// "kvoctl: usb lock get", as far as the command line has been understood; begins what is written on standard error.
    [[nodiscard]] std::string prefix() const { return tools::command_line::place(app_); }
    /// As far as the command line has been understood.
    [[nodiscard]] const CLI::App &app() const noexcept { return app_; }
    [[nodiscard]] bool json() const noexcept { return json_; }
    [[nodiscard]] bool debug() const noexcept { return debug_; }

private:
    friend class Family;

    CLI::App app_;
    bool json_ = false;
    bool debug_ = false;
    Action action_;
};

/// Why the library's version text is no version.
std::string libraryVersionExplained();

/// The subcommands of one family of requests: under a heading of the help, or behind a word of their own.
class Family {
public:
    /// Subcommands that stand alone: "kvoctl stations".
    Family(CommandLine &commandLine, std::string heading)
        : commandLine_(commandLine), parent_(commandLine.app_), heading_(std::move(heading))
    {
    }
    /// Subcommands behind @p word: "kvoctl viewer start".
    Family(CommandLine &commandLine, const std::string &heading, const std::string &word, const std::string &summary)
        : Family(commandLine, commandLine.app_, heading, word, word, summary)
    {
    }
    /// Subcommands behind one more word: "kvoctl usb lock get".
    Family(const Family &outer, const std::string &word, const std::string &summary)
        : Family(outer.commandLine_, outer.parent_, outer.heading_, outer.path_ + word, word, summary)
    {
    }

    /// @p examples  the arguments only
    void add(const std::string &name, const std::string &summary, const std::vector<std::string> &examples, const SetUp &setUp);

private:
    Family(CommandLine &commandLine, CLI::App &parent, const std::string &heading, const std::string &path,
           const std::string &word, const std::string &summary);

    CommandLine &commandLine_;
    CLI::App &parent_;
    std::string heading_;
    std::string path_{};  ///< the words before a subcommand's name, each with a space behind it
};

}  // namespace kvoctl
