// Station descriptions and clients: writes the daemon's records as text, and reads text into the caller's records.
#include <kvo_hws/codecs.h>

#include "codecs/hex.h"
#include "runtime/numbers.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

namespace {

using kvo_hws::readNumber;
namespace hex = kvo_hws::hex;

constexpr int kRead = 1;
constexpr int kMalformed = -1;
constexpr uint32_t kNoCount = 0xFFFFFFFF;
constexpr std::size_t kField = hex::kDigits + 1;  // the digits and the space after them
constexpr std::size_t kNameCapacity = sizeof(KvoDescription::name);
constexpr std::size_t kLongestName = kNameCapacity - 1;
constexpr uint32_t kPrefetchDistance = 16;  // elements
constexpr std::size_t kShortName = 32;      // most names are shorter and are copied as this many bytes

// ---- Reading ----

/// A text and the read position in it. The position may be after the end of the text; then nothing is read.
struct Cursor {
    std::string_view text;
    std::size_t at;

    [[nodiscard]] std::size_t left() const noexcept { return at < text.size() ? text.size() - at : 0; }
    [[nodiscard]] const char *here() const noexcept { return text.data() + at; }
};

/// The values of fields that are not in canonical form, if they are valid.
template <std::size_t N>
struct OtherFields {
    bool valid = false;
    std::array<unsigned long, N> values{};
};

/// Reads numbers as strtoul does; a space must follow each. The offsets of the fields are fixed for numbers of any length.
/// The argument and the result are passed by value: with pointers the compiler would keep the values in memory in the fast path
/// too.
template <std::size_t N>
[[gnu::cold, gnu::noinline]] OtherFields<N> readOtherFields(Cursor cursor) noexcept
{
    OtherFields<N> fields;
    for (unsigned long &value : fields.values) {
        if (cursor.left() == 0) {
            return {};
        }
        const auto [number, end] = readNumber(cursor.here(), 16);
        if (*end != ' ') {
            return {};
        }
        value = number;
        cursor.at += kField;
    }
    fields.valid = true;
    return fields;
}

/// True if a space follows each of N fields.
template <std::size_t N>
bool separated(const char *text) noexcept
{
    return [&]<std::size_t... I>(std::index_sequence<I...>) { return ((text[I * kField + hex::kDigits] == ' ') && ...); }
    (std::make_index_sequence<N>());
}

/// Reads the numbers of consecutive fields and advances the cursor. If the fields are in canonical form, eight upper-case
/// digits each, @p canonical reads all of them at once; otherwise @p other receives the values.
template <std::size_t N, class Canonical, class Other>
bool readFields(Cursor &cursor, Canonical canonical, Other other) noexcept
{
    hex::Faults faults;
    bool isCanonical = false;
    if (cursor.left() >= N * kField) [[likely]] {
        canonical(cursor.here(), faults);
        isCanonical = separated<N>(cursor.here()) && faults.none();
    }
    if (!isCanonical) [[unlikely]] {
        const OtherFields fields = readOtherFields<N>(cursor);
        if (!fields.valid) {
            return false;
        }
        other(fields.values);
    }
    cursor.at += N * kField;
    return true;
}

/// Copies one half of a short name with its terminator; later bytes of the record are unchanged. The code has no branch on the
/// length: names differ in length, and one mispredicted branch costs more than reading the numbers of a station.
template <int8_t kFrom>
void copyHalf(char *name, const char *text, int8_t length) noexcept
{
    using Bytes = int8_t __attribute__((vector_size(kShortName / 2)));
    constexpr Bytes kPlaces = Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15} + kFrom;
    Bytes copied;
    Bytes kept;
    std::memcpy(&copied, text + kFrom, sizeof copied);
    std::memcpy(&kept, name + kFrom, sizeof kept);
    kept = (copied & (kPlaces < length)) | (kept & (kPlaces > length));
    std::memcpy(name + kFrom, &kept, sizeof kept);
}

/// Reads a name of the given length. Advances the cursor by the number of copied bytes and the separator after them.
bool readName(Cursor &cursor, unsigned long length, char *name) noexcept
{
    if (length > kLongestName || cursor.at > cursor.text.size()) {
        return false;
    }
    const std::size_t left = cursor.left();
    const std::size_t copied = std::min<std::size_t>(length, left);
    if (length < kShortName && left >= kShortName) [[likely]] {
        copyHalf<0>(name, cursor.here(), static_cast<int8_t>(length));
        copyHalf<kShortName / 2>(name, cursor.here(), static_cast<int8_t>(length));
    } else {
        std::memcpy(name, cursor.here(), copied);
        std::memset(name + copied, 0, length - copied + 1);
    }
    cursor.at += copied + 1;
    return true;
}

