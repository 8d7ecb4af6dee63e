// Recorded replies reach clients with all bytes, pauses and ends.
#include "support/time_of.h"
#include "tools/kvosim/replay/running_replay.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim_test::atSpeed;
using kvosim_test::Client;
using kvosim_test::exchange;
using kvosim_test::plantLines;
using kvosim_test::RunningReplay;
using kvosim_test::strictly;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

struct ReplyRow : kvosim_test::NamedRow {
    std::string reply;  ///< in the recording
    std::string speed;
    std::string received;  ///< "(...)": how the connection ended, if not in an orderly way
    std::chrono::milliseconds least;
};

class RecordedReplies : public testing::TestWithParam<ReplyRow> {};

TEST_P(RecordedReplies, come_again)
{
    const RunningReplay replay("1.0 ask 1 > \"getVersion\\n\" < " + GetParam().reply + '\n', atSpeed(GetParam().speed));
    const Client client;
    client.send("getVersion\n");
    std::string received;
    const auto time = support::timeOf([&] { received = client.receiveAll(500ms); });
    EXPECT_EQ(received, GetParam().received);
    EXPECT_GE(time, GetParam().least);
    EXPECT_LT(time, GetParam().least + 1s);
}

const std::vector<ReplyRow> kReplies = {
    {"whole", R"("V1\n")", "1", "V1\n", 0ms},
    {"pause", R"(+0.2 "V1\n")", "1", "V1\n", 200ms},
    {"pause_at_twice_the_speed", R"(+0.2 "V1\n")", "2", "V1\n", 100ms},
    {"pause_at_half_the_speed", R"(+0.1 "V1\n")", "0.5", "V1\n", 200ms},
    {"pause_at_the_highest_speed", R"(+100.0 "V1" +100.0 "\n" +100.0 closed)", "max", "V1\n", 0ms},
    {"pieces", R"(+0.1 "V" +0.1 "1\n")", "1", "V1\n", 200ms},
    {"carriage_return", R"("V1\r\n")", "1", "V1\r\n", 0ms},
    {"zero_byte", R"("V\x001\n")", "1",
     std::string("V\0"
                 "1\n",
                 4),
     0ms},
    {"several_lines", R"("V1\nV2\n")", "1", "V1\nV2\n", 0ms},
    {"no_line_end", R"("V1")", "1", "V1", 0ms},
    {"closed_without_a_reply", "+0.1 closed", "1", "", 100ms},
    {"closed_late", R"("V1\n" +0.2 closed)", "1", "V1\n", 200ms},
    {"reset", "+0.1 reset", "1", "(Connection reset by peer)", 100ms},
    {"reset_after_a_part", R"("V" reset)", "1", "V(Connection reset by peer)", 0ms},
    {"client_left", "+0.1 left", "1", "(nothing more came)", 500ms},
    {"client_left_after_a_part", R"("V" +0.1 left)", "1", "V(nothing more came)", 500ms},
    {"client_left_at_the_highest_speed", "+4.0 left", "max", "(nothing more came)", 500ms},
    {"client_left_after_the_reply", R"("V1\n" +0.1 left)", "1", "V1\n", 0ms},
    {"recording_ended_first", "+0.1 open", "1", "(nothing more came)", 500ms},
    {"recording_ended_after_the_reply", R"("V1\n" +0.1 open)", "1", "V1\n", 0ms},
};

INSTANTIATE_TEST_SUITE_P(Table, RecordedReplies, testing::ValuesIn(kReplies), kvosim_test::kNameOfRow);

/// Asks one after another, and returns the replies.
std::string askAll(const std::vector<std::string> &requests)
{
    std::string replies;
    for (const std::string &request : requests) {
        replies += exchange(request + '\n');
    }
    return replies;
}

/// A recorded exchange at @p second.
std::string ask(int second, const std::string &request, const std::string &reply)
{
    return std::to_string(second) + ".0 ask 1 > \"" + request + "\\n\" < \"" + reply + "\\n\"\n";
}

