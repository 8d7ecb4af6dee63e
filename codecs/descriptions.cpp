// Station descriptions and clients: the daemon's records to text, and text to the caller's records.
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
constexpr std::size_t kField = hex::kDigits + 1;  // the digits and the space behind them
constexpr std::size_t kNameCapacity = sizeof(KvoDescription::name);
constexpr std::size_t kLongestName = kNameCapacity - 1;
constexpr uint32_t kPreparedAhead = 16;  // elements
constexpr std::size_t kShortName = 32;   // most names are shorter, and are copied by this many bytes at once

// ---- Reading ----

/// A text and where reading stands in it, which may be behind its end; nothing is looked at there.
struct Cursor {
    std::string_view text;
    std::size_t at;

    [[nodiscard]] std::size_t left() const noexcept { return at < text.size() ? text.size() - at : 0; }
    [[nodiscard]] const char *here() const noexcept { return text.data() + at; }
};

/// The values of fields in another hand, if they were sound.
template <std::size_t N>
struct OddFields {
    bool sound = false;
    std::array<unsigned long, N> values{};
};

/// Numbers, as strtoul reads them, with a space right behind each. The offsets stay fixed, however long a number turns out to
/// be. Handed over by value: whatever has an address here would lie in memory on the usual way too.
template <std::size_t N>
[[gnu::cold, gnu::noinline]] OddFields<N> readOdd(Cursor cursor) noexcept
{
    OddFields<N> fields;
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
    fields.sound = true;
    return fields;
}

/// Whether a space follows each of N fields.
template <std::size_t N>
bool separated(const char *text) noexcept
{
    return [&]<std::size_t... I>(std::index_sequence<I...>) { return ((text[I * kField + hex::kDigits] == ' ') && ...); }
    (std::make_index_sequence<N>());
}

/// Numbers of consecutive fields. Those in the daemon's usual hand, eight upper-case digits each, are read at once by @p usual;
/// the cursor moves behind them.
template <std::size_t N, class Usual, class Odd>
bool readFields(Cursor &cursor, Usual usual, Odd odd) noexcept
{
    hex::Faults faults;
    bool isUsual = false;
    if (cursor.left() >= N * kField) [[likely]] {
        usual(cursor.here(), faults);
        isUsual = separated<N>(cursor.here()) && faults.none();
    }
    if (!isUsual) [[unlikely]] {
        const OddFields fields = readOdd<N>(cursor);
        if (!fields.sound) {
            return false;
        }
        odd(fields.values);
    }
    cursor.at += N * kField;
    return true;
}

/// Copies one half of a short name with its terminator; what lies behind that in the record stays as it is. It takes the same
/// steps for every length: names differ, and one branch foreseen wrongly costs more than a station's numbers.
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

/// A name of announced length. The cursor moves by what was there to copy, and over the separator behind it.
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
    // Seven numbers side by side, as two times four with the middle one in common.
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

/// Fetches both ends of a record that is to be filled soon: a long list of stations lies in no cache.
template <class Record>
void prepare(const Record &record) noexcept
{
    constexpr int kToWrite = 1;
    __builtin_prefetch(&record, kToWrite);
    __builtin_prefetch(reinterpret_cast<const char *>(&record + 1) - 1, kToWrite);
}

/// The shape of all lists: a count, and elements from a fixed offset on. What the loop needs is flattened into it, or the
/// numbers of a station would take the way through memory.
template <class Record>
[[gnu::flatten]] int readList(uint32_t &count, Record *array, const char *text) noexcept
{
    const auto [number, numberEnd] = readNumber(text, 16);
    const auto elements = static_cast<uint32_t>(number);
    count = elements;  // stored before it is judged: callers look at it after a failure too
    if (*numberEnd != ' ') {
        return kMalformed;
    }
    // The elements start behind eight digits and a space, not where the number ended: the format is fixed-width.
    Cursor cursor{text, kField};
    for (uint32_t i = 0; i < elements; ++i) {
        if (elements - i > kPreparedAhead) {
            prepare(array[i + kPreparedAhead]);
        }
        if (!readElement(cursor, array[i])) {
            return kMalformed;
        }
    }
    return kRead;
}

// ---- Writing ----

/// Writes a text whose length is known beforehand.
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
        // What a short name's copy brings along behind it is written over by what follows.
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
        // The last one is a long, but a field is 8 digits wide.
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

// What the sizes told to callers have always included over the exact length.
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
