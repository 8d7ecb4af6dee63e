// Station descriptions and clients: records to text and back, sizes, and malformed texts.
#include <kvo_hws/codecs.h>

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr char kPattern = '\x5A';

/// A text in a block of exactly its size, so that memory checkers detect a read past its terminator.
class ExactText {
public:
    explicit ExactText(const std::string &text) : block_(new char[text.size() + 1])
    {
        std::memcpy(block_.get(), text.c_str(), text.size() + 1);
    }
    operator const char *() const { return block_.get(); }

private:
    std::unique_ptr<char[]> block_;
};

ConnectionEntry entry(uint32_t address, const std::string &name)
{
    ConnectionEntry entry;
    std::memset(&entry, kPattern, sizeof entry);  // the daemon's own members may have any value
    entry.address = address;
    std::memset(entry.name, 0, sizeof entry.name);
    name.copy(entry.name, sizeof entry.name);
    entry.attr1 = 1;
    entry.attr2 = 0xABCDEF01;
    entry.attr3 = 0xFFFFFFFF;
    entry.extAttr1 = 0x11;
    entry.extAttr2 = 0x22;
    entry.extAttr3 = 0x33;
    entry.extAttr4 = 0x44;
    entry.extAttr5 = 0x55;
    entry.extAttr6 = 0x66;
    entry.extAttr7 = 0x77;
    return entry;
}

ConnectionClientEntry client(const std::string &name, uint32_t value)
{
    ConnectionClientEntry client{};
    name.copy(client.name, sizeof client.name);
    client.value = value;
    return client;
}

/// A buffer followed by guard bytes.
struct Buffer {
    explicit Buffer(std::size_t usable) : bytes(usable + 16, kPattern), size(static_cast<uint32_t>(usable)) {}

    [[nodiscard]] bool guardIntact() const { return bytes.substr(size) == std::string(16, kPattern); }
    [[nodiscard]] bool untouched() const { return bytes == std::string(bytes.size(), kPattern); }
    [[nodiscard]] std::string text() const { return bytes.c_str(); }

    std::string bytes;
    uint32_t size;
};

constexpr const char *kBasicElement = "0A000005 00000001 ABCDEF01 FFFFFFFF 00000003 st1 ";
constexpr const char *kExtension = "00000011 00000022 00000033 00000044 00000055 00000066 00000077 ";

// ---- Writing ----

TEST(DescriptionWriter, writes_upper_case_fields_of_fixed_width_each_followed_by_a_space)
{
    const ConnectionEntry entries[] = {entry(0x0A000005, "st1")};
    Buffer buffer(200);
    EXPECT_EQ(ConvertConArray2Text(1, entries, buffer.bytes.data(), buffer.size), 0);
    EXPECT_EQ(buffer.text(), std::string("00000001 ") + kBasicElement);

    Buffer extended(300);
    EXPECT_EQ(ConvertConArray2TextEx(1, entries, extended.bytes.data(), extended.size), 0);
    EXPECT_EQ(extended.text(), std::string("00000001 ") + kBasicElement + kExtension);

    const ConnectionClientEntry clients[] = {client("panel 7", 0xC0FFEE)};
    Buffer list(100);
    EXPECT_EQ(ConvertConArray2TextClients(1, clients, list.bytes.data(), list.size), 0);
    EXPECT_EQ(list.text(), "00000001 00C0FFEE 00000007 panel 7 ");
}

TEST(DescriptionWriter, writes_a_single_extended_element_without_a_count)
{
    const ConnectionEntry station = entry(0x0A000005, "st1");
    Buffer buffer(200);
    EXPECT_EQ(ConvertConElem2TextEx(&station, buffer.bytes.data(), buffer.size), 1);
    EXPECT_EQ(buffer.text(), std::string(kBasicElement) + kExtension);
}

TEST(DescriptionWriter, a_single_element_needs_its_name_and_117_bytes)
{
    const ConnectionEntry station = entry(0x0A000005, "st1");
    Buffer exact(120);
    EXPECT_EQ(ConvertConElem2TextEx(&station, exact.bytes.data(), exact.size), 1);
    EXPECT_TRUE(exact.guardIntact());
    Buffer small(119);
    EXPECT_EQ(ConvertConElem2TextEx(&station, small.bytes.data(), small.size), -1);
    EXPECT_TRUE(small.untouched());
}

struct ListWriter {
    const char *name;
    int (*write)(char *buffer, uint32_t size);
    int required;
};

const ConnectionEntry kStations[] = {entry(0x0A000005, "st1"), entry(0x0A000006, "")};
const ConnectionClientEntry kClients[] = {client("st1", 1), client("", 2)};

class DescriptionWriterSize : public testing::TestWithParam<ListWriter> {};

