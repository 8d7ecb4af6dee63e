// Explains what is wrong with a command line to the user who typed it.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

namespace tools::command_line {

struct Mistake {
    std::string message;
    bool isIncomplete = false;  ///< a command is missing: printError writes the help instead of the message
};

/// Explains why @p app threw @p error when it parsed @p arguments. Returns nothing if the user asked for help or the version.
std::optional<Mistake> findMistake(const CLI::App &app, const std::vector<std::string> &arguments,
                                   const CLI::ParseError &error);

/// The innermostCommand command that the parser has read.
const CLI::App &innermostCommand(const CLI::App &app);

/// The prefix of messages on standard error: the program and the commands that the parser has read, such as "kvoctl: usb lock
/// get".
std::string messagePrefix(const CLI::App &app);

/// The command line that shows the matching help, such as "kvoctl usb lock get --help".
std::string helpCommandLine(const CLI::App &app);

/// Writes "PREFIX: MESSAGE" to standard error, then a line with @p hint unless it is empty.
void printError(const std::string &prefix, const std::string &message, const std::string &hint = {});

/// Writes the message of @p mistake to standard error. If the command line is only incomplete, writes the help instead.
void printError(const CLI::App &app, const Mistake &mistake);

}  // namespace tools::command_line
