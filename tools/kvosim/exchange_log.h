// What --verbose shows: one line an exchange, on standard error.
#pragma once

#include <string>
#include <string_view>

namespace kvosim {

/// A text fit for one line on a terminal: control characters as \xNN, long ones shortened with their length.
std::string shown(std::string_view text);

/// Writes a line with the time before it.
void logLine(std::string_view line);

}  // namespace kvosim
