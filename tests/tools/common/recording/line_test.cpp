// The lines of a recording: each line is read back as it was written, people may edit it, and mistakes are explained.
#include "common/recording/escape.h"
#include "common/recording/line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using namespace tools::recording;
using testing::HasSubstr;
using testing::ThrowsMessage;

// ---- Lines as they are written ----

struct Written {
    const char *name;
    Line line;
    const char *text;
};

void PrintTo(const Written &row, std::ostream *out) { *out << row.name; }

const Written kWritten[] = {
    {"version", Version{1}, "kvo-recording 1"},
    {"start_in_utc_with_microseconds", Start{StartTime(1795356000000042us)}, "start 2026-11-22T14:00:00.000042Z"},
    {"program_with_a_name", Process{3, 4711, "panel program"}, R"(process 3 4711 "panel program")"},
    {"usual_exchange",
     Exchange{12345678us, Kind::ask, 1, {{0us, "getMCPAddress 0A000005\n"}}, false, {{312us, "5\n"}}, End::closed, 0us},
     R"(12.345678 ask 1 > "getMCPAddress 0A000005\n" < +0.000312 "5\n")"},
    {"reply_in_pieces", Exchange{0us, Kind::ask, 1, {{0us, "a\n"}}, false, {{5us, "b"}, {1s, "c\n"}}, End::closed, 0us},
     R"(0.000000 ask 1 > "a\n" < +0.000005 "b" +1.000000 "c\n")"},
    {"request_in_pieces_that_ends_its_direction",
     Exchange{1us, Kind::ask, 1, {{0us, "a"}, {2s, "b\n"}}, true, {{1us, "ok\n"}}, End::closed, 0us},
     R"(0.000001 ask 1 > "a" +2.000000 "b\n" eof < +0.000001 "ok\n")"},
    {"closed_without_a_reply", Exchange{1s, Kind::ask, 2, {{0us, "a\n"}}, false, {}, End::closed, 10ms},
     R"(1.000000 ask 2 > "a\n" < +0.010000 closed)"},
    {"given_up_by_the_program_after_4_s", Exchange{1s, Kind::ask, 2, {{0us, "a\n"}}, false, {}, End::left, 4s},
     R"(1.000000 ask 2 > "a\n" < +4.000000 left)"},
    {"reset", Exchange{1s, Kind::ask, 2, {}, false, {}, End::reset, 0us}, "1.000000 ask 2 > < reset"},
    {"still_open_at_the_end", Exchange{1s, Kind::ask, 0, {{0us, "a"}}, false, {}, End::open, 0us},
     R"(1.000000 ask 0 > "a" < open)"},
    {"usb_event", Exchange{20s, Kind::usb, 4, {{0us, "suicide\n"}}, false, {{1ms, "ok\n"}}, End::closed, 0us},
     R"(20.000000 usb 4 > "suicide\n" < +0.001000 "ok\n")"},
    {"embedded_event", Exchange{20s, Kind::event, 0, {{0us, "alive\n"}}, false, {}, End::closed, 0us},
     R"(20.000000 event 0 > "alive\n" <)"},
    {"note", Note{3s, "the service ended"}, R"(3.000000 note "the service ended")"},
};

class WrittenLine : public testing::TestWithParam<Written> {};

TEST_P(WrittenLine, is_this_text) { EXPECT_EQ(format(GetParam().line), GetParam().text); }
TEST_P(WrittenLine, is_read_back) { EXPECT_TRUE(parse(GetParam().text) == GetParam().line); }
TEST_P(WrittenLine, is_read_with_a_carriage_return)
{
    EXPECT_TRUE(parse(std::string(GetParam().text) + '\r') == GetParam().line);
}

INSTANTIATE_TEST_SUITE_P(All, WrittenLine, testing::ValuesIn(kWritten), [](const auto &row) { return row.param.name; });

// ---- Lines that people write ----

TEST(EditedLine, may_have_more_blanks_and_tabs)
{
    EXPECT_TRUE(parse("  1.5\task  1 >  \"a\"   <   +0.25   \"b\" ") ==
                Line(Exchange{1500ms, Kind::ask, 1, {{0us, "a"}}, false, {{250ms, "b"}}, End::closed, 0us}));
}

