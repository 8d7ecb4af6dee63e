// The summary of a trace.
#include "exchanges.h"

#include "kvoctl/output/display_text.h"
#include "kvoctl/trace/summary.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <sstream>
#include <utility>
#include <vector>

namespace kvoctl_test {

namespace {

using kvoctl::StartTime;
using kvoctl::Summary;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const StartTime kStart{1'782'907'200'000'000us};
constexpr const char *kWhyNothing = "No program used the socket.";

class TraceSummary : public testing::Test {
protected:
    TraceSummary()
    {
        kvoctl::useUtf8();
        setenv("TZ", "UTC", 1);
        tzset();
    }

    [[nodiscard]] std::string text(uint64_t dropped = 0) const
    {
        std::ostringstream out;
        summary_.write(out, kStart, 60'040ms, dropped, kWhyNothing, {80});
        return out.str();
    }
    [[nodiscard]] kvoctl::Document document(uint64_t dropped = 0) const { return summary_.document(kStart, 60'040ms, dropped); }

    Summary summary_;
};

TEST_F(TraceSummary, counts_commands_failures_and_programs)
{
    for (int i = 0; i < 3; ++i) {
        summary_.add(entry("getVersion\n", "V1\n"));
    }
    summary_.add(entryOf({12, "hmi"}, exchange("getDLV2 8\n", "failed\n")));
    summary_.add(entryOf({13, "hmi"}, exchange("getVersion\n", "", End::left)));
    summary_.add(entryOf({14, ""}, exchange("suicide\n", "ok\n", End::closed, Kind::usb)));
    summary_.add(entryOf({0, ""}, exchange("focus,1\n", "", End::open, Kind::event)));
    summary_.add(entryOf({15, "listener"}, exchange("", "", End::closed, Kind::event)));  // not an event
    EXPECT_EQ(text(), R"(5 requests, 1 USB event, 1 embedded event in 60.0 s, 2 failed

COMMAND        COUNT  FAILED     MEAN  SLOWEST
getVersion         4       1  1.000 s  4.000 s
focus (event)      1       0
getDLV2            1       1  0.40 ms  0.40 ms
suicide (usb)      1       0  0.40 ms  0.40 ms

FAILED  COMMAND     REPLY
     1  getDLV2     failed
     1  getVersion  (no reply)

PROGRAM       COUNT  FAILED
panel             3       0
hmi               2       2
(ended)           1       0
(this trace)      1       0

Slowest:
12:00:01.500+00 hmi[13]      4.000 s > getVersion (no reply)
12:00:01.500+00 panel[4711]  0.40 ms > getVersion < V1
12:00:01.500+00 panel[4711]  0.40 ms > getVersion < V1
)");
}

TEST_F(TraceSummary, says_why_nothing_was_seen)
{
    EXPECT_EQ(text(), "no request was seen in 60.0 s\nNo program used the socket.\n");
    EXPECT_FALSE(summary_.hasSeen());
}

TEST_F(TraceSummary, says_that_the_filters_left_out_everything)
{
    summary_.addOther();
    summary_.addOther();
    EXPECT_EQ(text(), "no request was seen in 60.0 s; the filters left out 2 more\n");
}

TEST_F(TraceSummary, says_how_many_exchanges_were_not_shown)
{
    summary_.add(entry("getVersion\n", "V1\n"));
    EXPECT_THAT(text(), StartsWith("1 request in 60.0 s, 0 failed\n\n"));
    EXPECT_THAT(text(1), HasSubstr("\n1 exchange was not shown: the reader of the output was too slow\n"));
    EXPECT_THAT(text(20), HasSubstr("\n20 exchanges were not shown: the reader of the output was too slow\n"));
}

TEST_F(TraceSummary, shows_the_slowest_requests_first)
{
    for (const auto time : {30ms, 10ms, 50ms, 20ms, 40ms}) {
        summary_.add(entryOf(kPanel, inPieces({{0us, "a" + std::to_string(time.count()) + "\n"}}, {{time, "ok\n"}})));
    }
    const auto slowest = document()["slowest"];
    ASSERT_EQ(slowest.size(), 3U);
    EXPECT_EQ(slowest[0]["request"], "a50");
    EXPECT_EQ(slowest[1]["request"], "a40");
    EXPECT_EQ(slowest[2]["request"], "a30");
    EXPECT_EQ(slowest[2]["duration_ms"], 30.0);
}

TEST_F(TraceSummary, stays_small_whatever_programs_send)
{
    for (int i = 0; i < 2000; ++i) {
        const std::string number = std::to_string(i);
        summary_.add(entryOf({i + 1, "p" + number}, exchange(number + std::string(3000, 'x') + "\n", "failed\n")));
    }
    const auto all = document();
    EXPECT_EQ(all["commands"].size(), 501U);
    EXPECT_EQ(all["programs"].size(), 501U);
    EXPECT_LE(all["failures"].size(), 501U);
    EXPECT_EQ(all["commands"][0]["command"], "(others)");
    EXPECT_EQ(all["commands"][0]["count"], 1500);
    EXPECT_EQ(all["requests"], 2000);
    EXPECT_EQ(all["failed"], 2000);
    EXPECT_LE(all["commands"][1]["command"].get<std::string>().size(), 100U);
    EXPECT_THAT(text(), HasSubstr("\nand 491 more kinds of failures; see them with --failures\n"));
}

TEST_F(TraceSummary, is_one_object_for_programs)
{
    summary_.add(entry("getVersion\n", "V1\n"));
    summary_.addOther();
    EXPECT_EQ(document(7).dump(),
              R"({"kind":"summary","start":"2026-07-01T12:00:00.000000+00:00","seconds":60.04,"requests":1,"usb_events":0,)"
              R"("embedded_events":0,"bytes":14,"failed":0,"filtered_out":1,"not_shown":7,)"
              R"("commands":[{"command":"getVersion","count":1,"failed":0,"mean_ms":0.4,"slowest_ms":0.4}],"failures":[],)"
              R"("programs":[{"program":"panel","count":1,"failed":0}],"slowest":[{"time":"2026-07-01T12:00:01.500000+00:00",)"
              R"("pid":4711,"program":"panel","request":"getVersion","duration_ms":0.4}]})");
}

}  // namespace

}  // namespace kvoctl_test
