// Properties of a terminal: its width, whether it shows colour, and whether its lines can be rewritten.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace tools::command_line {

/// Columns, if neither the terminal nor the variable COLUMNS gives a width.
inline constexpr std::size_t kDefaultWidth = 80;

/// The number of columns of the terminal @p descriptor, or the value of COLUMNS if the terminal does not report it. Nothing if
/// @p descriptor is not a terminal, or if neither gives a width.
std::optional<std::size_t> terminalWidth(int descriptor);

/// The width of help texts: that of the terminal, else COLUMNS, else kDefaultWidth.
std::size_t helpWidth();

/// Whether @p descriptor is a terminal that shows colour. It does not if NO_COLOR is set or TERM is "dumb".
bool usesColour(int descriptor);

/// Whether @p descriptor is a terminal whose lines can be rewritten. They cannot if TERM is "dumb".
bool canRewriteLines(int descriptor);

enum class Colour { none, bad, warning, good };

/// @p text between the terminal's escape sequences for @p colour.
std::string coloured(const std::string &text, Colour colour);

}  // namespace tools::command_line
