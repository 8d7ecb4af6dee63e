// What a terminal shows: its width, whether it is given colour, and whether its lines can be rewritten.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace command_line {

/// Columns where neither the terminal nor COLUMNS says.
inline constexpr std::size_t kUsualWidth = 80;

/// Columns of the terminal that @p descriptor is; COLUMNS where the terminal does not say. Nothing where it is no terminal, or
/// where neither says.
std::optional<std::size_t> terminalWidth(int descriptor);

/// The width that help is written for: the terminal's, else COLUMNS, else 80.
std::size_t helpWidth();

/// Whether @p descriptor is a terminal that is to be given colour: not where NO_COLOR is set, nor where TERM is "dumb".
bool takesColour(int descriptor);

/// Whether @p descriptor is a terminal whose lines can be rewritten: not where TERM is "dumb".
bool rewritesLines(int descriptor);

enum class Colour { none, bad, warning, good };

/// @p text with the sequences of a terminal around it.
std::string coloured(const std::string &text, Colour colour);

}  // namespace command_line
