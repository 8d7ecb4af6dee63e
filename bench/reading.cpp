// Compares parsing of description texts with the baseline parser and with common alternatives.
#include "baseline/baseline.h"
#include "subjects.h"
#include "support/comparison.h"
#include "support/expect.h"
#include "support/report.h"
#include "support/stations.h"

#include <kvo_hws/codecs.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace bench {

namespace {

constexpr int kRepetitions = 41;
constexpr int kFewRepetitions = 9;
constexpr double kGoal = 1.30;
constexpr std::size_t kField = 9;  // eight digits and a space

// Basic and Extended describe the two forms of a list under the same names, for the templates below.
struct Basic {
    using Record = KvoDescription;
    static constexpr bool kExtended = false;
    static constexpr const char *kName = "basic";
    static constexpr auto kLibrary = ConvertText2KVODescriptionArray;
    static constexpr auto kBaseline = baseline::readBasic;
    static constexpr std::array<uint32_t Record::*, 0> kExtension{};
};

struct Extended {
    using Record = KvoDescriptionEx;
    static constexpr bool kExtended = true;
    static constexpr const char *kName = "extended";
    static constexpr auto kLibrary = ConvertText2KVODescArrayEx;
    static constexpr auto kBaseline = baseline::readExtended;
    static constexpr std::array kExtension = {&Record::extAttr1, &Record::extAttr2, &Record::extAttr3, &Record::extAttr4,
                                              &Record::extAttr5, &Record::extAttr6, &Record::extAttr7};
};

// ---- The alternatives ----

/// Reads a number and the space after it.
bool readNumber(const char *&position, uint32_t &value)
{
    char *end = nullptr;
    value = static_cast<uint32_t>(std::strtoul(position, &end, 16));
    position += kField;
    return *end == ' ';
}

template <class Form>
int readWithStrtoul(uint32_t *count, typename Form::Record *array, const char *text)
{
    const char *position = text;
    if (!readNumber(position, *count)) {
        return -1;
    }
    for (uint32_t i = 0; i < *count; ++i) {
        auto &record = array[i];
        uint32_t length = 0;
        if (!readNumber(position, record.address) || !readNumber(position, record.attr1) ||
            !readNumber(position, record.attr2) || !readNumber(position, record.attr3) || !readNumber(position, length) ||
            length >= sizeof record.name) {
            return -1;
        }
        std::memcpy(record.name, position, length);
        record.name[length] = '\0';
        position += length + 1;
        for (const auto member : Form::kExtension) {
            if (!readNumber(position, record.*member)) {
                return -1;
            }
        }
    }
    return 1;
}

template <class Form>
int readWithSscanf(uint32_t *count, typename Form::Record *array, const char *text)
{
    if (std::sscanf(text, "%8X", count) != 1) {
        return -1;
    }
    const char *position = text + kField;
    for (uint32_t i = 0; i < *count; ++i) {
        auto &record = array[i];
        uint32_t length = 0;
        if (std::sscanf(position, "%8X %8X %8X %8X %8X", &record.address, &record.attr1, &record.attr2, &record.attr3,
                        &length) != 5 ||
            length >= sizeof record.name) {
            return -1;
        }
        position += 5 * kField;
        std::memcpy(record.name, position, length);
        record.name[length] = '\0';
        position += length + 1;
        for (const auto member : Form::kExtension) {
            if (std::sscanf(position, "%8X", &(record.*member)) != 1) {
                return -1;
            }
            position += kField;
        }
    }
    return 1;
}

template <class Form>
int readJson(uint32_t *count, typename Form::Record *array, const std::string &text)
{
    static constexpr const char *kKeys[] = {"extAttr1", "extAttr2", "extAttr3", "extAttr4", "extAttr5", "extAttr6", "extAttr7"};
    const nlohmann::json list = nlohmann::json::parse(text);
    *count = static_cast<uint32_t>(list.size());
    for (uint32_t i = 0; i < *count; ++i) {
        const nlohmann::json &one = list[i];
        auto &record = array[i];
        record.address = one.at("address").get<uint32_t>();
        record.attr1 = one.at("attr1").get<uint32_t>();
        record.attr2 = one.at("attr2").get<uint32_t>();
        record.attr3 = one.at("attr3").get<uint32_t>();
        const auto &name = one.at("name").get_ref<const std::string &>();
        record.name[name.copy(record.name, sizeof record.name - 1)] = '\0';
        for (std::size_t member = 0; member < Form::kExtension.size(); ++member) {
            record.*Form::kExtension[member] = one.at(kKeys[member]).get<uint32_t>();
        }
    }
    return 1;
}

// ---- Comparing ----

/// A list to parse, the array for the result, and the expected result.
template <class Form>
class Task {
public:
    using Record = typename Form::Record;

