#include "common/utf8.h"

#include <array>
#include <cstdint>

namespace tools {

namespace {

uint8_t byteOf(char character) noexcept { return static_cast<uint8_t>(character); }

bool isContinuation(char character) noexcept { return (byteOf(character) & 0xC0U) == 0x80U; }

}  // namespace

std::optional<Character> firstCharacter(std::string_view bytes) noexcept
{
    const uint8_t first = byteOf(bytes[0]);
    if (first < 0x80) {
        return Character{first, 1};
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || bytes.size() < length) {
        return std::nullopt;
    }
    char32_t value = first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuation(bytes[i])) {
            return std::nullopt;
        }
        value = value << 6U | (byteOf(bytes[i]) & 0x3FU);
    }
    constexpr std::array<char32_t, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = value >= 0xD800 && value <= 0xDFFF;
    const bool isValid = value >= kSmallest.at(length) && value <= 0x10FFFF && !isSurrogate;
    return isValid ? std::optional(Character{value, length}) : std::nullopt;
}

bool isUtf8(std::string_view bytes) noexcept
{
    while (!bytes.empty()) {
        const std::optional<Character> character = firstCharacter(bytes);
        if (!character) {
            return false;
        }
        bytes.remove_prefix(character->length);
    }
    return true;
}

bool isPrintable(char32_t character) noexcept
{
    if (character < 0xA0) {
        return character >= ' ' && character <= '~';
    }
    return character != 0xAD && (character < 0x200B || character > 0x200F) && (character < 0x2028 || character > 0x202E) &&
           (character < 0x2060 || character > 0x206F) && character != 0xFEFF && (character < 0xFFF0 || character > 0xFFFF) &&
           character <= 0xE0000;
}

}  // namespace tools
