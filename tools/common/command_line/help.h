// Help: wrapped at the terminal's width, and asked for as "help COMMAND" too.
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <string>
#include <vector>

namespace command_line {

/// Gives @p app, and the subcommands that are added afterwards, a help that wraps.
void wrapHelp(CLI::App &app);

/// Adds the subcommand "help"; withoutHelpCommand is what carries it out.
CLI::App *addHelpCommand(CLI::App &app);

/// "help usb lock" becomes "usb lock --help"; all other command lines stay as they are.
std::vector<std::string> withoutHelpCommand(std::vector<std::string> arguments);

/// @p text in lines of at most @p width columns. Lines that begin without a blank are filled as a paragraph. Of lines that begin
/// with one, those of two columns ("  delay    the reply comes late") are wrapped inside the second; the others are commands to
/// be copied, and stay whole.
std::string wrapped(const std::string &text, std::size_t width);

}  // namespace command_line
