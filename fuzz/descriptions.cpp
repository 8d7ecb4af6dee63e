// Fuzzes the parsers of description texts: every record is compared byte by byte with that of a reference implementation with
// strtoul. The records are then formatted and parsed again.
#include "reference_descriptions.h"
#include "support.h"

#include <algorithm>
#include <array>
#include <string>

namespace {

using fuzz::DescriptionForm;
using fuzz::ExactText;
using fuzz::GuardedArea;

constexpr uint32_t kMostElements = 64;

std::size_t nameLength(const char *name) { return strnlen(name, 260); }

// ---- Records as the daemon stores them, for the formatting functions ----

ConnectionEntry entryOf(const KvoDescription &read)
{
    ConnectionEntry entry{};
    entry.address = read.address;
    entry.attr1 = read.attr1;
    entry.attr2 = read.attr2;
    entry.attr3 = read.attr3;
    std::memcpy(entry.name, read.name, sizeof entry.name);
    return entry;
}

ConnectionEntry entryOf(const KvoDescriptionEx &read)
{
    KvoDescription basic{};
    std::memcpy(&basic, &read, sizeof basic);  // an extended record begins with a basic one
    ConnectionEntry entry = entryOf(basic);
    entry.extAttr1 = read.extAttr1;
    entry.extAttr2 = read.extAttr2;
    entry.extAttr3 = read.extAttr3;
    entry.extAttr4 = read.extAttr4;
    entry.extAttr5 = read.extAttr5;
    entry.extAttr6 = read.extAttr6;
    entry.extAttr7 = read.extAttr7;
    return entry;
}

ConnectionClientEntry entryOf(const KvoClientEntry &read)
{
    ConnectionClientEntry client{};
    client.value = read.value;
    std::memcpy(client.name, read.name, sizeof client.name);
    return client;
}

/// A form, the functions that parse and format it, and the bytes that an element needs in the buffer in addition to its name.
template <class Record, class Entry>
struct List {
    const char *name;
    const DescriptionForm &form;
    int (*read)(uint32_t *count, Record *array, const char *text);
    int (*write)(uint32_t count, const Entry *entries, char *buffer, uint32_t size);
    uint32_t elementSize;

