// Parses the arguments of the protocol: numbers, station addresses and quoted texts.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace kvosim {

/// The reply to any request that the service does not know or cannot carry out.
inline constexpr const char *kFailed = "failed";

inline constexpr std::size_t kStationDigits = 8;

/// A value from a file or a request. The first alternative stands for anything that is neither a number nor a text.
using Value = std::variant<std::monostate, int64_t, std::string>;

/// Parses digits. For a signed type, a minus sign may precede them.
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

/// A switch, which is sent as 0 or 1.
std::optional<uint32_t> onOff(std::string_view text);

/// Parses eight upper-case hexadecimal digits. Clients send a station's address in this form, and other numbers that are in the
/// place of an address.
std::optional<uint32_t> eightDigits(std::string_view text);

/// The text between double quotes. The quotes must be the first and the last character.
std::optional<std::string_view> unquoted(std::string_view text);

/// The text before and after the first @p separator. Without a separator the second part is empty.
std::pair<std::string_view, std::string_view> split(std::string_view text, char separator);

/// Converts a decimal number or a hexadecimal one such as 0x1F. Any other text stays a text.
Value parseTypedNumber(const std::string &text);

}  // namespace kvosim
