// The description readers against a reference implementation that uses only strtoul, on randomly damaged texts. Only
// the readers have a fast path.
#include <kvo_hws/codecs.h>

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

/// A reference implementation of the format. Reading past the text's end fails.
class ReferenceReader {
public:
    explicit ReferenceReader(const std::string &text) : text_(text) {}

    bool number(std::size_t offset, unsigned long &value) const
    {
        if (offset >= text_.size()) {
            return false;
        }
        char *end = nullptr;
        value = std::strtoul(text_.c_str() + offset, &end, 16);
        return *end == ' ';
    }

    bool name(std::size_t offset, unsigned long length, std::string &name) const
    {
        if (length > 259 || offset > text_.size()) {
            return false;
        }
        name = text_.substr(offset, length);
        return true;
    }

private:
    const std::string &text_;
};

struct Station {
    std::vector<uint32_t> fields;
    std::string name;
    bool operator==(const Station &) const = default;
};

int readWithReference(const std::string &text, bool extended, uint32_t &count, std::vector<Station> &stations)
{
    const ReferenceReader reader(text);
    unsigned long number = 0;
    char *end = nullptr;
    number = std::strtoul(text.c_str(), &end, 16);
    count = static_cast<uint32_t>(number);
    if (*end != ' ') {
        return -1;
    }
    std::size_t at = 9;
    for (uint32_t i = 0; i < count; ++i) {
        Station station;
        unsigned long values[5];
        for (std::size_t field = 0; field < 5; ++field) {
            if (!reader.number(at + field * 9, values[field])) {
                return -1;
            }
            station.fields.push_back(static_cast<uint32_t>(values[field]));
        }
        station.fields.pop_back();
        if (!reader.name(at + 45, values[4], station.name)) {
            return -1;
        }
        at += 45 + station.name.size() + 1;
        for (std::size_t field = 0; extended && field < 7; ++field) {
            unsigned long value = 0;
            if (!reader.number(at + field * 9, value)) {
                return -1;
            }
            station.fields.push_back(static_cast<uint32_t>(value));
        }
        at += extended ? 63 : 0;
        stations.push_back(station);
    }
    return 1;
}

Station seen(const KvoDescription &record) { return {{record.address, record.attr1, record.attr2, record.attr3}, record.name}; }

Station seen(const KvoDescriptionEx &record)
{
    return {{record.address, record.attr1, record.attr2, record.attr3, record.extAttr1, record.extAttr2, record.extAttr3,
             record.extAttr4, record.extAttr5, record.extAttr6, record.extAttr7},
            record.name};
}

std::string wellFormed(std::mt19937 &random, bool extended)
{
    const auto count = static_cast<uint32_t>(random() % 4);
    std::string text(9, '\0');
    std::snprintf(text.data(), 10, "%08X ", count);
    for (uint32_t i = 0; i < count; ++i) {
        char head[64];
        const auto length = static_cast<uint32_t>(random() % 12);
        std::snprintf(head, sizeof head, "%08X %08X %08X %08X %08X ", static_cast<uint32_t>(random()),
                      static_cast<uint32_t>(random()), static_cast<uint32_t>(random()), static_cast<uint32_t>(random()),
                      length);
        text += head;
        for (uint32_t character = 0; character < length; ++character) {
            text += "ab F0"[random() % 5];
        }
        text += ' ';
        for (int field = 0; extended && field < 7; ++field) {
            std::snprintf(head, sizeof head, "%08X ", static_cast<uint32_t>(random()));
            text += head;
        }
    }
    return text;
}

void damage(std::mt19937 &random, std::string &text)
{
    const std::string odd = " 09AFafgx+-\t,";
    for (auto changes = random() % 4; changes > 0 && !text.empty(); --changes) {
        const auto at = random() % text.size();
        switch (random() % 4) {
        case 0: text.erase(at, 1); break;
        case 1: text.insert(at, 1, odd[random() % odd.size()]); break;
        case 2: text.resize(at); break;
        default: text[at] = odd[random() % odd.size()]; break;
        }
    }
}

template <class Record>
void expectSame(const std::string &text, bool extended, int (*read)(uint32_t *, Record *, const char *))
{
    uint32_t referenceCount = 0;
    std::vector<Station> expected;
    const unsigned long announced = std::strtoul(text.c_str(), nullptr, 16);
    if (static_cast<uint32_t>(announced) > 64) {
        return;  // the damaged count is larger than any array of a caller
    }
    const int referenceResult = readWithReference(text, extended, referenceCount, expected);

    std::vector<Record> records(64);
    uint32_t count = 99;
    ASSERT_EQ(read(&count, records.data(), text.c_str()), referenceResult) << text;
    ASSERT_EQ(count, referenceCount) << text;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(seen(records[i]), expected[i]) << "element " << i << " of " << text;
    }
}

TEST(DescriptionReaderDifferential, damaged_texts_are_read_as_by_the_reference)
{
    std::mt19937 random(4711);
    for (int round = 0; round < 100'000; ++round) {
        std::string basic = wellFormed(random, false);
        damage(random, basic);
        expectSame(basic, false, ConvertText2KVODescriptionArray);
        std::string extended = wellFormed(random, true);
        damage(random, extended);
        expectSame(extended, true, ConvertText2KVODescArrayEx);
        if (HasFatalFailure()) {
            return;
        }
    }
}

}  // namespace
