// The lines of a trace for people and for programs.
#include "exchanges.h"

#include "kvoctl/output/display_text.h"
#include "kvoctl/trace/trace_line.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <ostream>
#include <vector>

namespace kvoctl_test {

namespace {

using kvoctl::kUnlimited;
using kvoctl::Layout;
using kvoctl::StartTime;
using kvoctl::TraceLines;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

/// 2026-07-01 12:00:00.000250 UTC
const StartTime kSummer{1'782'907'200'000'250us};
const Layout kTerminal{80};
const Layout kPipe{kUnlimited};

class TraceLine : public testing::Test {
protected:
    explicit TraceLine(const char *zone = "UTC")
    {
        kvoctl::useUtf8();
        setenv("TZ", zone, 1);
        tzset();
    }

    static std::string line(const Entry &entry, const Layout &layout = kTerminal)
    {
        return TraceLines(kSummer).format(entry, layout);
    }
    static std::size_t width(const std::string &line) { return kvoctl::displayText(line).width; }
};

class ZoneOfTrace : public TraceLine, public testing::WithParamInterface<std::array<const char *, 4>> {
protected:
    ZoneOfTrace() : TraceLine(GetParam()[1]) {}
};

TEST_P(ZoneOfTrace, is_in_every_time)
{
    EXPECT_EQ(kvoctl::clockTime(kSummer), GetParam()[2]);
    EXPECT_EQ(kvoctl::fullTime(kSummer), GetParam()[3]);
}

// The zones are written out, so that the test needs no data about time zones.
const std::vector<std::array<const char *, 4>> kZones = {
    {"utc", "UTC", "12:00:00.000+00", "2026-07-01T12:00:00.000250+00:00"},
    {"summer_time", "CET-1CEST,M3.5.0,M10.5.0/3", "14:00:00.000+02", "2026-07-01T14:00:00.000250+02:00"},
    {"half_an_hour", "IST-5:30", "17:30:00.000+05:30", "2026-07-01T17:30:00.000250+05:30"},
    {"west", "XST3:30", "08:30:00.000-03:30", "2026-07-01T08:30:00.000250-03:30"},
    {"another_day", "LINT-14", "02:00:00.000+14", "2026-07-02T02:00:00.000250+14:00"}};

INSTANTIATE_TEST_SUITE_P(Rows, ZoneOfTrace, testing::ValuesIn(kZones),
                         [](const auto &row) { return std::string(row.param[0]); });

TEST(Duration, has_a_unit_and_at_most_three_decimals)
{
    EXPECT_EQ(kvoctl::durationText(0us), "0.00 ms");
    EXPECT_EQ(kvoctl::durationText(412us), "0.41 ms");
    EXPECT_EQ(kvoctl::durationText(10ms), "10.0 ms");
    EXPECT_EQ(kvoctl::durationText(999'800us), "999.8 ms");
    EXPECT_EQ(kvoctl::durationText(999'990us), "1.000 s");
    EXPECT_EQ(kvoctl::durationText(4'002'300us), "4.002 s");
}

TEST_F(TraceLine, has_time_program_duration_request_and_reply)
{
    EXPECT_EQ(line(entry("getMCPAddress=0A000005\n", "mcpaddr=12\n")),
              "12:00:01.500+00 panel[4711]  0.40 ms > getMCPAddress=0A000005 < mcpaddr=12");
}

struct ShownRow {
    std::string name;
    Entry entry;
    std::string shown;  ///< after the duration
};

std::ostream &operator<<(std::ostream &out, const ShownRow &row) { return out << row.name; }

const std::vector<ShownRow> kShown = {
    {"no_reply", entry("getVersion\n", "", End::left), " 4.000 s > getVersion (no reply)"},
    {"closed", entry("getVersion\n", ""), " 4.000 s > getVersion (closed)"},
    {"reset", entry("getVersion\n", "", End::reset), " 4.000 s > getVersion (reset)"},
    {"still_open", entry("getVersion\n", "", End::open), " 4.000 s > getVersion (still open)"},
    {"incomplete", entry("getVersion\n", "V1"), " 0.45 ms > getVersion < V1 (incomplete)"},
    {"empty_reply", entry("getVersion\n", "\n"), " 0.40 ms > getVersion < (empty)"},
    {"nothing_sent", entry("", ""), " 4.000 s > (nothing sent)"},
    {"several_lines", entry("a\nb\n", "c\nd\ne"), " 0.40 ms > a (+1 line) < c (+2 lines)"},
    {"control_characters", entry("a\x1b[31m\tb\n", "\x7f\n"), " 0.40 ms > a\\x1B[31m\\x09b < \\x7F"},
    {"invalid_utf8", entry("Fr\xE4se\n", "Fr\xC3\xA4se\n"), " 0.40 ms > Fr\\xE4se < Fr\xC3\xA4se"},
    {"usb_event", entry("suicide\n", "ok\n", End::closed, Kind::usb), " 0.40 ms usb> suicide < ok"},
    {"embedded_event", entry("focus,10.0.0.5\n", "", End::open, Kind::event), "         event> focus,10.0.0.5"},
    {"listener", entry("", "", End::closed, Kind::event), "         event> (listens)"}};

class ShownExchange : public TraceLine, public testing::WithParamInterface<ShownRow> {};

TEST_P(ShownExchange, ends_the_line) { EXPECT_THAT(line(GetParam().entry), EndsWith("panel[4711] " + GetParam().shown)); }

INSTANTIATE_TEST_SUITE_P(Rows, ShownExchange, testing::ValuesIn(kShown), [](const auto &row) { return row.param.name; });

TEST_F(TraceLine, fits_the_terminal_whatever_is_long)
{
    const std::string text(500, 'x');
    for (const Entry &one : {entry(text + "\n", "ok\n"), entry("getVersion\n", text + "\n"), entry(text + "\n", text + "\n"),
                             entry(text + "\na\nb\n", text + "\nb\nc\n"), entry(text + "\n", text), entry(text + "\n", ""),
                             entry(text + "\n", text + "\n", End::closed, Kind::usb)}) {
        for (const std::size_t columns : {80U, 100U, 132U}) {
            EXPECT_EQ(width(line(one, {columns})), columns) << line(one, {columns});
        }
    }
    EXPECT_EQ(width(line(entryOf({4194304, "a-program-with-"}, exchange(text + "\n", text + "\n")))), 80U);
}

TEST_F(TraceLine, cuts_the_request_before_it_cuts_a_short_reply)
{
    EXPECT_THAT(line(entry(std::string(500, 'x') + "\n", "busy\n")), EndsWith("xxx\u2026 < busy"));
    EXPECT_THAT(line(entry("getDLV2 8\n", std::string(500, 'x') + "\n")), HasSubstr("> getDLV2 8 < xxx"));
}

TEST_F(TraceLine, never_cuts_a_process_id)
{
    const std::string shown = line(entryOf({4194304, "a-program-with-"}, exchange("getVersion\n", "V1\n")));
    EXPECT_THAT(shown, HasSubstr(" a-progr\u2026[4194304] "));
}

TEST_F(TraceLine, is_uncut_and_without_colour_in_a_pipe)
{
    const std::string text(500, 'x');
    EXPECT_THAT(line(entryOf({4194304, "a-program-with-"}, exchange(text + "\n", text + "\n")), kPipe),
                EndsWith(" a-program-with-[4194304]  0.40 ms > " + text + " < " + text));
}

TEST_F(TraceLine, is_aligned_with_the_lines_before_it)
{
    TraceLines lines(kSummer);
    const std::string first = lines.format(entryOf({4711, "panel-hmi"}, exchange("a\n", "b\n")), kTerminal);
    const std::string second = lines.format(entryOf({1, "sh"}, exchange("a\n", "b\n")), kTerminal);
    EXPECT_EQ(first.find("> a"), second.find("> a"));
}

TEST_F(TraceLine, shows_only_failures_in_colour)
{
    const Layout coloured{80, true};
    EXPECT_THAT(line(entry("getVersion\n", "failed\n"), coloured), EndsWith("> getVersion\x1B[1;31m < failed\x1B[0m"));
    EXPECT_THAT(line(entry("getVersion\n", "", End::left), coloured), EndsWith("> getVersion\x1B[1;31m (no reply)\x1B[0m"));
    EXPECT_THAT(line(entry("getVersion\n", "V1\n"), coloured), Not(HasSubstr("\x1B")));
}

// ---- JSON ----

std::string json(const Peer &peer, const Exchange &exchange)
{
    return kvoctl::traceDocument(kSummer, peer, exchange).dump(-1, ' ', false, kvoctl::Document::error_handler_t::replace);
}

TEST_F(TraceLine, is_an_object_for_programs)
{
    EXPECT_EQ(json(kPanel, exchange("getVersion\n", "V1\n")),
              R"({"kind":"request","time":"2026-07-01T12:00:01.500250+00:00","pid":4711,"program":"panel",)"
              R"("request":"getVersion","reply":"V1","outcome":"done","failed":false,"duration_ms":0.4})");
    EXPECT_EQ(json({0, ""}, exchange("getVersion\n", "", End::left)),
              R"({"kind":"request","time":"2026-07-01T12:00:01.500250+00:00","pid":null,"program":null,)"
              R"("request":"getVersion","reply":null,"outcome":"no_reply","failed":true,"duration_ms":4000.0})");
    EXPECT_EQ(json(kPanel, exchange("focus,1\n", "", End::open, Kind::event)),
              R"({"kind":"event","time":"2026-07-01T12:00:01.500250+00:00","pid":4711,"program":"panel",)"
              R"("request":"focus,1","reply":null,"outcome":"done","failed":false,"duration_ms":null})");
    EXPECT_EQ(json(kPanel, exchange("", "", End::closed, Kind::event)),
              R"({"kind":"event","time":"2026-07-01T12:00:01.500250+00:00","pid":4711,"program":"panel",)"
              R"("request":"","reply":null,"outcome":"listens","failed":false,"duration_ms":null})");
}

TEST_F(TraceLine, has_all_bytes_for_programs)
{
    const std::string text(10'000, 'x');
    const auto document = kvoctl::traceDocument(kSummer, kPanel, exchange(text + "\nb\r\n", "c\nd"));
    EXPECT_EQ(document["request"], text + "\nb");
    EXPECT_EQ(document["reply"], "c\nd");
    EXPECT_FALSE(document.contains("request_hex"));
}

TEST_F(TraceLine, has_the_bytes_of_a_text_that_is_not_utf8)
{
    const std::string shown = json(kPanel, exchange("Fr\xE4se\n", "ok\n"));
    EXPECT_THAT(shown, HasSubstr("\"request\":\"Fr\uFFFDse\",\"request_hex\":\"4672e473650a\",\"reply\":\"ok\",\"outcome\""));
}

TEST_F(TraceLine, of_a_note_is_an_object_for_programs)
{
    EXPECT_EQ(kvoctl::traceDocument(kSummer, kvoctl::Note{2s, "the service has ended"}).dump(),
              R"({"kind":"note","time":"2026-07-01T12:00:02.000250+00:00","text":"the service has ended"})");
}

}  // namespace

}  // namespace kvoctl_test
