// Fixed-width station lists read by a parser for this purpose alone: numbers as vectors, in the compiler's own notation and so
// with what every machine of its kind has; what is wrong is gathered and judged once a station.
#include "baseline.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace baseline {

namespace {

constexpr std::size_t kDigits = 8;
constexpr std::size_t kField = kDigits + 1;
constexpr std::size_t kShortName = 32;   // most names are shorter, and are copied by this many bytes at once
constexpr uint32_t kPreparedAhead = 16;  // stations

static_assert(std::endian::native == std::endian::little, "written for machines that store the lowest byte first");

using Characters = uint8_t __attribute__((vector_size(16)));
using Signed = int8_t __attribute__((vector_size(16)));
using Pairs = uint16_t __attribute__((vector_size(16)));
using Numbers = uint32_t __attribute__((vector_size(16)));
using Words = uint64_t __attribute__((vector_size(16)));

inline uint64_t load(const char *text)
{
    uint64_t word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

/// What was wrong so far: nothing while all bits are 0.
struct Faults {
    Characters digits{};
    Characters letters{};
    uint64_t others = 0;

    /// Anything but a space behind the digits of a field.
    void separator(const char *field)
    {
        others |= static_cast<unsigned char>(field[kDigits]) ^ unsigned { ' ' };
    }

    [[nodiscard]] bool none() const
    {
        const auto words = reinterpret_cast<Words>((digits & 0xF0) | letters);
        return (words[0] | words[1] | others) == 0;
    }
};

/// What two fields mean, two digits in the upper half of each pair. A character that is no digit comes out above 15.
inline Pairs bytesOf(const char *first, const char *second, Faults &faults)
{
    faults.separator(first);
    faults.separator(second);
    const auto characters = reinterpret_cast<Characters>(Words{load(first), load(second)});
    const auto letters = reinterpret_cast<Characters>(reinterpret_cast<Signed>(characters) > '9');
    const Characters values = characters - '0' - (letters & ('A' - '9' - 1));
    faults.digits |= values;
    faults.letters |= letters ^ reinterpret_cast<Characters>(reinterpret_cast<Signed>(values) > 9);
    return reinterpret_cast<Pairs>(values) * 0x1001;
}

inline Numbers fourFields(const char *text, Faults &faults)
{
    const Pairs front = bytesOf(text, text + kField, faults);
    const Pairs back = bytesOf(text + 2 * kField, text + 3 * kField, faults);
    const auto frontBytes = reinterpret_cast<Characters>(__builtin_shufflevector(front, front, 3, 2, 1, 0, 7, 6, 5, 4));
    const auto backBytes = reinterpret_cast<Characters>(__builtin_shufflevector(back, back, 3, 2, 1, 0, 7, 6, 5, 4));
    return reinterpret_cast<Numbers>(
        __builtin_shufflevector(frontBytes, backBytes, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31));
}

constexpr uint8_t kNoDigit = 0x80;

constexpr auto kDigitValues = [] {
    std::array<uint8_t, 256> values{};
    values.fill(kNoDigit);
    for (uint8_t digit = 0; digit < 16; ++digit) {
        values[static_cast<uint8_t>("0123456789ABCDEF"[digit])] = digit;
    }
    return values;
}();

/// The length of a name below 256, in the last two digits of a field. Where the next station begins depends on it, so that it
/// is read in as few steps as possible.
inline std::size_t nameLength(const char *text, Faults &faults)
{
    constexpr uint64_t kSixZeros = 0x303030303030;
    faults.separator(text);
    const unsigned high = kDigitValues[static_cast<unsigned char>(text[kDigits - 2])];
    const unsigned low = kDigitValues[static_cast<unsigned char>(text[kDigits - 1])];
    faults.others |= ((high | low) & kNoDigit) | ((load(text) ^ kSixZeros) << 16);
    return (high & 0x0F) * 16 + (low & 0x0F);
}

/// All bits up to the length of a name, none behind.
inline Characters placesBefore(std::size_t length, std::size_t from)
{
    alignas(2 * kShortName) static constexpr struct Places {
        constexpr Places()
        {
            for (std::size_t i = 0; i < kShortName; ++i) {
                bits[i] = 0xFF;
            }
        }
        uint8_t bits[2 * kShortName]{};
    } kPlaces;
    Characters mask;
    std::memcpy(&mask, kPlaces.bits + kShortName - length + from, sizeof mask);
    return mask;
}

template <std::size_t kFrom>
inline void copyShortHalf(char *name, const char *text, std::size_t length)
{
    Characters characters;
    std::memcpy(&characters, text + kFrom, sizeof characters);
    characters &= placesBefore(length, kFrom);
    std::memcpy(name + kFrom, &characters, sizeof characters);
}

inline void copyName(char *name, const char *text, std::size_t length, std::size_t readable)
{
    if (length < kShortName && readable >= kShortName) {
        copyShortHalf<0>(name, text, length);
        copyShortHalf<kShortName / 2>(name, text, length);
    } else {
        std::memcpy(name, text, length);
        name[length] = '\0';
    }
}

constexpr std::size_t kHead = 5 * kField;
constexpr std::size_t kExtension = 7 * kField;

/// The part that both forms share; the position moves behind the name's space.
template <class Record>
inline bool readHead(const char *&position, const char *end, Record &record)
{
    if (static_cast<std::size_t>(end - position) < kHead) {
        return false;
    }
    Faults faults;
    const Numbers numbers = fourFields(position, faults);
    const std::size_t length = nameLength(position + 4 * kField, faults);
    position += kHead;
    const auto readable = static_cast<std::size_t>(end - position);
    if (!faults.none() || length >= readable) {
        return false;
    }
    record.address = numbers[0];
    record.attr1 = numbers[1];
    record.attr2 = numbers[2];
    record.attr3 = numbers[3];
    copyName(record.name, position, length, readable);
    position += length + 1;
    return true;
}

inline bool readElement(const char *&position, const char *end, KvoDescription &record)
{
    return readHead(position, end, record);
}

inline bool readElement(const char *&position, const char *end, KvoDescriptionEx &record)
{
    if (!readHead(position, end, record) || static_cast<std::size_t>(end - position) < kExtension) {
        return false;
    }
    // Both fours have the middle one of the seven.
    static_assert(offsetof(KvoDescriptionEx, extAttr7) - offsetof(KvoDescriptionEx, extAttr1) == 6 * sizeof(uint32_t));
    Faults faults;
    const Numbers front = fourFields(position, faults);
    const Numbers back = fourFields(position + 3 * kField, faults);
    std::memcpy(&record.extAttr1, &front, sizeof front);  // NOLINT(*overflow*): seven of them lie side by side
    std::memcpy(&record.extAttr4, &back, sizeof back);
    position += kExtension;
    return faults.none();
}

template <class Record>
int readList(uint32_t *count, Record *array, const char *text)
{
    constexpr int kToWrite = 1;
    const char *const end = text + std::strlen(text);
    if (static_cast<std::size_t>(end - text) < kField) {
        return -1;
    }
    Faults faults;
    const auto announced = static_cast<uint32_t>(std::strtoul(text, nullptr, 16));
    faults.separator(text);
    *count = announced;
    if (!faults.none()) {
        return -1;
    }
    const char *position = text + kField;
    for (uint32_t i = 0; i < announced; ++i) {
        const Record &soon = array[i + kPreparedAhead < announced ? i + kPreparedAhead : i];
        __builtin_prefetch(&soon, kToWrite);
        __builtin_prefetch(reinterpret_cast<const char *>(&soon + 1) - 1, kToWrite);
        if (!readElement(position, end, array[i])) {
            return -1;
        }
    }
    return 1;
}

}  // namespace

int readBasic(uint32_t *count, KvoDescription *array, const char *text) { return readList(count, array, text); }

int readExtended(uint32_t *count, KvoDescriptionEx *array, const char *text) { return readList(count, array, text); }

}  // namespace baseline