TEST_P(DescriptionWriterSize, the_exact_size_succeeds_and_one_byte_less_writes_nothing)
{
    const ListWriter &writer = GetParam();
    const auto required = static_cast<std::size_t>(writer.required);
    Buffer exact(required);
    EXPECT_EQ(writer.write(exact.bytes.data(), exact.size), 0);
    EXPECT_TRUE(exact.guardIntact());
    EXPECT_LT(exact.text().size(), required);
    Buffer small(required - 1);
    EXPECT_EQ(writer.write(small.bytes.data(), small.size), writer.required);
    EXPECT_TRUE(small.untouched());
    EXPECT_EQ(writer.write(nullptr, 0), writer.required);
}

const std::vector<ListWriter> kListWriters = {
    {"basic", [](char *to, uint32_t size) { return ConvertConArray2Text(2, kStations, to, size); }, 17 + 45 * 2 + 3 + 3 * 2},
    {"extended", [](char *to, uint32_t size) { return ConvertConArray2TextEx(2, kStations, to, size); },
     17 + 108 * 2 + 3 + 3 * 2},
    {"clients", [](char *to, uint32_t size) { return ConvertConArray2TextClients(2, kClients, to, size); },
     17 + 18 * 2 + 3 + 3 * 2},
    {"no_stations", [](char *to, uint32_t size) { return ConvertConArray2Text(0, nullptr, to, size); }, 17},
    {"no_stations_extended", [](char *to, uint32_t size) { return ConvertConArray2TextEx(0, nullptr, to, size); }, 17},
    {"no_clients", [](char *to, uint32_t size) { return ConvertConArray2TextClients(0, nullptr, to, size); }, 17}};

INSTANTIATE_TEST_SUITE_P(Table, DescriptionWriterSize, testing::ValuesIn(kListWriters),
                         [](const auto &row) { return row.param.name; });

TEST(DescriptionWriter, an_empty_list_is_only_its_count)
{
    Buffer buffer(17);
    EXPECT_EQ(ConvertConArray2Text(0, nullptr, buffer.bytes.data(), buffer.size), 0);
    EXPECT_EQ(buffer.text(), "00000000 ");
}

TEST(DescriptionWriter, a_large_attribute_is_eight_digits_wide)
{
    ConnectionEntry station = entry(0x0A000005, std::string(259, 'n'));
    station.extAttr7 = ~0UL;
    Buffer buffer(259 + 117);
    EXPECT_EQ(ConvertConElem2TextEx(&station, buffer.bytes.data(), buffer.size), 1);
    EXPECT_TRUE(buffer.guardIntact());
    EXPECT_EQ(buffer.text().size(), 45U + 259 + 1 + 63);
    EXPECT_TRUE(buffer.text().ends_with(" 00000066 FFFFFFFF "));
}

TEST(DescriptionWriter, a_name_without_terminator_is_not_read_beyond_its_field)
{
    ConnectionEntry station = entry(1, std::string(260, 'n'));
    Buffer buffer(1000);
    EXPECT_EQ(ConvertConElem2TextEx(&station, buffer.bytes.data(), buffer.size), 1);
    EXPECT_EQ(buffer.text().size(), 45U + 260 + 1 + 63);
}

// ---- Reading ----

TEST(DescriptionReader, reads_what_the_writer_wrote)
{
    const std::vector<ConnectionEntry> entries = {entry(0x0A000005, "st1"), entry(0xFFFFFFFF, "press line 4  north "),
                                                  entry(0, ""), entry(7, std::string(259, '\xC3'))};
    std::string text(2000, '\0');
    ASSERT_EQ(ConvertConArray2TextEx(4, entries.data(), text.data(), 2000), 0);
    std::vector<KvoDescriptionEx> read(5);
    std::memset(read.data(), kPattern, 5 * sizeof(KvoDescriptionEx));
    uint32_t count = 0;
    ASSERT_EQ(ConvertText2KVODescArrayEx(&count, read.data(), ExactText(text.c_str())), 1);
    ASSERT_EQ(count, 4U);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(read[i].address, entries[i].address);
        EXPECT_STREQ(read[i].name, entries[i].name);
        EXPECT_EQ(read[i].attr1, 1U);
        EXPECT_EQ(read[i].attr2, 0xABCDEF01);
        EXPECT_EQ(read[i].attr3, 0xFFFFFFFF);
        EXPECT_EQ(read[i].extAttr1, 0x11U);
        EXPECT_EQ(read[i].extAttr2, 0x22U);
        EXPECT_EQ(read[i].extAttr3, 0x33U);
        EXPECT_EQ(read[i].extAttr4, 0x44U);
        EXPECT_EQ(read[i].extAttr5, 0x55U);
        EXPECT_EQ(read[i].extAttr6, 0x66U);
        EXPECT_EQ(read[i].extAttr7, 0x77U);
    }
    EXPECT_EQ(read[4].address, 0x5A5A5A5AU) << "after the last element";

    ASSERT_EQ(ConvertConArray2Text(4, entries.data(), text.data(), 2000), 0);
    std::vector<KvoDescription> basic(4);
    ASSERT_EQ(ConvertText2KVODescriptionArray(&count, basic.data(), ExactText(text.c_str())), 1);
    EXPECT_STREQ(basic[1].name, "press line 4  north ");
    EXPECT_EQ(basic[3].address, 7U);
    EXPECT_EQ(std::string(basic[3].name), std::string(259, '\xC3'));
}