TEST(EditedLine, may_be_empty_or_a_comment)
{
    EXPECT_TRUE(parse("") == Line(Nothing{}));
    EXPECT_TRUE(parse(" \t") == Line(Nothing{}));
    EXPECT_TRUE(parse("# 1.0 ask") == Line(Nothing{}));
}

TEST(EditedLine, may_have_an_offset_without_decimals) { EXPECT_TRUE(parse("7 note \"x\"") == Line(Note{7s, "x"})); }

// ---- Mistakes ----

struct Mistake {
    const char *name;
    const char *text;
    const char *message;
};

void PrintTo(const Mistake &row, std::ostream *out) { *out << row.name; }

const Mistake kMistakes[] = {
    {"unknown_first_word", "frobnicate 1", R"(expected an offset in seconds, "start" or "process", found "frobnicate 1")"},
    {"version_that_is_not_a_number", "kvo-recording one", R"(expected the version of the format, such as 1, found "one")"},
    {"word_after_the_end", "kvo-recording 1 2", R"(expected the end of the line, found "2")"},
    {"start_without_a_zone", "start 2026-11-22T14:00:00.000000", "expected a time in UTC, such as 2026-11-22T14:00:00.000000Z"},
    {"start_on_a_day_that_does_not_exist", "start 2026-02-30T14:00:00Z", "expected a time in UTC"},
    {"start_at_an_hour_that_does_not_exist", "start 2026-11-22T24:00:00Z", "expected a time in UTC"},
    {"start_at_a_minute_that_does_not_exist", "start 2026-11-22T14:60:00Z", "expected a time in UTC"},
    {"start_at_a_second_that_does_not_exist", "start 2026-11-22T14:00:60Z", "expected a time in UTC"},
    {"start_with_a_sign", "start 2026-11-22T14:+1:00Z", "expected a time in UTC"},
    {"start_without_a_time", "start 2026-11-22Z", "expected a time in UTC"},
    {"offset_with_seven_decimals", "1.1234567 ask 1 > <", "expected an offset in seconds"},
    {"negative_offset", "-1 ask 1 > <", "expected an offset in seconds"},
    {"offset_that_is_too_large", "1000000000001 ask 1 > <", "expected an offset in seconds"},
    {"unknown_kind", "1 tell 1 > <", R"(expected "ask", "usb", "event" or "note", found "tell 1 > <")"},
    {"program_without_a_number", "1 ask x > <", R"(expected the number of a program, or 0, found "x > <")"},
    {"request_without_its_mark", "1 ask 1 \"a\" <", R"(expected ">", found "\"a\" <")"},
    {"no_reply_mark", "1 ask 1 > \"a\"", R"(expected "<", found the end of the line)"},
    {"text_without_its_end", "1 ask 1 > \"a", R"(the quoted text "\"a" is not complete)"},
    {"unknown_escape", R"(1 ask 1 > "\q" <)", R"(or has an escape other than \n, \r, \t, \", \\ and \xNN)"},
    {"text_glued_to_a_word", "1 ask 1 > \"a\"< ", R"(expected a blank after the quoted text, found "< ")"},
    {"pause_before_the_reply_mark", "1 ask 1 > \"a\" +1 <", R"(expected a text in double quotes after the pause, found "<")"},
    {"pause_without_an_end", "1 ask 1 > \"a\" < +1",
     R"(expected "closed", "left", "reset" or "open", found the end of the line)"},
    {"unknown_end", "1 ask 1 > < gone", R"(expected "closed", "left", "reset" or "open", found "gone")"},
    {"pause_that_is_not_a_number", "1 ask 1 > +x \"a\" <", "expected seconds with up to six decimals, such as +1.250000"},
    {"note_without_a_text", "1 note", "expected a text in double quotes"},
};

class MistakenLine : public testing::TestWithParam<Mistake> {};

TEST_P(MistakenLine, is_explained)
{
    EXPECT_THAT([] { parse(GetParam().text); }, ThrowsMessage<LineError>(HasSubstr(GetParam().message)));
}

INSTANTIATE_TEST_SUITE_P(All, MistakenLine, testing::ValuesIn(kMistakes), [](const auto &row) { return row.param.name; });

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
