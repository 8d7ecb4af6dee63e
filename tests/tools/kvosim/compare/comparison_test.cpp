// A comparison counts equal and different replies, at the times and in the order of the recording.
#include "kvosim/compare/comparison.h"
#include "tools/kvosim/commands/simulation.h"
#include "tools/kvosim/compare/recordings.h"
#include "tools/kvosim/support/named_row.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using kvosim::Comparison;
using kvosim_test::plantWith;
using kvosim_test::recordingOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;

Comparison comparisonOf(const std::string &keys, const std::string &lines, const std::string &service = "")
{
    return compare(recordingOf(lines), kvosim::parsePlant(service + plantWith(keys), "plant"));
}

std::string figures(const Comparison &comparison)
{
    const kvosim::Figures &total = comparison.total;
    return std::to_string(total.same) + " same, " + std::to_string(total.different) + " different, " +
           std::to_string(total.unanswered) + " unanswered, " + std::to_string(comparison.incomplete) + " incomplete";
}

struct Row : kvosim_test::NamedRow {
    std::string service;  ///< the plant file before its stations
    std::string keys;     ///< of the first station
    std::string lines;
    std::string figures;
};

class Compared : public testing::TestWithParam<Row> {};

TEST_P(Compared, has_figures)
{
    const Comparison comparison = comparisonOf(GetParam().keys, GetParam().lines, GetParam().service);
    EXPECT_EQ(figures(comparison), GetParam().figures);
}

const std::string kLong(4097, 'x');

