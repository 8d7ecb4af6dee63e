// Makes foreign texts safe for a terminal: measures UTF-8 in columns, and escapes bytes that could control a terminal.
#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

namespace kvoctl {

inline constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

struct DisplayText {
    std::string text;
    std::size_t width;  ///< in terminal columns
};

/// Treats texts as UTF-8, whatever the user's locale is. Call it once, before any text is displayed.
void useUtf8();

/// Escapes control characters and bytes that are not UTF-8, as "\x1B". Cuts a text that is wider than @p limit before a
/// character and appends "…". @p limit is at least 1.
DisplayText displayText(std::string_view raw, std::size_t limit = kUnlimited);

}  // namespace kvoctl
