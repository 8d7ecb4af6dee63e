// Functions that read the value after the key of a reply, for Request::value.
#pragma once

#include "runtime/numbers.h"
#include "service/request.h"

#include <climits>
#include <cstdint>
#include <cstring>

namespace kvo_hws {

/// Reads a number that is the whole rest of the reply. Stores it only if it is within the bounds. An empty text is 0, as with
/// strtoul. Without an upper bound the low 32 bits are stored.
inline auto number(uint32_t *out, int base, unsigned long lowest, unsigned long highest) noexcept
{
    return [=](const char *rest) -> Answer {
        const auto [value, end] = readNumber(rest, base);
        if (*end != '\0' || value < lowest || value > highest) {
            return {KVO_HWS_FAILED};
        }
        *out = static_cast<uint32_t>(value);
        return {KVO_HWS_OK};
    };
}

inline auto decimal(uint32_t *out, unsigned long lowest = 0, unsigned long highest = ULONG_MAX) noexcept
{
    return number(out, 10, lowest, highest);
}

inline auto hexadecimal(uint32_t *out) noexcept { return number(out, 16, 0, ULONG_MAX); }

/// Reads a signed number that is the whole rest of the reply.
inline auto signedDecimal(int32_t *out) noexcept
{
    return [=](const char *rest) -> Answer {
        const auto [value, end] = readSigned(rest);
        if (*end != '\0') {
            return {KVO_HWS_FAILED};
        }
        *out = static_cast<int32_t>(value);
        return {KVO_HWS_OK};
    };
}

/// Copies the rest of the reply to a buffer whose size only the caller knows.
inline auto unboundedText(char *out) noexcept
{
    return [=](const char *rest) -> Answer {
        std::memcpy(out, rest, std::strlen(rest) + 1);
        return {KVO_HWS_OK};
    };
}

/// Copies the rest of the reply, cut to a buffer of @p size bytes including the terminator.
inline auto boundedText(char *out, std::size_t size) noexcept
{
    return [=](const char *rest) -> Answer {
        const std::size_t length = strnlen(rest, size - 1);
        std::memcpy(out, rest, length);
        out[length] = '\0';
        return {KVO_HWS_OK};
    };
}

}  // namespace kvo_hws
