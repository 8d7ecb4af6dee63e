// Requests that were not recorded, and the recorded request that is nearest to each.
#include "kvosim/replay/unmatched.h"
#include "tools/kvosim/compare/recordings.h"
#include "tools/kvosim/support/named_row.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvosim::Script;
using kvosim::Unmatched;

struct NearestRow : kvosim_test::NamedRow {
    std::string request;
    std::string nearest;  ///< "LINE: REQUEST: DIFFERENCE"; empty if there is none
};

class Nearest : public testing::TestWithParam<NearestRow> {};

constexpr const char *kRecorded = "1.0 ask 1 > \"getMCPAddress=0A000005\\n\" < \"mcpaddr=5\\n\"\n"
                                  "1.0 ask 1 > \"getMCPAddress=0A010109\\n\" < \"mcpaddr=9\\n\"\n"
                                  "1.0 ask 1 > \"setBrightness=5 0A000005\\n\" < \"ok\\n\"\n"
                                  "1.0 ask 1 > \"setBrightness=7 0A000006\\n\" < \"ok\\n\"\n"
                                  "1.0 ask 1 > \"getVersion\\n\" < \"V1\\n\"\n"
                                  "1.0 ask 1 > \"getMCPAddress=0A000005\\n\" < \"mcpaddr=5\\n\"\n";

TEST_P(Nearest, is_the_one_with_the_fewest_differences)
{
    const kvosim::Recording recording = kvosim_test::recordingOf(kRecorded);
    const Script script(recording, kvosim::contentsOf(recording).requests);
    Unmatched unmatched;
    unmatched.add(GetParam().request, false);
    const auto found = unmatched.list(recording, script).front();
    EXPECT_EQ(found.request, GetParam().request);
    EXPECT_EQ(found.nearest ? std::to_string(found.nearest->number) + ": " + found.nearest->request + ": " + found.difference
                            : "",
              GetParam().nearest);
}

const std::vector<NearestRow> kRows = {
    {"other_station", "getMCPAddress=0A000006", "4: getMCPAddress=0A000005: station 10.0.0.6 instead of 10.0.0.5"},
    {"nearer_station", "getMCPAddress=0A010108", "5: getMCPAddress=0A010109: station 10.1.1.8 instead of 10.1.1.9"},
    {"one_field_before_two", "setBrightness=5 0A000006", "6: setBrightness=5 0A000005: station 10.0.0.6 instead of 10.0.0.5"},
    {"missing_argument", "getMCPAddress", "4: getMCPAddress=0A000005: argument 1 is missing: \"0A000005\""},
    {"similar_command", "getVersoin", "8: getVersion: different command"},
    {"nothing_similar", "reboot=0A000005", ""},
    {"empty", "", ""},
};

INSTANTIATE_TEST_SUITE_P(Table, Nearest, testing::ValuesIn(kRows), kvosim_test::kNameOfRow);

TEST(UnmatchedRequests, are_counted_by_text)
{
    const kvosim::Recording recording = kvosim_test::recordingOf("");
    const Script script(recording, {});
    Unmatched unmatched;
    EXPECT_TRUE(unmatched.add("a", false));
    EXPECT_FALSE(unmatched.add("a", false));
    EXPECT_TRUE(unmatched.add("b", true));
    const auto list = unmatched.list(recording, script);
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].count, 2U);
    EXPECT_FALSE(list[0].isUsedUp);
    EXPECT_TRUE(list[1].isUsedUp);
    EXPECT_EQ(unmatched.count(), 3U);
}

TEST(UnmatchedRequests, take_limited_memory)
{
    const kvosim::Recording recording = kvosim_test::recordingOf("");
    const Script script(recording, {});
    Unmatched unmatched;
    for (int i = 0; i < 5000; ++i) {
        unmatched.add("request" + std::to_string(i), false);
    }
    unmatched.add(std::string(100'000, 'x'), false);
    EXPECT_EQ(unmatched.count(), 5001U);
    EXPECT_EQ(unmatched.notKept(), 5001U - Unmatched::kMostTexts);
    EXPECT_EQ(unmatched.list(recording, script).size(), Unmatched::kMostTexts);
    EXPECT_FALSE(unmatched.add("request7", false)) << "still counted by text";
    EXPECT_EQ(unmatched.list(recording, script)[7].count, 2U);
}

TEST(UnmatchedRequests, are_cut_if_they_are_long)
{
    const kvosim::Recording recording = kvosim_test::recordingOf("");
    Unmatched unmatched;
    unmatched.add(std::string(100'000, 'x'), false);
    const auto request = unmatched.list(recording, Script(recording, {})).front();
    EXPECT_EQ(request.request.size(), 4096U);
    EXPECT_EQ(request.size, 100'000U);
}

TEST(UnmatchedRequests, are_compared_with_the_same_part_of_long_ones)
{
    const std::string text(100'000, 'x');
    const kvosim::Recording recording = kvosim_test::recordingOf("1.0 ask 1 > \"set=1 " + text + "\\n\" < \"ok\\n\"\n");
    Unmatched unmatched;
    unmatched.add("set=2 " + text, false);
    const Script script(recording, kvosim::contentsOf(recording).requests);
    EXPECT_EQ(unmatched.list(recording, script).front().difference, "argument 1 is \"2\" instead of \"1\"");
}

}  // namespace
