// Letters of either case, whatever the program's locale: other than tolower and strcasecmp.
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
