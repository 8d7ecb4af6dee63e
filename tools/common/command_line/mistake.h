// What is wrong with a command line, in words for the person who typed it.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

namespace command_line {

struct Mistake {
    std::string meaning;
    bool isIncomplete = false;  ///< nothing is wrong, but the command is missing: the help says more than the meaning
};

/// Why @p app threw @p error when it parsed @p arguments; nothing where help or a version was asked for.
std::optional<Mistake> mistakeIn(const CLI::App &app, const std::vector<std::string> &arguments, const CLI::ParseError &error);

/// The innermost command that has been read.
const CLI::App &innermost(const CLI::App &app);

/// "kvoctl: usb lock get", as far as the command line has been understood; begins what is written on standard error.
std::string place(const CLI::App &app);

/// How to ask for the help that fits: "kvoctl usb lock get --help".
std::string helpCall(const CLI::App &app);

/// Writes "place: meaning" on standard error, and @p hint on a line of its own where there is one.
void complain(const std::string &place, const std::string &meaning, const std::string &hint = {});

/// Complains of @p mistake, or shows the help, on standard error.
void complain(const CLI::App &app, const Mistake &mistake);

}  // namespace command_line
