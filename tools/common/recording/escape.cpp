#include "common/recording/escape.h"

#include <array>
#include <cstdint>

namespace tools::recording {

namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";

struct Escape {
    char byte;
    char letter;
};
constexpr std::array<Escape, 5> kEscapes{{{'\n', 'n'}, {'\r', 'r'}, {'\t', 't'}, {'"', '"'}, {'\\', '\\'}}};

uint8_t byteOf(char character) noexcept { return static_cast<uint8_t>(character); }

bool isContinuation(char character) noexcept { return (byteOf(character) & 0xC0U) == 0x80U; }

/// Whether a reader can tell the character from others. Control characters, marks of the writing direction, characters without
/// width and line separators change how a line looks, so they are escaped.
bool isPrintable(char32_t character) noexcept
{
    return character >= 0xA0 && character != 0xAD && (character < 0x200B || character > 0x200F) &&
           (character < 0x2028 || character > 0x202E) && (character < 0x2060 || character > 0x206F) && character != 0xFEFF &&
           (character < 0xFFF0 || character > 0xFFFF) && character <= 0xE0000;
}

/// The length of the printable UTF-8 character at the front of @p bytes, which is not ASCII; 0 if there is no such character.
std::size_t printableLength(std::string_view bytes) noexcept
{
    const uint8_t first = byteOf(bytes[0]);
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || bytes.size() < length) {
        return 0;
    }
    char32_t character = first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuation(bytes[i])) {
            return 0;
        }
        character = character << 6U | (byteOf(bytes[i]) & 0x3FU);
    }
    constexpr std::array<char32_t, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
    return character >= kSmallest.at(length) && !isSurrogate && isPrintable(character) ? length : 0;
}

void appendEscape(std::string &line, char byte)
{
    for (const Escape &escape : kEscapes) {
        if (escape.byte == byte) {
            line += {'\\', escape.letter};
            return;
        }
    }
    line += {'\\', 'x', kHexDigits[byteOf(byte) >> 4U], kHexDigits[byteOf(byte) & 0xFU]};
}

std::optional<unsigned> hexDigit(char character) noexcept
{
    const std::size_t digit = kHexDigits.find(character);
    if (digit != std::string_view::npos) {
        return static_cast<unsigned>(digit);
    }
    return character >= 'a' && character <= 'f' ? std::optional(static_cast<unsigned>(character - 'a' + 10)) : std::nullopt;
}

/// Removes an escape from the front of @p rest, after its backslash.
std::optional<char> takeEscape(std::string_view &rest)
{
    for (const Escape &escape : kEscapes) {
        if (rest.starts_with(escape.letter)) {
            rest.remove_prefix(1);
            return escape.byte;
        }
    }
    if (rest.size() < 3 || rest[0] != 'x') {
        return std::nullopt;
    }
    const std::optional<unsigned> high = hexDigit(rest[1]);
    const std::optional<unsigned> low = hexDigit(rest[2]);
    if (!high || !low) {
        return std::nullopt;
    }
    rest.remove_prefix(3);
    return static_cast<char>(*high << 4U | *low);
}

}  // namespace

void appendQuoted(std::string &line, std::string_view bytes)
{
    line += '"';
    while (!bytes.empty()) {
        const char byte = bytes[0];
        std::size_t length = 1;
        if (byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\') {
            line += byte;
        } else if (byteOf(byte) >= 0x80 && (length = printableLength(bytes)) > 0) {
            line += bytes.substr(0, length);
        } else {
            appendEscape(line, byte);
            length = 1;
        }
        bytes.remove_prefix(length);
    }
    line += '"';
}

std::optional<std::string> takeQuoted(std::string_view &rest)
{
    if (!rest.starts_with('"')) {
        return std::nullopt;
    }
    rest.remove_prefix(1);
    std::string bytes;
    while (!rest.empty() && rest[0] != '"') {
        if (rest[0] != '\\') {
            bytes += rest[0];
            rest.remove_prefix(1);
            continue;
        }
        std::string_view after = rest.substr(1);
        const std::optional<char> byte = takeEscape(after);
        if (!byte) {
            return std::nullopt;
        }
        bytes += *byte;
        rest = after;
    }
    if (rest.empty()) {
        return std::nullopt;
    }
    rest.remove_prefix(1);
    return bytes;
}

}  // namespace tools::recording