    void compare(const std::string &text, uint8_t fill) const
    {
        char *end = nullptr;
        const auto announced = static_cast<uint32_t>(std::strtoul(text.c_str(), &end, 16));
        const uint32_t elements = *end == ' ' ? announced : 0;
        if (elements > kMostElements) {
            return;  // too many for an array
        }
        const std::size_t size = elements * sizeof(Record);
        GuardedArea wanted(size, fill);
        fuzz::ReferenceDescriptions reference(text, form);
        const int wantedResult = reference.readList(wanted.area());

        GuardedArea got(size, fill);
        const ExactText exact(text);
        uint32_t count = ~announced;
        const int result = read(&count, reinterpret_cast<Record *>(got.area()), exact.get());

        if (result != wantedResult || count != announced) {
            fuzz::fault("%s: returned %d and the count %u, the reference %d and %u", name, result, count, wantedResult,
                        announced);
        }
        if (result != 1) {
            const std::size_t malformed = reference.whole() * sizeof(Record);
            std::memcpy(wanted.area() + malformed, got.area() + malformed, std::min(sizeof(Record), size - malformed));
        }
        if (got != wanted) {
            const auto differing = std::mismatch(got.area(), got.area() + size, wanted.area()).first - got.area();
            fuzz::fault("%s: the array differs from the reference at byte %td of %zu", name, differing, size);
        }
        if (result == 1) {
            writeAndReadAgain(got, elements);
        }
    }

private:
    void writeAndReadAgain(GuardedArea &records, uint32_t count) const
    {
        const auto *const array = reinterpret_cast<const Record *>(records.area());
        std::vector<Entry> entries;
        uint32_t needed = 17 + count * elementSize;
        for (uint32_t i = 0; i < count; ++i) {
            entries.push_back(entryOf(array[i]));
            needed += static_cast<uint32_t>(nameLength(array[i].name)) + 3;
        }
        GuardedArea small(needed - 1, 0xA5);
        const GuardedArea untouched = small;
        const int result = write(count, entries.data(), reinterpret_cast<char *>(small.area()), needed - 1);
        if (result != static_cast<int>(needed) || small != untouched) {
            fuzz::fault("%s: %u bytes are needed; with one byte less, formatting returned %d", name, needed, result);
        }
        GuardedArea text(needed, 0xA5);
        if (write(count, entries.data(), reinterpret_cast<char *>(text.area()), needed) != 0 || !text.guardsIntact() ||
            strnlen(reinterpret_cast<char *>(text.area()), needed) == needed) {
            fuzz::fault("%s: cannot format into %u bytes", name, needed);
        }
        const ExactText exact(reinterpret_cast<char *>(text.area()));
        std::vector<Record> again(count);
        uint32_t countAgain = 0;
        if (read(&countAgain, again.data(), exact.get()) != 1 || countAgain != count) {
            fuzz::fault("%s: cannot parse the formatted text: %s", name, exact.get());
        }
        for (uint32_t i = 0; i < count; ++i) {
            const Entry entry = entryOf(again[i]);
            // The bytes after the end of the name are unspecified.
            const std::size_t length = nameLength(entries[i].name);
            std::memset(entries[i].name + length, 0, sizeof entries[i].name - length);
            if (std::memcmp(&entry, &entries[i], sizeof entry) != 0) {
                fuzz::fault("%s: element %u differs after formatting and parsing: %s", name, i, exact.get());
            }
        }
    }
};

void compareOne(const std::string &text, uint8_t fill)
{
    GuardedArea wanted(sizeof(KvoDescriptionEx), fill);
    const int wantedResult = fuzz::ReferenceDescriptions(text, fuzz::kExtendedForm).readOne(wanted.area());
    GuardedArea got(sizeof(KvoDescriptionEx), fill);
    const ExactText exact(text);
    const int result = ConvertText2KVODescEx(reinterpret_cast<KvoDescriptionEx *>(got.area()), exact.get());
    if (result != wantedResult || !got.guardsIntact() || (result == 1 && got != wanted)) {
        fuzz::fault("ConvertText2KVODescEx: returned %d, the reference %d, or the records differ", result, wantedResult);
    }
}

void compareCounts(const std::string &text)
{
    const ExactText exact(text);
    const uint32_t wanted = fuzz::referenceCount(text);
    if (GetCountKVODescriptionsFromText(exact.get()) != wanted || GetCountKVODescriptionsFromTextEx(exact.get()) != wanted) {
        fuzz::fault("the count is not %u", wanted);
    }
}

const List<KvoDescription, ConnectionEntry> kStations{"ConvertText2KVODescriptionArray", fuzz::kBasicForm,
                                                      ConvertText2KVODescriptionArray, ConvertConArray2Text, 45};
const List<KvoDescriptionEx, ConnectionEntry> kExtended{"ConvertText2KVODescArrayEx", fuzz::kExtendedForm,
                                                        ConvertText2KVODescArrayEx, ConvertConArray2TextEx, 108};
const List<KvoClientEntry, ConnectionClientEntry> kClients{"ConvertText2KVOClientArray", fuzz::kClientForm,
                                                           ConvertText2KVOClientArray, ConvertConArray2TextClients, 18};

}  // namespace

/// Parses each text in every form.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    const std::string text(fuzz::textOf(data, size));
    compareCounts(text);
    for (const uint8_t fill : {uint8_t{0}, uint8_t{0xA5}}) {
        kStations.compare(text, fill);
        kExtended.compare(text, fill);
        kClients.compare(text, fill);
        compareOne(text, fill);
    }
    return 0;
}