hex::FourNumbers fourOf(const unsigned long *values) noexcept
{
    return hex::FourNumbers{static_cast<uint32_t>(values[0]), static_cast<uint32_t>(values[1]),
                            static_cast<uint32_t>(values[2]), static_cast<uint32_t>(values[3])};
}

template <class Record>
bool readHead(Cursor &cursor, Record &record) noexcept
{
    hex::FourNumbers numbers;
    unsigned long nameLength;
    const bool read = readFields<5>(
        cursor,
        [&](const char *text, hex::Faults &faults) {
            numbers = hex::readFour(text, kField, faults);
            nameLength = hex::readByte(text + 4 * kField, faults);
        },
        [&](const auto &values) {
            numbers = fourOf(values.data());
            nameLength = values[4];
        });
    if (!read) {
        return false;
    }
    record.address = numbers[0];
    record.attr1 = numbers[1];
    record.attr2 = numbers[2];
    record.attr3 = numbers[3];
    return readName(cursor, nameLength, record.name);
}

bool readElement(Cursor &cursor, KvoDescription &record) noexcept { return readHead(cursor, record); }

bool readElement(Cursor &cursor, KvoDescriptionEx &record) noexcept
{
    if (!readHead(cursor, record)) {
        return false;
    }
    // Reads seven consecutive numbers as two overlapping groups of four.
    hex::FourNumbers front;
    hex::FourNumbers back;
    const bool read = readFields<7>(
        cursor,
        [&](const char *text, hex::Faults &faults) {
            front = hex::readFour(text, kField, faults);
            back = hex::readFour(text + 3 * kField, kField, faults);
        },
        [&](const auto &values) {
            front = fourOf(values.data());
            back = fourOf(values.data() + 3);
        });
    if (!read) {
        return false;
    }
    std::memcpy(&record.extAttr1, &front, sizeof front);
    std::memcpy(&record.extAttr4, &back, sizeof back);
    return true;
}

bool readElement(Cursor &cursor, KvoClientEntry &record) noexcept
{
    unsigned long value;
    unsigned long nameLength;
    const bool read = readFields<2>(
        cursor,
        [&](const char *text, hex::Faults &faults) {
            value = hex::read(text, faults);
            nameLength = hex::readByte(text + kField, faults);
        },
        [&](const auto &values) {
            value = values[0];
            nameLength = values[1];
        });
    if (!read) {
        return false;
    }
    record.value = static_cast<uint32_t>(value);
    return readName(cursor, nameLength, record.name);
}

/// Prefetches both ends of a record that will be filled soon: a long list of stations is not in the CPU's cache.
template <class Record>
void prefetch(const Record &record) noexcept
{
    constexpr int kToWrite = 1;
    __builtin_prefetch(&record, kToWrite);
    __builtin_prefetch(reinterpret_cast<const char *>(&record + 1) - 1, kToWrite);
}

/// Reads any list: a count, and elements from a fixed offset. All calls are inlined, so that the numbers of a station stay in
/// registers.
template <class Record>
[[gnu::flatten]] int readList(uint32_t &count, Record *array, const char *text) noexcept
{
    const auto [number, numberEnd] = readNumber(text, 16);
    const auto elements = static_cast<uint32_t>(number);
    count = elements;  // stored before the check: callers read it after a failure too
    if (*numberEnd != ' ') {
        return kMalformed;
    }
    // The elements start after eight digits and a space, not after the end of the number: the format is fixed-width.
    Cursor cursor{text, kField};
    for (uint32_t i = 0; i < elements; ++i) {
        if (elements - i > kPrefetchDistance) {
            prefetch(array[i + kPrefetchDistance]);
        }
        if (!readElement(cursor, array[i])) {
            return kMalformed;
        }
    }
    return kRead;
}

// ---- Writing ----

/// Writes a text of known length.
class Writer {
public:
    Writer(char *buffer, uint64_t length) noexcept : at_(buffer), end_(buffer + length) {}

    Writer &numbers() noexcept { return *this; }

    Writer &numbers(uint32_t value) noexcept
    {
        hex::write(at_, value);
        at_[hex::kDigits] = ' ';
        at_ += kField;
        return *this;
    }

    template <class... More>
    Writer &numbers(uint32_t first, uint32_t second, More... more) noexcept
    {
        hex::writeTwo(at_, first, at_ + kField, second);
        at_[hex::kDigits] = ' ';
        at_[kField + hex::kDigits] = ' ';
        at_ += 2 * kField;
        return numbers(more...);
    }

