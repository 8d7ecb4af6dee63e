#include "runtime/numbers.h"

#include <clocale>
#include <cstdlib>

namespace kvo_hws {

namespace {

/// The C library's own, shared and never freed: the plain C locale costs no allocation.
locale_t plainLocale() noexcept
{
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
}

/// One to nine decimal digits, which fit in every long. Ends at @p text where something else stands: that goes the long way.
Number readPlain(const char *text) noexcept
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
        if (const Number plain = readPlain(text); plain.end != text) {
            return plain;
        }
    }
    char *end = nullptr;
    const unsigned long value = strtoul_l(text, &end, base, plainLocale());
    return {value, end};
}

SignedNumber readSigned(const char *text) noexcept
{
    if (const Number plain = readPlain(text); plain.end != text) {
        return {static_cast<long>(plain.value), plain.end};
    }
    char *end = nullptr;
    const long value = strtol_l(text, &end, 10, plainLocale());
    return {value, end};
}

}  // namespace kvo_hws
