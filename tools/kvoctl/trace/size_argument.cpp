// Refuses what does not fit in 64 bits.
#include "kvoctl/trace/size_argument.h"

#include <charconv>
#include <limits>
#include <string_view>

namespace kvoctl {

std::optional<uint64_t> parseSize(const std::string &text)
{
    constexpr std::string_view kUnits = "kMG";
    constexpr unsigned kBitsPerUnit = 10;
    uint64_t number = 0;
    const char *const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || number == 0 || end - rest > 1) {
        return std::nullopt;
    }
    if (rest == end) {
        return number;
    }
    const std::size_t unit = kUnits.find(*rest == 'K' ? 'k' : *rest);
    if (unit == std::string_view::npos) {
        return std::nullopt;
    }
    const auto bits = static_cast<unsigned>(unit + 1) * kBitsPerUnit;
    return number <= std::numeric_limits<uint64_t>::max() >> bits ? std::optional(number << bits) : std::nullopt;
}

}  // namespace kvoctl