    Writer &name(const char (&name)[kNameCapacity], std::size_t length) noexcept
    {
        // Also copies bytes after a short name; the next fields overwrite them.
        if (length <= kShortName && static_cast<std::size_t>(end_ - at_) >= kShortName) [[likely]] {
            std::memcpy(at_, name, kShortName);
        } else {
            std::memcpy(at_, name, length);
        }
        at_[length] = ' ';
        at_ += length + 1;
        return *this;
    }

    void finish() noexcept { *at_ = '\0'; }

private:
    char *at_;
    const char *end_;
};

struct Basic {
    static constexpr std::size_t kFields = 5;
    static void write(Writer &out, const ConnectionEntry &entry) noexcept
    {
        const std::size_t length = strnlen(entry.name, kNameCapacity);
        out.numbers(entry.address, entry.attr1, entry.attr2, entry.attr3, static_cast<uint32_t>(length))
            .name(entry.name, length);
    }
};

struct Extended {
    static constexpr std::size_t kFields = 12;
    static void write(Writer &out, const ConnectionEntry &entry) noexcept
    {
        Basic::write(out, entry);
        // extAttr7 is a long, but a field has 8 digits.
        out.numbers(entry.extAttr1, entry.extAttr2, entry.extAttr3, entry.extAttr4, entry.extAttr5, entry.extAttr6,
                    static_cast<uint32_t>(entry.extAttr7));
    }
};

struct Client {
    static constexpr std::size_t kFields = 2;
    static void write(Writer &out, const ConnectionClientEntry &client) noexcept
    {
        const std::size_t length = strnlen(client.name, kNameCapacity);
        out.numbers(client.value, static_cast<uint32_t>(length)).name(client.name, length);
    }
};

// The reported sizes have always exceeded the exact length: by kListSlack bytes, and by kNameSlack bytes for each name.
constexpr std::size_t kListSlack = 8;
constexpr std::size_t kNameSlack = 2;

template <class Format, class Record>
[[gnu::flatten]] int writeList(uint32_t count, const Record *records, char *buffer, uint32_t size) noexcept
{
    uint64_t length = kField + uint64_t{count} * (Format::kFields * kField + 1);
    for (uint32_t i = 0; i < count; ++i) {
        length += strnlen(records[i].name, kNameCapacity);
    }
    const uint64_t required = length + kListSlack + uint64_t{count} * kNameSlack;
    if (size < required) {
        return static_cast<int>(std::min<uint64_t>(required, INT_MAX));
    }
    Writer out(buffer, length);
    out.numbers(count);
    for (uint32_t i = 0; i < count; ++i) {
        Format::write(out, records[i]);
    }
    out.finish();
    return 0;
}

}  // namespace

int ConvertConArray2Text(uint32_t count, const ConnectionEntry *entries, char *buffer, uint32_t size) noexcept
{
    return writeList<Basic>(count, entries, buffer, size);
}

int ConvertConArray2TextEx(uint32_t count, const ConnectionEntry *entries, char *buffer, uint32_t size) noexcept
{
    return writeList<Extended>(count, entries, buffer, size);
}

int ConvertConArray2TextClients(uint32_t count, const ConnectionClientEntry *clients, char *buffer, uint32_t size) noexcept
{
    return writeList<Client>(count, clients, buffer, size);
}

int ConvertConElem2TextEx(const ConnectionEntry *entry, char *buffer, uint32_t size) noexcept
{
    constexpr std::size_t kElementSlack = 8;
    const std::size_t length = strnlen(entry->name, kNameCapacity) + Extended::kFields * kField + 1;
    if (length + kElementSlack > size) {
        return -1;
    }
    Writer out(buffer, length);
    Extended::write(out, *entry);
    out.finish();
    return 1;
}

int ConvertText2KVODescriptionArray(uint32_t *count, KvoDescription *array, const char *text) noexcept
{
    return readList(*count, array, text);
}

int ConvertText2KVODescArrayEx(uint32_t *count, KvoDescriptionEx *array, const char *text) noexcept
{
    return readList(*count, array, text);
}

int ConvertText2KVOClientArray(uint32_t *count, KvoClientEntry *array, const char *text) noexcept
{
    return readList(*count, array, text);
}

int ConvertText2KVODescEx(KvoDescriptionEx *record, const char *text) noexcept
{
    Cursor cursor{text, 0};
    return readElement(cursor, *record) ? kRead : kMalformed;
}

uint32_t GetCountKVODescriptionsFromTextEx(const char *text) noexcept
{
    const auto [count, end] = readNumber(text, 16);
    return *end == ' ' ? static_cast<uint32_t>(count) : kNoCount;
}

uint32_t GetCountKVODescriptionsFromText(const char *text) noexcept { return GetCountKVODescriptionsFromTextEx(text); }
