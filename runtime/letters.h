// Comparison that ignores the case of letters. Unlike tolower and strcasecmp it does not depend on the program's locale.
#pragma once

#include <algorithm>
#include <string_view>

namespace kvo_hws {

constexpr char lower(char character) noexcept
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A')) : character;
}

constexpr bool sameLetters(std::string_view left, std::string_view right) noexcept
{
    return std::ranges::equal(left, right, {}, lower, lower);
}

}  // namespace kvo_hws
