// Help text, wrapped at the terminal's width, and the command "help COMMAND".
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <string>
#include <vector>

namespace tools::command_line {

/// Wraps the help of @p app and of the subcommands that are added afterwards.
void wrapHelp(CLI::App &app);

/// Adds the subcommand "help" to the help and to completions. replaceHelpCommand() carries it out before parsing.
CLI::App *addHelpCommand(CLI::App &app);

/// Turns "help usb lock" into "usb lock --help". Returns all other command lines unchanged.
std::vector<std::string> replaceHelpCommand(std::vector<std::string> arguments);

/// Returns @p text in lines of at most @p width columns. Lines that begin without a space are joined and filled as a paragraph.
/// An indented line with two columns ("  delay    the reply comes late") is wrapped inside the second column. Any other
/// indented line stays whole, because it is a command that users copy.
std::string wrapped(const std::string &text, std::size_t width);

}  // namespace tools::command_line