const Row kRows[] = {
    {"equal_and_different_replies", "", "mcp_address = 5",
     R"(1.0 ask 1 > "getMCPAddress=0A000005\n" < "mcpaddr=5\n"
        2.0 ask 1 > "getMCPAddress=0A000006\n" < "mcpaddr=6\n"
)",
     "1 same, 1 different, 0 unanswered, 0 incomplete"},
    {"bytes_after_the_reply", "", "",
     R"(1.0 ask 1 > "lockKVORegData\n" < "ok\nok\n"
        2.0 ask 1 > "lockKVORegData\n" < "busy\n" "\n"
)",
     "0 same, 2 different, 0 unanswered, 0 incomplete"},
    {"carriage_return_in_the_reply", "", "", "1.0 ask 1 > \"lockKVORegData\\n\" < \"ok\\r\\n\"\n",
     "0 same, 1 different, 0 unanswered, 0 incomplete"},
    {"pieces_and_carriage_return_of_the_request", "", "mcp_address = 5",
     "1.0 ask 1 > \"getMCPAddress=\" +0.1 \"0A000005\\r\\n\" eof < \"mcpad\" +0.2 \"dr=5\\n\" +1.0 reset\n",
     "1 same, 0 different, 0 unanswered, 0 incomplete"},
    {"requests_without_a_reply_change_the_plant", "", "",
     R"(1.0 ask 1 > "setMCPAddress=\"7\" 0A000005\n" < +0.01 closed
        2.0 ask 1 > "setKVOIndex=\"8\" 0A000005\n" < "o" +1.0 left
        3.0 ask 1 > "getMCPAddress=0A000005\n" < "mcpaddr=7\n"
        4.0 ask 1 > "getKVOIndex=0A000005\n" < "kvoindex=8\n"
)",
     "2 same, 0 different, 2 unanswered, 0 incomplete"},
    {"incomplete_requests", "", "",
     R"(1.0 ask 1 > "setMCPAddress=\"7\" 0A000005" < closed
        1.5 ask 1 > < closed
        2.0 ask 1 > "getMCPAddress=0A000005\n" < "mcpaddr=0\n"
)",
     "1 same, 0 different, 0 unanswered, 1 incomplete"},
    {"requests_that_are_too_long", "", "",
     "1.0 ask 1 > \"" + kLong + "\" < \"failed\\n\"\n2.0 ask 1 > \"getExDescByName \" \"" + kLong + "\\n\" < \"failed\\n\"\n",
     "2 same, 0 different, 0 unanswered, 0 incomplete"},
    {"only_requests", "", "",
     R"(1.0 usb 1 > "removeUSBdevice*10.0.0.5*usb1*1-1.2*\n" < "ok\n"
        2.0 event 0 > "key, F1\n" <
        3.0 note "getVersion"
)",
     "0 same, 0 different, 0 unanswered, 0 incomplete"},
    {"order_in_which_requests_were_complete", "", "",
     R"(3.0 ask 1 > "getMCPAddress=0A000005\n" < "mcpaddr=9\n"
        0.0 ask 1 > "setMCPAddress=\"9\" " +2.0 "0A000005\n" < "ok\n"
        1.0 ask 1 > "getMCPAddress=0A000005\n" < "mcpaddr=0\n"
)",
     "3 same, 0 different, 0 unanswered, 0 incomplete"},
    {"hold_of_the_focus", "[service]\nfocus_hold_ms = 2000\n", "",
     R"(1.0 ask 1 > "activateMe=0A000005\n" < "ok\n"
        2.999 ask 1 > "activateMe=0A000006\n" < "busy\n"
        3.0 ask 1 > "activateMe=0A000006\n" < "ok\n"
)",
     "3 same, 0 different, 0 unanswered, 0 incomplete"},
    {"reboot", "", "reboot_time_ms = 5000",
     R"(1.0 ask 1 > "reboot=0A000005\n" < "ok\n"
        5.999 ask 1 > "isViewerActive=0A000005\n" < "failed\n"
        6.0 ask 1 > "isViewerActive=0A000005\n" < "not active\n"
)",
     "3 same, 0 different, 0 unanswered, 0 incomplete"},
    {"service_that_began_before_the_recording", "[service]\ninit_time_ms = 5000\n", "",
     "1.0 ask 1 > \"isInitComplete\\n\" < \"yes\\n\"\n", "1 same, 0 different, 0 unanswered, 0 incomplete"},
    {"service_that_was_initializing_itself", "[service]\ninit_time_ms = 5000\n", "",
     R"(1.0 ask 1 > "isInitComplete\n" < "no\n"
        2.0 ask 1 > "isInitComplete\n" < "yes\n"
        3.0 ask 1 > "isInitComplete\n" < "no\n"
)",
     "2 same, 1 different, 0 unanswered, 0 incomplete"},
    {"service_that_was_never_ready", "", "",
     R"(1.0 ask 1 > "isInitComplete\n" < "no\n"
        2.0 ask 1 > "killDaemon\n" < "ok\n"
        3.0 ask 1 > "isInitComplete\n" < "no\n"
)",
     "3 same, 0 different, 0 unanswered, 0 incomplete"},
    {"service_that_began_again", "", "viewer = \"nc1:2\"",
     R"(1.0 ask 1 > "stopViewer=0A000005\n" < "ok\n"
        2.0 ask 1 > "killDaemon\n" < "ok\n"
        3.0 ask 1 > "isViewerActive=0A000005\n" < "active\n"
        4.0 ask 1 > "stopViewer=0A000005\n" < "ok\n"
        5.0 ask 1 > "killDaemon\n" < reset
        6.0 ask 1 > "isViewerActive=0A000005\n" < "active\n"
)",
     "5 same, 0 different, 1 unanswered, 0 incomplete"},
    {"service_that_refused_to_end", "", "viewer = \"nc1:2\"",
     R"(1.0 ask 1 > "stopViewer=0A000005\n" < "ok\n"
        2.0 ask 1 > "killDaemon\n" < "failed\n"
        3.0 ask 1 > "isViewerActive=0A000005\n" < "not active\n"
)",
     "2 same, 1 different, 0 unanswered, 0 incomplete"},
    {"state_of_the_service", "", "",
     R"(1.0 ask 1 > "activateUSBEvents\n" < "ok\n"
        2.0 ask 1 > "isUSBEventsActivated\n" < "yes\n"
        3.0 ask 1 > "unlockKVORegData\n" < "failed\n"
        4.0 ask 1 > "lockKVORegData\n" < "ok\n"
        5.0 ask 1 > "unlockKVORegData\n" < "ok\n"
)",
     "5 same, 0 different, 0 unanswered, 0 incomplete"},
    {"registry_paths_by_their_form", "", "",
     R"(1.0 ask 1 > "getregistrypath\n" < "/var/lib/service/\n"
        2.0 ask 1 > "getregistrypath\n" < "/var/lib/service\n"
        3.0 ask 1 > "getregistrypath\n" < "failed\n"
)",
     "1 same, 2 different, 0 unanswered, 0 incomplete"},
    {"faults_of_the_plant",
     "[[faults]]\ncommand = \"getVersion\"\nkind = \"garbage\"\n[[faults]]\ncommand = \"lockKVORegData\"\nkind = \"failed\"\n"
     "[[faults]]\ncommand = \"getDebugLevel\"\nkind = \"close\"\n[[faults]]\ncommand = \"getCountElemDL\"\nkind = \"delay\"\n",
     "",
     R"(1.0 ask 1 > "getVersion\n" < "#?V01.00.00.00\n"
        2.0 ask 1 > "lockKVORegData\n" < "failed\n"
        3.0 ask 1 > "unlockKVORegData\n" < "failed\n"
        4.0 ask 1 > "getCountElemDL\n" < "2\n"
        5.0 ask 1 > "getDebugLevel\n" < closed
        6.0 ask 1 > "getDebugLevel\n" < "DEBUG_LEVEL_NONE\n"
)",
     "4 same, 1 different, 1 unanswered, 0 incomplete"},
};

