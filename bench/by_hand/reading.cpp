// Fixed-width station lists read by hand: eight digits as one word, judged where they are relied on.
#include "by_hand.h"

#include <bit>
#include <cstddef>
#include <cstring>

namespace by_hand {

namespace {

constexpr std::size_t kDigits = 8;
constexpr std::size_t kField = kDigits + 1;
constexpr std::size_t kLongestName = sizeof(KvoDescription::name) - 1;

constexpr uint64_t everyByte(uint8_t byte) { return 0x0101010101010101U * byte; }

/// Eight digits 0-9 A-F and a space. What was wrong with them is gathered in the upper half of each of the bytes of @p faults.
inline uint32_t field(const char *text, uint64_t &faults)
{
    uint64_t word;
    std::memcpy(&word, text, sizeof word);
    if constexpr (std::endian::native == std::endian::big) {
        word = __builtin_bswap64(word);
    }
    // Letters are brought down to behind '9'; then a letter's value is 10 or more and a digit's is not.
    const uint64_t letters = (word >> 6) & everyByte(1);
    const uint64_t values = (word - ((letters << 3) - letters)) ^ everyByte('0');
    faults |= (values + everyByte(6)) ^ (letters << 4);
    faults |= static_cast<uint64_t>(static_cast<unsigned char>(text[kDigits] ^ ' ')) * 0x1010;  // any bit reaches an upper half
    uint64_t joined = __builtin_bswap64(values);
    joined = (joined | joined >> 4) & 0x00FF00FF00FF00FFU;
    joined = (joined | joined >> 8) & 0x0000FFFF0000FFFFU;
    return static_cast<uint32_t>(joined | joined >> 16);
}

constexpr bool sound(uint64_t faults) { return (faults & everyByte(0xF0)) == 0; }

constexpr std::size_t kHead = 5 * kField;
constexpr std::size_t kExtension = 7 * kField;

/// The part that both forms share; the position moves behind the name's space.
template <class Record>
bool readHead(const char *&position, const char *end, Record &record)
{
    if (static_cast<std::size_t>(end - position) < kHead) {
        return false;
    }
    uint64_t faults = 0;
    record.address = field(position, faults);
    record.attr1 = field(position + kField, faults);
    record.attr2 = field(position + 2 * kField, faults);
    record.attr3 = field(position + 3 * kField, faults);
    const std::size_t length = field(position + 4 * kField, faults);
    position += kHead;
    if (!sound(faults) || length > kLongestName || length >= static_cast<std::size_t>(end - position)) {
        return false;
    }
    std::memcpy(record.name, position, length);
    record.name[length] = '\0';
    position += length + 1;
    return true;
}

bool readElement(const char *&position, const char *end, KvoDescription &record) { return readHead(position, end, record); }

bool readElement(const char *&position, const char *end, KvoDescriptionEx &record)
{
    if (!readHead(position, end, record) || static_cast<std::size_t>(end - position) < kExtension) {
        return false;
    }
    uint64_t faults = 0;
    record.extAttr1 = field(position, faults);
    record.extAttr2 = field(position + kField, faults);
    record.extAttr3 = field(position + 2 * kField, faults);
    record.extAttr4 = field(position + 3 * kField, faults);
    record.extAttr5 = field(position + 4 * kField, faults);
    record.extAttr6 = field(position + 5 * kField, faults);
    record.extAttr7 = field(position + 6 * kField, faults);
    position += kExtension;
    return sound(faults);
}

template <class Record>
int readList(uint32_t *count, Record *array, const char *text)
{
    const char *const end = text + std::strlen(text);
    if (static_cast<std::size_t>(end - text) < kField) {
        return -1;
    }
    uint64_t faults = 0;
    const uint32_t announced = field(text, faults);
    *count = announced;
    if (!sound(faults)) {
        return -1;
    }
    const char *position = text + kField;
    for (uint32_t i = 0; i < announced; ++i) {
        if (!readElement(position, end, array[i])) {
            return -1;
        }
    }
    return 1;
}

}  // namespace

int readBasic(uint32_t *count, KvoDescription *array, const char *text) { return readList(count, array, text); }

int readExtended(uint32_t *count, KvoDescriptionEx *array, const char *text) { return readList(count, array, text); }

}  // namespace by_hand