    explicit Task(uint32_t count)
        : stations(makeStations(count)), text(textOf(stations, Form::kExtended)), array_(count), reference_(count)
    {
        uint32_t found = 0;
        expect(readWithStrtoul<Form>(&found, reference_.data(), text.c_str()) == 1 && found == count,
               "reading with strtoul failed");
    }

    /// Returns an operation that parses the list with @p reader. The whole result is checked once, here.
    template <class Reader, class Text>
    Comparison::Operation reading(Reader reader, const Text &from)
    {
        auto read = [this, reader, &from] {
            uint32_t found = 0;
            expect(reader(&found, array_.data(), from) == 1 && found == array_.size(), "reading failed");
        };
        std::memset(array_.data(), 0, array_.size() * sizeof(Record));
        read();
        expect(std::memcmp(array_.data(), reference_.data(), array_.size() * sizeof(Record)) == 0,
               "a reader returned another result");
        return read;
    }

    template <class Reader>
    Comparison::Operation reading(Reader reader)
    {
        return reading(reader, cText_);
    }

    const std::vector<ConnectionEntry> stations;
    const std::string text;

private:
    const char *cText_ = text.c_str();
    std::vector<Record> array_;
    std::vector<Record> reference_;
};

template <class Form>
std::string title(uint32_t count)
{
    return std::to_string(count) + " stations, " + Form::kName;
}

template <class Form>
void compareWithBaseline(uint32_t count)
{
    Task<Form> task(count);
    const auto timings = Comparison(kRepetitions)
                             .candidate("library", task.reading(Form::kLibrary))
                             .candidate("baseline", task.reading(Form::kBaseline))
                             .run();
    printRow(title<Form>(count), timings.at("library"), "baseline", timings.at("baseline"), kGoal);
}

template <class Form>
void compareWithAlternatives(uint32_t count)
{
    Task<Form> task(count);
    const std::string json = jsonOf(task.stations, Form::kExtended);
    std::vector<char> copy(task.text.size() + 1);
    const auto timings = Comparison(kFewRepetitions)
                             .candidate("library", task.reading(Form::kLibrary))
                             .candidate("memcpy of the text",
                                        [&] {
                                            std::memcpy(copy.data(), task.text.c_str(), copy.size());
                                            expect(copy[0] == task.text[0], "copying failed");
                                        })
                             .candidate("strtoul", task.reading(readWithStrtoul<Form>))
                             .candidate("sscanf", task.reading(readWithSscanf<Form>))
                             .candidate("JSON (nlohmann)", task.reading(readJson<Form>, json))
                             .run();
    for (const char *other : {"memcpy of the text", "strtoul", "sscanf", "JSON (nlohmann)"}) {
        printRow(title<Form>(count), timings.at("library"), other, timings.at(other));
    }
}

/// The cost per station must not depend on the number of stations.
template <class Form>
void compareGrowth()
{
    constexpr uint32_t kFew = 100;
    constexpr uint32_t kMany = 100'000;
    Task<Form> few(kFew);
    Task<Form> many(kMany);
    const auto timings = Comparison(kRepetitions)
                             .candidate("few", few.reading(Form::kLibrary))
                             .candidate("many", many.reading(Form::kLibrary))
                             .candidate("few, baseline", few.reading(Form::kBaseline))
                             .candidate("many, baseline", many.reading(Form::kBaseline))
                             .run();
    const auto each = [&](const char *name, uint32_t count) {
        const Timing &timing = timings.at(name);
        return Timing{timing.median / count, timing.least / count};
    };
    const std::string form = Form::kName;
    printRow("per station of 100 000, " + form, each("many", kMany), "per station of 100", each("few", kFew), 2.0);
    printRow("per station of 100 000, " + form, each("many", kMany), "baseline, of 100 000", each("many, baseline", kMany));
    printRow("per station of 100, " + form, each("few", kFew), "baseline, of 100", each("few, baseline", kFew));
}

template <class Form>
void measureForm()
{
    for (const uint32_t count : {1'000U, 10'000U}) {
        compareWithBaseline<Form>(count);
        compareWithAlternatives<Form>(count);
    }
    compareGrowth<Form>();
}

}  // namespace

void measureReading()
{
    printHeading("Reading a text");
    measureForm<Basic>();
    measureForm<Extended>();
}

}  // namespace bench
