// Reading of the small texts of the protocol: numbers, stations, what stands in quotes.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace kvosim {

/// The answer to everything that the service does not know or can not do.
inline constexpr const char *kFailed = "failed";

inline constexpr std::size_t kLongestChannelInfo = 230;  // bytes
inline constexpr std::size_t kStationDigits = 8;

/// A value as it is written; the first alternative is anything that is neither a number nor a text.
using Value = std::variant<std::monostate, int64_t, std::string>;

/// Digits and nothing else, but for the sign of a signed type.
template <class Number = uint32_t>
std::optional<Number> number(std::string_view text, int base = 10)
{
    Number value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

/// A decimal number within bounds.
std::optional<uint32_t> decimal(std::string_view text, uint32_t lowest, uint32_t highest);

/// A switch is sent as 0 or 1.
std::optional<uint32_t> onOff(std::string_view text);

/// A station, or another number in its place, as clients send it: eight upper-case hexadecimal digits.
std::optional<uint32_t> eightDigits(std::string_view text);

/// What stands between double quotes that are the text's first and last characters.
std::optional<std::string_view> unquoted(std::string_view text);

/// What stands before the first @p separator and behind it; the second is empty where there is none.
std::pair<std::string_view, std::string_view> split(std::string_view text, char separator);

bool hasControlCharacter(std::string_view text);

/// A number as it is typed, decimal or 0x1F; what is none stays the text that it is.
Value typedNumber(const std::string &text);

/// What names and devices of the connector list consist of.
bool isConnectorCharacter(char character);

}  // namespace kvosim
