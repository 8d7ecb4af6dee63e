// The report of a replay, for people and for programs.
#include "kvosim/replay/report.h"
#include "tools/kvosim/support/named_row.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using kvosim::ReplayReport;

ReplayReport goodReport()
{
    ReplayReport report;
    report.file = "a.rec";
    report.asRecorded = report.recordedRequests = 3;
    report.usbEvents = {2, 2};
    report.embeddedEvents = {1, 1};
    return report;
}

const std::string kGood = "kvosim: replay of a.rec: 3 requests, all answered as recorded; 2 USB events; 1 embedded event\n";

struct ReportRow : kvosim_test::NamedRow {
    std::function<void(ReplayReport &report)> change;
    std::string text;
    bool isGood;
    bool meetsStrict;
};

class ReplayReports : public testing::TestWithParam<ReportRow> {};

TEST_P(ReplayReports, say_what_was_not_as_recorded)
{
    ReplayReport report = goodReport();
    GetParam().change(report);
    EXPECT_EQ(report.text(), GetParam().text);
    EXPECT_EQ(report.isGood(), GetParam().isGood);
    EXPECT_EQ(report.meetsStrict(), GetParam().meetsStrict);
    EXPECT_EQ(report.document()["good"], GetParam().isGood);
}

const std::vector<ReportRow> kReports = {
    {"good", [](ReplayReport &) {}, kGood, true, true},
    {"good_and_strict", [](ReplayReport &report) { report.isStrict = true; }, kGood, true, true},
    {"nothing", [](ReplayReport &report) { report = {.file = "a.rec"}; }, "kvosim: replay of a.rec: 0 requests\n", true, true},
    {"one", [](ReplayReport &report) { report = {.file = "a.rec", .asRecorded = 1, .recordedRequests = 1}; },
     "kvosim: replay of a.rec: 1 request answered as recorded\n", true, true},
    {"all_kinds",
     [](ReplayReport &report) {
         report.repeated = 1;
         report.fromPlant = 2;
         report.notAnswered = 4;
         report.unmatched = {{.request = "getMCPAddress=0A000006",
                              .count = 3,
                              .nearest = kvosim::RecordedText{4, "getMCPAddress=0A000005"},
                              .difference = "station 10.0.0.6 instead of 10.0.0.5"},
                             {.request = "reboot", .count = 1}};
     },
     "kvosim: replay of a.rec: 10 requests, 3 answered as recorded, 1 with the last answer again, 2 from the plant, 4 not "
     "answered; 2 USB events; 1 embedded event\n"
     "kvosim:   not recorded: \"getMCPAddress=0A000006\" (3 times); nearest: \"getMCPAddress=0A000005\" (line 4): station "
     "10.0.0.6 instead of 10.0.0.5\n"
     "kvosim:   not recorded: \"reboot\"\n",
     false, false},
    {"used_up",
     [](ReplayReport &report) {
         report.isStrict = true;
         report.notAnswered = 2;
         report.unmatched = {{.request = "a", .count = 2, .isUsedUp = true}};
     },
     "kvosim: replay of a.rec: 5 requests, 3 answered as recorded, 2 not answered; 2 USB events; 1 embedded event\n"
     "kvosim:   asked more often than recorded: \"a\" (2 times)\n"
     "kvosim:   --strict is not met\n",
     false, false},
    {"out_of_order",
     [](ReplayReport &report) {
         report.isStrict = true;
         report.outOfOrder = 2;
         report.firstOutOfOrder = kvosim::RecordedText{7, "a"};
     },
     kGood + "kvosim:   2 requests out of order, first \"a\" (line 7)\nkvosim:   --strict is not met\n", false, false},
    {"out_of_order_without_strict", [](ReplayReport &report) { report.outOfOrder = 2; }, kGood, true, false},
    {"never_asked",
     [](ReplayReport &report) {
         report.recordedRequests = 5;
         report.neverAsked = 2;
         report.firstNeverAsked = {{4, "a"}};
     },
     kGood + "kvosim:   never asked: 2 of 5 recorded requests: \"a\" (line 4), ...\n", true, false},
    {"events_not_sent",
     [](ReplayReport &report) {
         report.usbEvents = {3, 2};
         report.embeddedEvents = {4, 1};
     },
     kGood + "kvosim:   USB events: 2 of 3 were sent\nkvosim:   embedded events: 1 of 4 were sent\n", true, false},
    {"answered_differently",
     [](ReplayReport &report) {
         report.answeredDifferently = 1;
         report.firstAnsweredDifferently = {{9, "suicide", "ok", std::nullopt}};
     },
     kGood + "kvosim:   1 USB event answered differently, first \"suicide\" (line 9): no answer instead of \"ok\"\n", true,
     false},
    {"notes", [](ReplayReport &report) { report.notes = {"no registry"}; }, kGood + "kvosim:   no registry\n", true, true},
};

