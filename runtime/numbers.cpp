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

}  // namespace

Number readNumber(const char *text, int base) noexcept
{
    if (base == 10) {
        // Nine digits fit in every unsigned long; a longer number, and all else, goes the long way.
        unsigned long value = 0;
        const char *end = text;
        for (; *end >= '0' && *end <= '9' && end - text < 10; ++end) {
            value = value * 10 + static_cast<unsigned long>(*end - '0');
        }
        if (end != text && end - text < 10) {
            return {value, end};
        }
    }
    char *end = nullptr;
    const unsigned long value = strtoul_l(text, &end, base, plainLocale());
    return {value, end};
}

SignedNumber readSigned(const char *text) noexcept
{
    char *end = nullptr;
    const long value = strtol_l(text, &end, 10, plainLocale());
    return {value, end};
}

}  // namespace kvo_hws