TEST(DescriptionReader, clients_are_read_with_value_and_name_swapped)
{
    uint32_t count = 0;
    KvoClientEntry read[2];
    ASSERT_EQ(ConvertText2KVOClientArray(&count, read, ExactText("00000002 00000001 00000003 st1 FFFFFFFF 00000000  ")), 1);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(read[0].value, 1U);
    EXPECT_STREQ(read[0].name, "st1");
    EXPECT_EQ(read[1].value, 0xFFFFFFFF);
    EXPECT_STREQ(read[1].name, "");
}

TEST(DescriptionReader, reads_one_element_without_a_count)
{
    KvoDescriptionEx read;
    std::memset(&read, kPattern, sizeof read);
    ASSERT_EQ(ConvertText2KVODescEx(&read, ExactText(std::string(kBasicElement) + kExtension)), 1);
    EXPECT_EQ(read.address, 0x0A000005U);
    EXPECT_STREQ(read.name, "st1");
    EXPECT_EQ(read.name[4], kPattern) << "after the name's terminator";
    EXPECT_EQ(read.extAttr7, 0x77U);
}

struct ListText {
    const char *name;
    std::string text;
    int result;
    uint32_t count;
};

std::ostream &operator<<(std::ostream &out, const ListText &row) { return out << row.name; }

std::string listOf(const std::string &element) { return "00000001 " + element; }

std::string named(std::size_t announced, const std::string &name)
{
    char length[10];
    std::snprintf(length, sizeof length, "%08zX ", announced);
    return "0A000005 00000001 00000002 00000003 " + std::string(length) + name;
}

class BasicListText : public testing::TestWithParam<ListText> {};

TEST_P(BasicListText, has_the_expected_result)
{
    KvoDescription array[3];
    std::memset(array, kPattern, sizeof array);
    uint32_t count = 0x5A5A5A5A;
    EXPECT_EQ(ConvertText2KVODescriptionArray(&count, array, ExactText(GetParam().text)), GetParam().result);
    EXPECT_EQ(count, GetParam().count);
    if (count == 0) {
        EXPECT_EQ(array[0].address, 0x5A5A5A5AU) << "the array of an empty list";
    }
}

const std::vector<ListText> kListTexts = {
    {"empty_list", "00000000 ", 1, 0},
    {"count_without_space", "00000000", -1, 0},
    {"count_with_comma", "0000000A,", -1, 10},
    {"no_text", "", -1, 0},
    {"no_element", "00000001 ", -1, 1},
    {"whole_element", listOf(kBasicElement), 1, 1},
    {"count_shorter_than_its_field", "1        " + std::string(kBasicElement), 1, 1},
    {"short_count_then_the_text_ends", "1 ", -1, 1},
    {"more_elements_announced", "00000002 " + std::string(kBasicElement), -1, 2},
    {"lower_case_digits", listOf("0a000005 00000001 abcdef01 ffffffff 00000003 st1 "), 1, 1},
    {"blanks_signs_and_prefixes", listOf("      +5 0x000001 -0000001 \t\v\f\r    7 00000003 st1 "), 1, 1},
    {"two_digits_missing", listOf("0A0005 00000001 00000002 00000003 00000003 st1 "), 1, 1},
    {"letter_in_place_of_a_digit", listOf("0A00000G 00000001 00000002 00000003 00000003 st1 "), -1, 1},
    {"tab_for_space", listOf("0A000005\t00000001 00000002 00000003 00000003 st1 "), -1, 1},
    {"fifth_space_missing", listOf("0A000005 00000001 00000002 00000003 00000003,st1 "), -1, 1},
    {"cut_inside_a_number", listOf("0A000005 0000"), -1, 1},
    {"cut_after_a_number", listOf("0A000005 00000001 "), -1, 1},
    {"name_of_259_characters", listOf(named(259, std::string(259, 'n') + " ")), 1, 1},
    {"name_of_260_characters", listOf(named(260, std::string(260, 'n') + " ")), -1, 1},
    {"name_length_beyond_32_bits", listOf("0A000005 00000001 00000002 00000003 10000000000000003 st1 "), -1, 1},
    {"last_name_cut", listOf(named(10, "st1")), 1, 1},
    {"last_name_missing", listOf(named(10, "")), 1, 1},
    {"name_past_the_end", listOf("0A000005 00000001 00000002 00000003 3 "), -1, 1},
    {"element_after_a_cut_name", "00000002 " + named(10, "st1"), -1, 2}};

