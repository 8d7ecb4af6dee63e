// The lines of a recording: each line is read back as it was written, people may edit it, and mistakes are explained.
#include "common/recording/escape.h"
#include "common/recording/line.h"
#include "tools/common/recording/rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace tools::recording;
using namespace recording_test;
using testing::HasSubstr;
using testing::ThrowsMessage;

class ValidLine : public testing::TestWithParam<Row> {};

TEST_P(ValidLine, is_read) { EXPECT_TRUE(parse(GetParam().text()) == GetParam().line()); }

INSTANTIATE_TEST_SUITE_P(Written, ValidLine, testing::ValuesIn(rows("written")), nameOf);
INSTANTIATE_TEST_SUITE_P(Edited, ValidLine, testing::ValuesIn(rows("edited")), nameOf);

class WrittenLine : public testing::TestWithParam<Row> {};

TEST_P(WrittenLine, is_this_text) { EXPECT_EQ(format(GetParam().line()), GetParam().text()); }
TEST_P(WrittenLine, is_read_with_a_carriage_return) { EXPECT_TRUE(parse(GetParam().text() + '\r') == GetParam().line()); }

INSTANTIATE_TEST_SUITE_P(All, WrittenLine, testing::ValuesIn(rows("written")), nameOf);

class MistakenLine : public testing::TestWithParam<Row> {};

TEST_P(MistakenLine, is_explained)
{
    EXPECT_THAT([] { parse(GetParam().text()); }, ThrowsMessage<LineError>(HasSubstr(GetParam().message())));
}

INSTANTIATE_TEST_SUITE_P(All, MistakenLine, testing::ValuesIn(rows("mistakes")), nameOf);

// ---- Quoted texts ----

std::string quotedText(std::string_view bytes)
{
    std::string text;
    appendQuoted(text, bytes);
    return text;
}

struct Bytes {
    const char *name;
    std::string_view bytes;
    const char *text;
};

void PrintTo(const Bytes &row, std::ostream *out) { *out << row.name; }

const Bytes kBytes[] = {
    {"nothing", "", R"("")"},
    {"letters", "getVersion", R"("getVersion")"},
    {"line_end", "a\r\n", R"("a\r\n")"},
    {"tab_quote_and_backslash", "\t\"\\", R"("\t\"\\")"},
    {"zero_byte", std::string_view("a\0b", 3), R"("a\x00b")"},
    {"escape_character_and_delete", "\x1B\x7F", R"("\x1B\x7F")"},
    {"umlaut_stays", "Fr\xC3\xA4s", "\"Fr\xC3\xA4s\""},
    {"four_byte_character_stays", "\xF0\x9F\x98\x80", "\"\xF0\x9F\x98\x80\""},
    {"byte_that_is_not_utf8", "a\xA7z", R"("a\xA7z")"},
    {"incomplete_character", "\xC3", R"("\xC3")"},
    {"overlong_character", "\xC0\x80\xE0\x80\x80", R"("\xC0\x80\xE0\x80\x80")"},
    {"surrogate", "\xED\xA0\x80", R"("\xED\xA0\x80")"},
    {"beyond_unicode", "\xF4\x90\x80\x80", R"("\xF4\x90\x80\x80")"},
    {"second_control_set", "\xC2\x85", R"("\xC2\x85")"},
    {"mark_of_the_writing_direction", "\xE2\x80\xAE", R"("\xE2\x80\xAE")"},
    {"byte_order_mark", "\xEF\xBB\xBF", R"("\xEF\xBB\xBF")"},
};

class QuotedBytes : public testing::TestWithParam<Bytes> {};

TEST_P(QuotedBytes, are_this_text) { EXPECT_EQ(quotedText(GetParam().bytes), GetParam().text); }

TEST_P(QuotedBytes, are_read_back)
{
    std::string_view rest = GetParam().text;
    EXPECT_EQ(takeQuoted(rest), std::string(GetParam().bytes));
    EXPECT_EQ(rest, "");
}

INSTANTIATE_TEST_SUITE_P(All, QuotedBytes, testing::ValuesIn(kBytes), [](const auto &row) { return row.param.name; });

TEST(Quoting, of_every_byte_is_printable_and_is_read_back)
{
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    const std::string text = quotedText(all);
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char byte) { return byte >= ' ' && byte <= '~'; }));
    std::string_view rest = text;
    EXPECT_EQ(takeQuoted(rest), all);
}

TEST(Quoting, accepts_small_hexadecimal_digits)
{
    std::string_view rest = R"("\xa7" tail)";
    EXPECT_EQ(takeQuoted(rest), "\xA7");
    EXPECT_EQ(rest, " tail");
}

}  // namespace