TEST(Replay, answers_each_text_in_the_recorded_order_and_then_with_the_last_reply)
{
    RunningReplay replay(ask(1, "a", "a1") + ask(2, "b", "b1") + ask(3, "a", "a2"));
    EXPECT_EQ(askAll({"a", "a\r", "a"}), "a1\na2\na2\n");
    const auto report = replay.stop();
    EXPECT_EQ(report.asRecorded, 2U);
    EXPECT_EQ(report.repeated, 1U);
    EXPECT_EQ(report.neverAsked, 1U);
    ASSERT_EQ(report.firstNeverAsked.size(), 1U);
    EXPECT_EQ(report.firstNeverAsked.front().number, 5U);
    EXPECT_EQ(report.firstNeverAsked.front().request, "b");
    EXPECT_TRUE(report.isGood());
}

TEST(Replay, refuses_what_was_not_recorded)
{
    RunningReplay replay(ask(1, "getMCPAddress=0A000005", "mcpaddr=5"));
    EXPECT_EQ(askAll({"getMCPAddress=0A000006", "getMCPAddress=0A000006"}), "failed\nfailed\n");
    const auto report = replay.stop();
    EXPECT_EQ(report.notAnswered, 2U);
    ASSERT_EQ(report.unmatched.size(), 1U);
    EXPECT_EQ(report.unmatched.front().difference, "station 10.0.0.6 instead of 10.0.0.5");
    EXPECT_FALSE(report.isGood());
}

