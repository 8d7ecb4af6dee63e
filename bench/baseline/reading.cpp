// The baseline parser of station lists with fields of fixed width. It reads numbers as vectors, in the compiler's own notation,
// and so uses only what every machine of the architecture has. It collects errors and checks them once per station.
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
constexpr std::size_t kShortName = 32;      // most names are shorter; they are copied as a block of this size
constexpr uint32_t kPrefetchDistance = 16;  // stations

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

/// The errors so far: none if all bits are 0.
struct Errors {
    Characters digits{};
    Characters letters{};
    uint64_t others = 0;

    /// Records any character other than a space after the digits of a field.
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

/// The values of two fields, two digits in the upper half of each pair. A character that is not a digit gives a value above 15.
inline Pairs bytesOf(const char *first, const char *second, Errors &errors)
{
    errors.separator(first);
    errors.separator(second);
    const auto characters = reinterpret_cast<Characters>(Words{load(first), load(second)});
    const auto letters = reinterpret_cast<Characters>(reinterpret_cast<Signed>(characters) > '9');
    const Characters values = characters - '0' - (letters & ('A' - '9' - 1));
    errors.digits |= values;
    errors.letters |= letters ^ reinterpret_cast<Characters>(reinterpret_cast<Signed>(values) > 9);
    return reinterpret_cast<Pairs>(values) * 0x1001;
}

inline Numbers fourFields(const char *text, Errors &errors)
{
    const Pairs front = bytesOf(text, text + kField, errors);
    const Pairs back = bytesOf(text + 2 * kField, text + 3 * kField, errors);
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

/// The length of a name, below 256, from the last two digits of a field. The start of the next station depends on it, so it is
/// read in as few steps as possible.
inline std::size_t nameLength(const char *text, Errors &errors)
{
    constexpr uint64_t kSixZeros = 0x303030303030;
    errors.separator(text);
    const unsigned high = kDigitValues[static_cast<unsigned char>(text[kDigits - 2])];
    const unsigned low = kDigitValues[static_cast<unsigned char>(text[kDigits - 1])];
    errors.others |= ((high | low) & kNoDigit) | ((load(text) ^ kSixZeros) << 16);
    return (high & 0x0F) * 16 + (low & 0x0F);
}

/// A mask with all bits set up to the length of a name and none after it.
inline Characters maskOf(std::size_t length, std::size_t from)
{
    alignas(2 * kShortName) static constexpr struct Masks {
        constexpr Masks()
        {
            for (std::size_t i = 0; i < kShortName; ++i) {
                bits[i] = 0xFF;
            }
        }
        uint8_t bits[2 * kShortName]{};
    } kMasks;
    Characters mask;
    std::memcpy(&mask, kMasks.bits + kShortName - length + from, sizeof mask);
    return mask;
}

template <std::size_t kFrom>
inline void copyShortHalf(char *name, const char *text, std::size_t length)
{
    Characters characters;
    std::memcpy(&characters, text + kFrom, sizeof characters);
    characters &= maskOf(length, kFrom);
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

/// Reads the part that both forms share, and moves the position past the space after the name.
template <class Record>
inline bool readHead(const char *&position, const char *end, Record &record)
{
    if (static_cast<std::size_t>(end - position) < kHead) {
        return false;
    }
    Errors errors;
    const Numbers numbers = fourFields(position, errors);
    const std::size_t length = nameLength(position + 4 * kField, errors);
    position += kHead;
    const auto readable = static_cast<std::size_t>(end - position);
    if (!errors.none() || length >= readable) {
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
    // Seven fields as two groups of four: both groups contain the middle field.
    static_assert(offsetof(KvoDescriptionEx, extAttr7) - offsetof(KvoDescriptionEx, extAttr1) == 6 * sizeof(uint32_t));
    Errors errors;
    const Numbers front = fourFields(position, errors);
    const Numbers back = fourFields(position + 3 * kField, errors);
    std::memcpy(&record.extAttr1, &front, sizeof front);  // NOLINT(*overflow*): the seven members are contiguous
    std::memcpy(&record.extAttr4, &back, sizeof back);
    position += kExtension;
    return errors.none();
}

template <class Record>
int readList(uint32_t *count, Record *array, const char *text)
{
    constexpr int kToWrite = 1;
    const char *const end = text + std::strlen(text);
    if (static_cast<std::size_t>(end - text) < kField) {
        return -1;
    }
    Errors errors;
    const auto announced = static_cast<uint32_t>(std::strtoul(text, nullptr, 16));
    errors.separator(text);
    *count = announced;
    if (!errors.none()) {
        return -1;
    }
    const char *position = text + kField;
    for (uint32_t i = 0; i < announced; ++i) {
        const Record &soon = array[i + kPrefetchDistance < announced ? i + kPrefetchDistance : i];
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
