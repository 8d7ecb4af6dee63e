// Compares formatting of description texts with the baseline and with snprintf.
#include "baseline/baseline.h"
#include "subjects.h"
#include "support/comparison.h"
#include "support/expect.h"
#include "support/report.h"
#include "support/stations.h"

#include <kvo_hws/codecs.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace bench {

namespace {

constexpr int kRepetitions = 41;

/// Sums up the sizes first like the others, then calls snprintf once per element, and a second time if @p kExtended.
template <bool kExtended>
int writeWithSnprintf(uint32_t count, const ConnectionEntry *entries, char *buffer, uint32_t size)
{
    std::size_t required = 17 + std::size_t{count} * ((kExtended ? 108 : 45) + 3);
    for (uint32_t i = 0; i < count; ++i) {
        required += std::strlen(entries[i].name);
    }
    if (size < required) {
        return static_cast<int>(required);
    }
    char *to = buffer;
    char *const end = buffer + size;
    const auto space = [&] { return static_cast<std::size_t>(end - to); };
    to += std::snprintf(to, space(), "%08X ", count);
    for (uint32_t i = 0; i < count; ++i) {
        const ConnectionEntry &entry = entries[i];
        to += std::snprintf(to, space(), "%08X %08X %08X %08X %08zX %s ", entry.address, entry.attr1, entry.attr2, entry.attr3,
                            std::strlen(entry.name), entry.name);
        if constexpr (kExtended) {
            to += std::snprintf(to, space(), "%08X %08X %08X %08X %08X %08X %08lX ", entry.extAttr1, entry.extAttr2,
                                entry.extAttr3, entry.extAttr4, entry.extAttr5, entry.extAttr6, entry.extAttr7);
        }
    }
    return 0;
}

using Writer = int (*)(uint32_t, const ConnectionEntry *, char *, uint32_t);

struct Form {
    const char *name;
    bool extended;
    Writer library;
    Writer baseline;
    Writer withSnprintf;
};

constexpr Form kForms[] = {
    {"basic", false,
     [](uint32_t count, const ConnectionEntry *from, char *to, uint32_t size) {
         return ConvertConArray2Text(count, from, to, size);
     },
     baseline::writeBasic, writeWithSnprintf<false>},
    {"extended", true,
     [](uint32_t count, const ConnectionEntry *from, char *to, uint32_t size) {
         return ConvertConArray2TextEx(count, from, to, size);
     },
     baseline::writeExtended, writeWithSnprintf<true>},
};

void compare(const Form &form, uint32_t count)
{
    const std::vector<ConnectionEntry> stations = makeStations(count);
    const std::string text = textOf(stations, form.extended);
    std::vector<char> buffer(text.size() + 17 + 3 * std::size_t{count});
    const auto writing = [&](Writer writer) -> Comparison::Operation {
        auto write = [&, writer] {
            expect(writer(count, stations.data(), buffer.data(), static_cast<uint32_t>(buffer.size())) == 0, "writing failed");
        };
        write();
        expect(text == buffer.data(), "a writer returned another text");
        return write;
    };
    const auto timings = Comparison(kRepetitions)
                             .candidate("library", writing(form.library))
                             .candidate("baseline", writing(form.baseline))
                             .candidate("snprintf", writing(form.withSnprintf))
                             .run();
    const std::string title = std::to_string(count) + " stations, " + form.name;
    printRow(title, timings.at("library"), "baseline", timings.at("baseline"), 1.0);
    printRow(title, timings.at("library"), "snprintf", timings.at("snprintf"));
}

}  // namespace

void measureWriting()
{
    printHeading("Writing a text");
    for (const Form &form : kForms) {
        compare(form, 1'000);
        compare(form, 10'000);
    }
}

}  // namespace bench