TEST(Replay, answers_a_long_request_as_recorded)
{
    const std::string request(100'000, 'x');
    const RunningReplay replay(ask(1, request, "ok"));
    EXPECT_EQ(exchange(request + '\n'), "ok\n");
}

TEST(Replay, answers_what_was_not_recorded_from_a_plant)
{
    RunningReplay replay(
        ask(1, "getVersion", "V7"), {},
        "[service]\nversion = \"V1\"\n[[station]]\naddress = \"10.0.0.5\"\nname = \"Lathe\"\nmcp_address = 17\n"
        "[[faults]]\ncommand = \"getDebugLevel\"\nkind = \"close\"\n");
    EXPECT_EQ(exchange("getVersion\n"), "V7\n");
    EXPECT_EQ(exchange("getMCPAddress=0A000005\n"), "mcpaddr=17\n");
    EXPECT_EQ(exchange("getDebugLevel\n"), "") << "the plant's faults apply";
    EXPECT_EQ(exchange("killDaemon\n"), "ok\n");
    EXPECT_EQ(exchange("getVersion\n"), "V7\n") << "the replay goes on";
    const auto report = replay.stop();
    EXPECT_EQ(report.fromPlant, 3U);
    EXPECT_EQ(report.notAnswered, 0U);
    EXPECT_TRUE(report.isGood());
}

TEST(Replay, goes_on_after_a_recorded_end_of_the_service)
{
    const RunningReplay replay(ask(1, "killDaemon", "ok") + "2.0 note \"the service ended\"\n" + ask(3, "getVersion", "V2"));
    EXPECT_EQ(exchange("killDaemon\n"), "ok\n");
    EXPECT_EQ(exchange("getVersion\n"), "V2\n");
}

struct StrictRow : kvosim_test::NamedRow {
    std::vector<std::string> requests;
    std::string replies;
    uint64_t outOfOrder;
    bool isMet;
};

class StrictReplay : public testing::TestWithParam<StrictRow> {};

TEST_P(StrictReplay, requires_every_request_once_and_in_order)
{
    RunningReplay replay(ask(1, "a", "a1") + ask(2, "b", "b1") + ask(3, "a", "a2"), strictly());
    EXPECT_EQ(askAll(GetParam().requests), GetParam().replies);
    const auto report = replay.stop();
    EXPECT_EQ(report.outOfOrder, GetParam().outOfOrder);
    EXPECT_EQ(report.isGood(), GetParam().isMet);
}

const std::vector<StrictRow> kStrict = {
    {"as_recorded", {"a", "b", "a"}, "a1\nb1\na2\n", 0, true},
    {"one_more", {"a", "b", "a", "a"}, "a1\nb1\na2\nfailed\n", 0, false},
    {"one_less", {"a", "b"}, "a1\nb1\n", 0, false},
    {"one_left_out", {"b", "a"}, "b1\na1\n", 1, false},
    {"nothing", {}, "", 0, false},
    {"out_of_order", {"a", "a", "b"}, "a1\na2\nb1\n", 1, false},
    {"other_request", {"a", "b", "a", "c"}, "a1\nb1\na2\nfailed\n", 0, false},
};

INSTANTIATE_TEST_SUITE_P(Table, StrictReplay, testing::ValuesIn(kStrict), kvosim_test::kNameOfRow);

TEST(StrictReplay, says_which_request_was_asked_too_often)
{
    RunningReplay replay(ask(1, "a", "a1"), strictly());
    exchange("a\n");
    exchange("a\n");
    const auto report = replay.stop();
    ASSERT_EQ(report.unmatched.size(), 1U);
    EXPECT_TRUE(report.unmatched.front().isUsedUp);
}

// ---- The registry ----

constexpr const char *kPath = "1.0 ask 1 > \"getregistrypath\\n\" < +0.1 \"/no/such/registry/\\n\"\n";
constexpr const char *kPlant = "[[station]]\naddress = \"10.0.0.5\"\nname = \"Lathe 1\"\n";

std::string listsIn(const std::string &registry)
{
    std::string all;
    for (const auto &file : std::filesystem::directory_iterator(registry + "kvo_hws")) {
        all += kvosim_test::contentsOf(file.path());
    }
    return all;
}

std::string registryPath()
{
    std::string path = exchange("getregistrypath\n");
    path.pop_back();
    return path;
}

TEST(ReplayedRegistry, is_made_from_the_recorded_plant)
{
    RunningReplay replay(plantLines(kPlant) + kPath);
    const std::string path = registryPath();
    ASSERT_TRUE(std::filesystem::is_directory(path)) << path;
    EXPECT_THAT(listsIn(path), HasSubstr("Lathe 1"));
    EXPECT_THAT(replay.stop().notes, testing::IsEmpty());
}

TEST(ReplayedRegistry, is_that_of_the_plant_without_a_recorded_one)
{
    const RunningReplay replay(kPath, {}, kPlant);
    EXPECT_THAT(listsIn(registryPath()), HasSubstr("Lathe 1"));
}

TEST(ReplayedRegistry, is_missing_otherwise)
{
    RunningReplay replay(kPath);
    EXPECT_EQ(askAll({"getregistrypath", "getregistrypath"}), "/no/such/registry/\n/no/such/registry/\n");
    EXPECT_THAT(replay.stop().notes, ElementsAre(StartsWith("the registry /no/such/registry/ does not exist here")));
}

TEST(ReplayedRegistry, may_exist_here)
{
    const kvosim_test::TemporaryDirectory directory;
    RunningReplay replay("1.0 ask 1 > \"getregistrypath\\n\" < \"" + directory.path().string() + "/\\n\"\n");
    EXPECT_EQ(registryPath(), directory.path().string() + '/');
    EXPECT_THAT(replay.stop().notes, testing::IsEmpty());
}

TEST(ReplayedRegistry, is_not_made_for_a_refusal)
{
    const RunningReplay replay(plantLines(kPlant) + ask(1, "getregistrypath", "failed"));
    EXPECT_EQ(exchange("getregistrypath\n"), "failed\n");
}

TEST(ReplayedRegistry, keeps_the_recorded_pause)
{
    const RunningReplay replay(plantLines(kPlant) + kPath);
    EXPECT_GE(support::timeOf([] { registryPath(); }), 100ms);
}

TEST(Replay, refuses_an_invalid_recorded_plant)
{
    try {
        const RunningReplay replay(plantLines("[[station]]\naddress = 5\n"));
        FAIL() << "accepted";
    } catch (const kvosim::PlantFileError &error) {
        EXPECT_THAT(error.what(), StartsWith("plant.rec (plant):2: "));
    }
}

}  // namespace