INSTANTIATE_TEST_SUITE_P(Table, ReplayReports, testing::ValuesIn(kReports), kvosim_test::kNameOfRow);

TEST(ReplayReport, shows_the_first_twenty_requests)
{
    ReplayReport report{.file = "a.rec"};
    for (int i = 0; i < 30; ++i) {
        report.unmatched.push_back({.request = "r" + std::to_string(i), .count = 2});
        report.notAnswered += 2;
    }
    const std::string text = report.text();
    EXPECT_NE(text.find("\"r19\""), std::string::npos);
    EXPECT_EQ(text.find("\"r20\""), std::string::npos);
    EXPECT_NE(text.find("and 20 more requests without an answer\n"), std::string::npos);
}

TEST(ReplayReport, names_the_size_of_a_whole_request)
{
    const std::string kept(4096, 'x');
    const ReplayReport report{.file = "a.rec", .notAnswered = 1, .unmatched = {{.request = kept, .size = 5000, .count = 1}}};
    EXPECT_NE(report.text().find(std::string(100, 'x') + "\"... (5000 bytes)\n"), std::string::npos) << report.text();
}

TEST(ReplayReport, quotes_and_cuts_texts)
{
    EXPECT_EQ(kvosim::quotedForReport("a\x1B\n"), R"("a\x1B\n")");
    EXPECT_EQ(kvosim::quotedForReport(std::string(200, 'x')), '"' + std::string(100, 'x') + "\"... (200 bytes)");
}

TEST(ReplayReport, has_all_figures_for_programs)
{
    ReplayReport report = goodReport();
    report.unmatched = {
        {.request = "b", .count = 1, .nearest = kvosim::RecordedText{4, "a"}, .difference = "different command"}};
    report.notAnswered = 1;
    report.answeredDifferently = 1;
    report.firstAnsweredDifferently = {{9, "suicide", "ok", std::nullopt}};
    report.neverAsked = 1;
    report.firstNeverAsked = {{5, "c"}};
    EXPECT_EQ(
        report.document().dump(),
        R"({"file":"a.rec","good":false,"requests":4,"answered_as_recorded":3,"answered_again":0,"answered_from_plant":0,)"
        R"("not_answered":1,"not_recorded":[{"request":"b","count":1,"used_up":false,"nearest":{"line":4,"request":"a"},)"
        R"("difference":"different command"}],"not_listed":0,"out_of_order":0,"recorded_requests":3,"without_line_end":0,)"
        R"("never_asked":1,"first_never_asked":[{"line":5,"request":"c"}],"usb_events":{"recorded":2,"sent":2,"not_sent":0,)"
        R"("answered_differently":1,"first_different":[{"line":9,"event":"suicide","recorded":"ok","given":null}]},)"
        R"("embedded_events":{"recorded":1,"sent":1,"not_sent":0},"strict":null,"notes":[]})");
    report.isStrict = true;
    EXPECT_EQ(report.document()["strict"], false);
}

}  // namespace
