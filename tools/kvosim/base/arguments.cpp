// Parses the numbers, addresses and quoted texts of the protocol.
#include "kvosim/base/arguments.h"

namespace kvosim {

std::optional<uint32_t> decimal(std::string_view text, uint32_t lowest, uint32_t highest)
{
    const auto value = number(text);
    return value && *value >= lowest && *value <= highest ? value : std::nullopt;
}

std::optional<uint32_t> onOff(std::string_view text) { return text == "0" || text == "1" ? number(text) : std::nullopt; }

std::optional<uint32_t> eightDigits(std::string_view text)
{
    if (text.size() != kStationDigits || text.find_first_not_of("0123456789ABCDEF") != std::string_view::npos) {
        return std::nullopt;
    }
    return number(text, 16);
}

std::optional<std::string_view> unquoted(std::string_view text)
{
    if (text.size() < 2 || !text.starts_with('"') || !text.ends_with('"')) {
        return std::nullopt;
    }
    return text.substr(1, text.size() - 2);
}

std::pair<std::string_view, std::string_view> split(std::string_view text, char separator)
{
    const std::size_t at = text.find(separator);
    return {text.substr(0, at), at == std::string_view::npos ? std::string_view() : text.substr(at + 1)};
}

Value parseTypedNumber(const std::string &text)
{
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const auto value = isHexadecimal ? number<int64_t>(std::string_view(text).substr(2), 16) : number<int64_t>(text);
    return value && !(isHexadecimal && *value < 0) ? Value(*value) : Value(text);
}

}  // namespace kvosim