INSTANTIATE_TEST_SUITE_P(Table, BasicListText, testing::ValuesIn(kListTexts), [](const auto &row) { return row.param.name; });

TEST(DescriptionReader, a_truncated_last_name_is_accepted)
{
    KvoDescription array[1];
    std::memset(array, kPattern, sizeof array);
    uint32_t count = 0;
    ASSERT_EQ(ConvertText2KVODescriptionArray(&count, array, ExactText(listOf(named(10, "st1")))), 1);
    EXPECT_STREQ(array[0].name, "st1");
    EXPECT_EQ(array[0].name[10], '\0') << "where the announced name ends";
    EXPECT_EQ(array[0].name[11], kPattern);

    KvoClientEntry clients[1];
    EXPECT_EQ(ConvertText2KVOClientArray(&count, clients, ExactText("00000001 00000001 00000009 st1")), 1);
    EXPECT_STREQ(clients[0].name, "st1");
}

TEST(DescriptionReader, extended_elements_need_their_whole_name_and_all_fields)
{
    KvoDescriptionEx record;
    const std::string whole = std::string(kBasicElement) + kExtension;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(ConvertText2KVODescEx(&record, ExactText(whole.substr(0, length))), -1) << length << " characters";
    }
    EXPECT_EQ(ConvertText2KVODescEx(&record, ExactText(whole)), 1);
    for (int field = 0; field < 7; ++field) {
        std::string broken = whole;
        broken[49 + static_cast<std::size_t>(field) * 9 + 8] = ',';
        EXPECT_EQ(ConvertText2KVODescEx(&record, ExactText(broken)), -1) << "space after extended field " << field;
    }
    for (int field = 0; field < 5; ++field) {
        std::string broken = whole;
        broken[static_cast<std::size_t>(field) * 9 + 8] = ',';
        EXPECT_EQ(ConvertText2KVODescEx(&record, ExactText(broken)), -1) << "space after field " << field;
    }
}

TEST(DescriptionReader, elements_before_an_error_are_filled)
{
    KvoDescription array[2];
    std::memset(array, kPattern, sizeof array);
    uint32_t count = 0;
    EXPECT_EQ(ConvertText2KVODescriptionArray(&count, array, ExactText("00000002 " + std::string(kBasicElement) + "bad")), -1);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(array[0].address, 0x0A000005U);
    EXPECT_STREQ(array[0].name, "st1");
}

TEST(DescriptionReader, clients_need_a_space_after_each_number)
{
    KvoClientEntry clients[1];
    uint32_t count = 0;
    EXPECT_EQ(ConvertText2KVOClientArray(&count, clients, ExactText("00000001 00000001,00000003 st1 ")), -1);
    EXPECT_EQ(ConvertText2KVOClientArray(&count, clients, ExactText("00000001 00000001 00000003,st1 ")), -1);
    EXPECT_EQ(ConvertText2KVOClientArray(&count, clients, ExactText("00000001 00000001 00000104 " + std::string(260, 'n'))),
              -1);
    EXPECT_EQ(ConvertText2KVOClientArray(&count, clients, ExactText("00000001 00000001 3 ")), -1);
}

TEST(DescriptionReader, elements_start_at_a_fixed_offset_for_any_count)
{
    KvoDescription array[1];
    uint32_t count = 0;
    EXPECT_EQ(ConvertText2KVODescriptionArray(&count, array, ExactText("00000000001 " + std::string(kBasicElement))), 1);
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(array[0].address, 1U) << "the last two digits of the count, at offset 9";
}

TEST(DescriptionCount, is_read_from_the_beginning)
{
    EXPECT_EQ(GetCountKVODescriptionsFromText(ExactText("0000000A ")), 10U);
    EXPECT_EQ(GetCountKVODescriptionsFromTextEx(ExactText("0000000A ")), 10U);
    EXPECT_EQ(GetCountKVODescriptionsFromText(ExactText("0000000A,")), 0xFFFFFFFF);
    EXPECT_EQ(GetCountKVODescriptionsFromTextEx(ExactText("0000000A")), 0xFFFFFFFF);
    EXPECT_EQ(GetCountKVODescriptionsFromText(ExactText("")), 0xFFFFFFFF);
}

}  // namespace
