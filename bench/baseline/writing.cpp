// The baseline for formatting station lists: it sums up the size first, then stores digits two at a time from a table.
#include "baseline.h"

#include <array>
#include <climits>
#include <cstddef>
#include <cstring>

namespace baseline {

namespace {

constexpr std::size_t kField = 9;  // eight digits and a space

constexpr auto kPairs = [] {
    constexpr char digits[] = "0123456789ABCDEF";
    std::array<std::array<char, 2>, 256> pairs{};
    for (std::size_t byte = 0; byte < pairs.size(); ++byte) {
        pairs[byte] = {digits[byte >> 4], digits[byte & 15]};
    }
    return pairs;
}();

inline char *field(char *to, uint32_t value)
{
    std::memcpy(to, kPairs[value >> 24].data(), 2);
    std::memcpy(to + 2, kPairs[value >> 16 & 0xFF].data(), 2);
    std::memcpy(to + 4, kPairs[value >> 8 & 0xFF].data(), 2);
    std::memcpy(to + 6, kPairs[value & 0xFF].data(), 2);
    to[8] = ' ';
    return to + kField;
}

inline char *element(char *to, const ConnectionEntry &entry)
{
    const std::size_t length = strnlen(entry.name, sizeof entry.name);
    to = field(to, entry.address);
    to = field(to, entry.attr1);
    to = field(to, entry.attr2);
    to = field(to, entry.attr3);
    to = field(to, static_cast<uint32_t>(length));
    std::memcpy(to, entry.name, length);
    to[length] = ' ';
    return to + length + 1;
}

inline char *extension(char *to, const ConnectionEntry &entry)
{
    to = field(to, entry.extAttr1);
    to = field(to, entry.extAttr2);
    to = field(to, entry.extAttr3);
    to = field(to, entry.extAttr4);
    to = field(to, entry.extAttr5);
    to = field(to, entry.extAttr6);
    return field(to, static_cast<uint32_t>(entry.extAttr7));
}

template <bool kExtended>
int writeList(uint32_t count, const ConnectionEntry *entries, char *buffer, uint32_t size)
{
    constexpr std::size_t kFields = kExtended ? 12 : 5;
    uint64_t required = 17 + uint64_t{count} * (kFields * kField + 3);
    for (uint32_t i = 0; i < count; ++i) {
        required += strnlen(entries[i].name, sizeof entries[i].name);
    }
    if (size < required) {
        return static_cast<int>(required < INT_MAX ? required : INT_MAX);
    }
    char *to = field(buffer, count);
    for (uint32_t i = 0; i < count; ++i) {
        to = element(to, entries[i]);
        if constexpr (kExtended) {
            to = extension(to, entries[i]);
        }
    }
    *to = '\0';
    return 0;
}

}  // namespace

int writeBasic(uint32_t count, const ConnectionEntry *entries, char *buffer, uint32_t size)
{
    return writeList<false>(count, entries, buffer, size);
}

int writeExtended(uint32_t count, const ConnectionEntry *entries, char *buffer, uint32_t size)
{
    return writeList<true>(count, entries, buffer, size);
}

}  // namespace baseline
