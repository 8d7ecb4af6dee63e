// The one reader of numbers. It keeps strtoul's meaning for every text (white space, sign, 0x, overflow), whatever the
// program's locale, and reads the plain case without a call.
#pragma once

#include <cstdint>

namespace kvo_hws {

/// A number and the character where it ended.
struct Number {
    unsigned long value;
    const char *end;
};

/// A signed number and the character where it ended.
struct SignedNumber {
    long value;
    const char *end;
};

/// strtoul in the C locale. Where no number stands, the value is 0 and the end is @p text.
Number readNumber(const char *text, int base) noexcept;

/// strtol in the C locale, base 10.
SignedNumber readSigned(const char *text) noexcept;

}  // namespace kvo_hws
