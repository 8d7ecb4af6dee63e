// The log of --verbose: one line per exchange, on standard error.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace kvosim {

/// The text for one line on a terminal: control characters appear as \xNN; a long text is cut, and its length is added.
std::string printable(std::string_view text);

/// The local time of day with milliseconds.
std::string clockText(std::chrono::system_clock::time_point time);

/// Writes a line that begins with the time.
void logLine(std::string_view line);

}  // namespace kvosim
