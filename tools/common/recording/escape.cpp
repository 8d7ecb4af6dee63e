#include "common/recording/escape.h"

#include "common/utf8.h"

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
        } else if (const auto character = firstCharacter(bytes);
                   character && isPrintable(character->value) && byteOf(byte) >= 0x80) {
            length = character->length;
            line += bytes.substr(0, length);
        } else {
            appendEscape(line, byte);
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
