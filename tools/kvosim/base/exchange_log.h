// What --verbose shows: one line an exchange, on standard error.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace kvosim {

/// A text fit for one line on a terminal: control characters as \xNN, long ones shortened with their length.
std::string shown(std::string_view text);

/// The time of day, to the millisecond.
std::string clockText(std::chrono::system_clock::time_point time);

/// Writes a line with the time before it.
void logLine(std::string_view line);

}  // namespace kvosim