INSTANTIATE_TEST_SUITE_P(Table, Compared, testing::ValuesIn(kRows), kvosim_test::kNameOfRow);

TEST(Comparison, has_the_first_differences_of_each_command)
{
    const auto recording = recordingOf(R"(1.5 ask 1 > "getVersion\n" < "V1\n"
2.0 ask 1 > "getVersion\n" < "V2\n"
3.0 ask 1 > "getVersion\n" < "V3\n"
4.0 ask 1 > "lockKVORegData\n" < "ok\n"
)");
    const Comparison comparison = compare(recording, kvosim::parsePlant(plantWith(""), "plant"), {.mostDifferences = 2});
    EXPECT_THAT(comparison.commands, ElementsAre(Key("getVersion"), Key("lockKVORegData")));
    EXPECT_THAT(comparison.commands.at("lockKVORegData").differences, IsEmpty());
    EXPECT_EQ(comparison.commands.at("getVersion").figures.different, 3U);
    const auto &differences = comparison.commands.at("getVersion").differences;
    ASSERT_EQ(differences.size(), 2U);
    EXPECT_EQ(differences[0].time, std::chrono::milliseconds(1'500));
    EXPECT_EQ(differences[0].lineNumber, 4U);
    EXPECT_EQ(differences[0].request, "getVersion");
    EXPECT_EQ(differences[0].recorded, "V1");
    EXPECT_EQ(differences[0].simulated, "V01.00.00.00");
    EXPECT_EQ(differences[1].recorded, "V2");
}

TEST(Comparison, names_unknown_commands_that_are_words)
{
    const Comparison comparison = comparisonOf("", R"(1.0 ask 1 > "getMoon=0A000005\n" < "full\n"
2.0 ask 1 > "\x1B[2J=\n" < "failed\n"
3.0 ask 1 > "\n" < "failed\n"
)");
    EXPECT_THAT(comparison.commands, ElementsAre(Key(kvosim::kOtherRequests), Key("getMoon")));
    EXPECT_EQ(comparison.commands.at(kvosim::kOtherRequests).figures.same, 2U);
}

TEST(Comparison, reports_its_progress)
{
    std::string steps;
    const auto note = [&](std::size_t done, std::size_t all) {
        steps += std::to_string(done) + '/' + std::to_string(all) + ' ';
    };
    compare(recordingOf("1.0 ask 1 > \"getVersion\\n\" < \"V1\\n\"\n2.0 ask 1 > \"getVersion\\n\" < \"V1\\n\"\n"),
            kvosim::parsePlant(plantWith(""), "plant"), {.mostDifferences = 0, .progress = note});
    EXPECT_EQ(steps, "0/2 1/2 ");
}

}  // namespace
