// UTF-8: finds characters in bytes that may be anything.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace tools {

struct Character {
    char32_t value;
    std::size_t length;  ///< in bytes
};

/// The character at the front of @p bytes, which are not empty. Nothing if they do not begin with a valid character.
std::optional<Character> firstCharacter(std::string_view bytes) noexcept;

bool isUtf8(std::string_view bytes) noexcept;

/// Whether a reader can tell the character from others. Control characters, marks of the writing direction, characters without
/// width and line separators change how a line looks.
bool isPrintable(char32_t character) noexcept;

}  // namespace tools
