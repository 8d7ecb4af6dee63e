// Reading numbers. The result is that of strtoul in the C locale for every text (white space, sign, 0x, overflow), in every
// locale of the program. Short decimal numbers are read without a call of the C library.
#pragma once

#include <cstdint>

namespace kvo_hws {

/// A number and the first character after it.
struct Number {
    unsigned long value;
    const char *end;
};

/// A signed number and the first character after it.
struct SignedNumber {
    long value;
    const char *end;
};

/// strtoul in the C locale. If the text does not begin with a number, the value is 0 and the end is @p text.
Number readNumber(const char *text, int base) noexcept;

/// strtol in the C locale, base 10.
SignedNumber readSigned(const char *text) noexcept;

}  // namespace kvo_hws
