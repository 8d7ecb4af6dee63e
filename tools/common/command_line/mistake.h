// Explains what is wrong with a command line to the user who typed it.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

namespace tools::command_line {

struct Mistake {
    std::string message;
    bool isIncomplete = false;  ///< only the command is missing: the help is more useful than the meaning
};

/// Why @p app threw @p error when it parsed @p arguments; nothing if the user asked for help or the version.
std::optional<Mistake> findMistake(const CLI::App &app, const std::vector<std::string> &arguments,
                                   const CLI::ParseError &error);

/// The innermostCommand command that the parser has read.
const CLI::App &innermostCommand(const CLI::App &app);

/// The prefix of messages on standard error: "kvoctl: usb lock get", with the commands that the parser has read.
std::string messagePrefix(const CLI::App &app);

/// The command that shows the matching help: "kvoctl usb lock get --help".
std::string helpCommandLine(const CLI::App &app);

/// Writes "place: meaning" to standard error, and @p hint, unless it is empty, on a separate line.
void printError(const std::string &prefix, const std::string &message, const std::string &hint = {});

/// Writes @p mistake, or the help if the command line is only incomplete, to standard error.
void printError(const CLI::App &app, const Mistake &mistake);

}  // namespace tools::command_line
