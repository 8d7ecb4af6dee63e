// Texts from elsewhere as a terminal may see them: UTF-8 measured in columns, whatever could steer a terminal escaped.
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

/// Names are UTF-8, whatever the user's locale says. Call it once, before anything is displayed.
void useUtf8();

/// Control characters and bytes that are no UTF-8 become "\x1B"; what is wider than @p limit is cut before a character and ends
/// in "…". @p limit is at least 1.
DisplayText displayText(std::string_view raw, std::size_t limit = kUnlimited);

}  // namespace kvoctl
