// Properties of a terminal: its width, whether it gets colour, and whether its lines can be rewritten.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace tools::command_line {

/// Columns, if neither the terminal nor COLUMNS says.
inline constexpr std::size_t kDefaultWidth = 80;

/// Columns of the terminal @p descriptor, or COLUMNS if the terminal does not say. Nothing if @p descriptor is not a terminal,
/// or if neither says.
std::optional<std::size_t> terminalWidth(int descriptor);

/// The width of help texts: the terminal's, else COLUMNS, else 80.
std::size_t helpWidth();

/// Whether @p descriptor is a terminal that gets colour: not if NO_COLOR is set, nor if TERM is "dumb".
bool usesColour(int descriptor);

/// Whether @p descriptor is a terminal whose lines can be rewritten: not if TERM is "dumb".
bool canRewriteLines(int descriptor);

enum class Colour { none, bad, warning, good };

/// @p text between the terminal's escape sequences for @p colour.
std::string coloured(const std::string &text, Colour colour);

}  // namespace tools::command_line
