#include "runtime/numbers.h"

#include <clocale>
#include <cstdlib>

namespace kvo_hws {

namespace {

/// The C locale. It is a static object of the C library, so it needs no allocation and is never freed.
locale_t cLocale() noexcept
{
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
}

/// Reads one to nine decimal digits, which fit in every long. For any other text the end is @p text, and the caller falls back
/// to strtoul or strtol.
Number readShortDecimal(const char *text) noexcept
{
    constexpr int kMostDigits = 9;
    unsigned long value = 0;
    const char *end = text;
    for (; *end >= '0' && *end <= '9'; ++end) {
        if (end - text == kMostDigits) {
            return {0, text};
        }
        value = value * 10 + static_cast<unsigned long>(*end - '0');
    }
    return {value, end};
}

}  // namespace

Number readNumber(const char *text, int base) noexcept
{
    if (base == 10) {
        if (const Number number = readShortDecimal(text); number.end != text) {
            return number;
        }
    }
    char *end = nullptr;
    const unsigned long value = strtoul_l(text, &end, base, cLocale());
    return {value, end};
}

SignedNumber readSigned(const char *text) noexcept
{
    if (const Number number = readShortDecimal(text); number.end != text) {
        return {static_cast<long>(number.value), number.end};
    }
    char *end = nullptr;
    const long value = strtol_l(text, &end, 10, cLocale());
    return {value, end};
}

}  // namespace kvo_hws
