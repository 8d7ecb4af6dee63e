// Fuzzes the readers of description texts: every record is compared, to the byte, with what a plain reading by strtoul makes of
// the same text; and what was read is written and read again.
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

// ---- Records as the daemon keeps them, for the writers ----

ConnectionEntry kept(const KvoDescription &read)
{
    ConnectionEntry entry{};
    entry.address = read.address;
    entry.attr1 = read.attr1;
    entry.attr2 = read.attr2;
    entry.attr3 = read.attr3;
    std::memcpy(entry.name, read.name, sizeof entry.name);
    return entry;
}

ConnectionEntry kept(const KvoDescriptionEx &read)
{
    KvoDescription basic{};
    std::memcpy(&basic, &read, sizeof basic);  // which an extended one begins with
    ConnectionEntry entry = kept(basic);
    entry.extAttr1 = read.extAttr1;
    entry.extAttr2 = read.extAttr2;
    entry.extAttr3 = read.extAttr3;
    entry.extAttr4 = read.extAttr4;
    entry.extAttr5 = read.extAttr5;
    entry.extAttr6 = read.extAttr6;
    entry.extAttr7 = read.extAttr7;
    return entry;
}

ConnectionClientEntry kept(const KvoClientEntry &read)
{
    ConnectionClientEntry client{};
    client.value = read.value;
    std::memcpy(client.name, read.name, sizeof client.name);
    return client;
}

/// A form, the functions that read and write it, and what an element needs of a writer's buffer beside its name.
template <class Record, class Kept>
struct List {
    const char *name;
    const DescriptionForm &form;
    int (*read)(uint32_t *count, Record *array, const char *text);
    int (*write)(uint32_t count, const Kept *entries, char *buffer, uint32_t size);
    uint32_t elementSize;

    void compare(const std::string &text, uint8_t fill) const
    {
        char *end = nullptr;
        const auto announced = static_cast<uint32_t>(std::strtoul(text.c_str(), &end, 16));
        const uint32_t elements = *end == ' ' ? announced : 0;
        if (elements > kMostElements) {
            return;  // no caller has an array for it
        }
        const std::size_t size = elements * sizeof(Record);
        GuardedArea wanted(size, fill);
        fuzz::PlainDescriptions plain(text, form);
        const int wantedResult = plain.readList(wanted.area());

        GuardedArea got(size, fill);
        const ExactText exact(text);
        uint32_t count = ~announced;
        const int result = read(&count, reinterpret_cast<Record *>(got.area()), exact.get());

        if (result != wantedResult || count != announced) {
            fuzz::fault("%s: returned %d and the count %u, a plain reading %d", name, result, count, wantedResult);
        }
        if (result != 1) {
            const std::size_t malformed = plain.whole() * sizeof(Record);
            std::memcpy(wanted.area() + malformed, got.area() + malformed, std::min(sizeof(Record), size - malformed));
        }
        if (got != wanted) {
            const auto differing = std::mismatch(got.area(), got.area() + size, wanted.area()).first - got.area();
            fuzz::fault("%s: at byte %td of %zu the array differs from a plain reading's", name, differing, size);
        }
        if (result == 1) {
            writeAndReadAgain(got, elements);
        }
    }

private:
    void writeAndReadAgain(GuardedArea &records, uint32_t count) const
    {
        const auto *const array = reinterpret_cast<const Record *>(records.area());
        std::vector<Kept> entries;
        uint32_t needed = 17 + count * elementSize;
        for (uint32_t i = 0; i < count; ++i) {
            entries.push_back(kept(array[i]));
            needed += static_cast<uint32_t>(nameLength(array[i].name)) + 3;
        }
        GuardedArea small(needed - 1, 0xA5);
        const GuardedArea untouched = small;
        const int told = write(count, entries.data(), reinterpret_cast<char *>(small.area()), needed - 1);
        if (told != static_cast<int>(needed) || small != untouched) {
            fuzz::fault("%s: %u bytes are needed, its writer says %d for one less", name, needed, told);
        }
        GuardedArea text(needed, 0xA5);
        if (write(count, entries.data(), reinterpret_cast<char *>(text.area()), needed) != 0 || !text.guardsIntact() ||
            strnlen(reinterpret_cast<char *>(text.area()), needed) == needed) {
            fuzz::fault("%s: could not be written into %u bytes", name, needed);
        }
        const ExactText exact(reinterpret_cast<char *>(text.area()));
        std::vector<Record> again(count);
        uint32_t countAgain = 0;
        if (read(&countAgain, again.data(), exact.get()) != 1 || countAgain != count) {
            fuzz::fault("%s: what was written can not be read: %s", name, exact.get());
        }
        for (uint32_t i = 0; i < count; ++i) {
            const Kept entry = kept(again[i]);
            // Behind the name's end stands whatever stood there.
            const std::size_t length = nameLength(entries[i].name);
            std::memset(entries[i].name + length, 0, sizeof entries[i].name - length);
            if (std::memcmp(&entry, &entries[i], sizeof entry) != 0) {
                fuzz::fault("%s: element %u has changed on its way: %s", name, i, exact.get());
            }
        }
    }
};

void compareOne(const std::string &text, uint8_t fill)
{
    GuardedArea wanted(sizeof(KvoDescriptionEx), fill);
    const int wantedResult = fuzz::PlainDescriptions(text, fuzz::kExtendedForm).readOne(wanted.area());
    GuardedArea got(sizeof(KvoDescriptionEx), fill);
    const ExactText exact(text);
    const int result = ConvertText2KVODescEx(reinterpret_cast<KvoDescriptionEx *>(got.area()), exact.get());
    if (result != wantedResult || !got.guardsIntact() || (result == 1 && got != wanted)) {
        fuzz::fault("ConvertText2KVODescEx: returned %d, a plain reading %d, or the records differ", result, wantedResult);
    }
}

void compareCounts(const std::string &text)
{
    const ExactText exact(text);
    const uint32_t wanted = fuzz::countPlainly(text);
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

/// Each text is read in every form.
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
