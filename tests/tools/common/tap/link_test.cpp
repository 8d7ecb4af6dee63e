// What passes through a tap: the same bytes, half-closes, pauses and ends as without one.
#include "tools/common/tap/running_tap.h"
#include "tools/kvosim/support/client.h"

#include "support/scripted_service.h"

#include <gmock/gmock.h>

#include <ctime>
#include <optional>

using namespace std::chrono_literals;

namespace tap_test {

namespace {

using kvosim_test::Client;
using support::Script;
using support::ScriptedService;
using support::Step;
using testing::ElementsAre;

std::vector<std::string> allShown(const std::vector<Reported> &all)
{
    std::vector<std::string> lines;
    lines.reserve(all.size());
    for (const Reported &one : all) {
        lines.push_back(shown(one.exchange));
    }
    return lines;
}

struct Passing {
    const char *name;
    Script script;
    std::string received;  ///< by the program, which sends "ask\n"
    std::string reported;
};

void PrintTo(const Passing &passing, std::ostream *out) { *out << passing.name; }

class LinkPassesOn : public testing::TestWithParam<Passing> {};

TEST_P(LinkPassesOn, what_the_service_does)
{
    const ScriptedService service({GetParam().script});
    EXPECT_EQ(kvosim_test::exchange("ask\n"), GetParam().received) << "without a tap";
    RunningTap tap;
    EXPECT_EQ(kvosim_test::exchange("ask\n"), GetParam().received);
    EXPECT_THAT(allShown(tap.exchanges(1)), ElementsAre(GetParam().reported));
}

const std::string kAllBytes = [] {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    return bytes;
}();

const std::string kLong(3'000'000, 'x');

const Passing kPassings[] = {{"a_reply", support::replies("ok"), "ok\n", "ask\n-> ok\nclosed"},
                             {"every_byte", support::sends(kAllBytes), kAllBytes, "ask\n-> " + kAllBytes + "closed"},
                             {"a_long_reply", support::sends(kLong), kLong, "ask\n-> " + kLong + "closed"},
                             {"single_bytes", support::dribbles("ok\n", 20ms), "ok\n", "ask\n-> ok\nclosed"},
                             {"no_reply", support::closesAfterRequest(), "", "ask\n-> closed"},
                             {"half_a_reply", support::closesInsideReply("hal"), "hal", "ask\n-> halclosed"},
                             {"silence", support::staysSilent(300ms), "", "ask\n-> closed"}};

INSTANTIATE_TEST_SUITE_P(All, LinkPassesOn, testing::ValuesIn(kPassings),
                         [](const auto &param) { return std::string(param.param.name); });

TEST(Link, passes_on_a_close_that_leaves_the_request_unread)
{
    const Script unread{{.kind = Step::Kind::pause, .pause = 100ms}, {.kind = Step::Kind::closeUnread}};
    const ScriptedService service({unread});
    const std::string direct = kvosim_test::exchange("ask\n");
    EXPECT_EQ(direct, "(Connection reset by peer)");
    RunningTap tap;
    EXPECT_EQ(kvosim_test::exchange("ask\n"), direct);
    EXPECT_THAT(allShown(tap.exchanges(1)), ElementsAre("ask\n-> reset"));
}

TEST(Link, passes_on_a_half_close)
{
    const ScriptedService service({support::replies("ok")});
    RunningTap tap;
    const Client client;
    client.send("ask");
    shutdown(client.get(), SHUT_WR);  // the end of the request, without a line feed
    EXPECT_EQ(client.receiveAll(), "");
    EXPECT_THAT(allShown(tap.exchanges(1)), ElementsAre("ask|-> closed"));
}

TEST(Link, passes_on_a_request_in_pieces)
{
    const ScriptedService service({support::replies("ok")});
    RunningTap tap;
    const Client client;
    for (const char *piece : {"a", "s", "k\n"}) {
        client.send(piece);
        std::this_thread::sleep_for(50ms);
    }
    EXPECT_EQ(client.receiveAll(), "ok\n");
    const std::vector<Reported> all = tap.exchanges(1);
    ASSERT_EQ(all.size(), 1U);
    const auto &request = all[0].exchange.request;
    ASSERT_EQ(request.size(), 3U);
    EXPECT_EQ(request[0].pause, 0us);
    EXPECT_GT(request[1].pause, 30ms);
    EXPECT_GT(request[2].pause, 30ms);
    EXPECT_EQ(service.requests(), std::vector<std::string>{"ask\n"});
}

TEST(Link, reports_a_program_that_leaves_before_the_reply)
{
    const ScriptedService service({support::staysSilent(1s)});
    RunningTap tap;
    {
        const Client client;
        client.send("ask\n");
        std::this_thread::sleep_for(50ms);
    }
    EXPECT_THAT(allShown(tap.exchanges(1)), ElementsAre("ask\n-> left"));
    EXPECT_GT(tap.reports().exchanges()[0].exchange.endPause, 30ms);
}

TEST(Link, reports_the_request_when_the_service_does_not_accept_the_connection)
{
    const support::FullQueue service;
    RunningTap tap;
    std::optional<Client> client(std::in_place);
    client->send("ask\n");
    client.reset();
    ASSERT_TRUE(support::eventually([&] { return !tap.reports().exchanges().empty(); }, 10s));
    EXPECT_THAT(allShown(tap.reports().exchanges()), ElementsAre("ask\n-> left"));
}

TEST(Link, reports_a_connection_that_is_open_at_the_end)
{
    const ScriptedService service({support::staysSilent(1s)});
    RunningTap tap;
    const Client client;
    client.send("ask\n");
    ASSERT_TRUE(support::eventually([&] { return !service.requests().empty(); }));
    tap.stop();
    EXPECT_THAT(allShown(tap.exchanges(1)), ElementsAre("ask\n-> open"));
}

TEST(Link, reports_only_pauses_before_the_end_that_a_program_can_notice)
{
    const support::Script slow{{.kind = support::Step::Kind::readLine},
                               {.kind = support::Step::Kind::write, .bytes = "ok\n"},
                               {.kind = support::Step::Kind::pause, .pause = 100ms}};
    const ScriptedService service({support::closesAtOnce(), slow, support::replies("ok")});
    RunningTap tap;
    kvosim_test::exchange("ask\n");
    EXPECT_GE(tap.exchanges(1).at(0).exchange.endPause, 90ms);
    // The service may be interrupted between its reply and the end.
    EXPECT_TRUE(support::eventually([&] {
        kvosim_test::exchange("ask\n");
        return tap.exchanges(tap.reports().exchanges().size()).back().exchange.endPause == 0us;
    }));
}

TEST(Link, names_the_program)
{
    const ScriptedService service({support::replies("ok")});
    RunningTap tap;
    kvosim_test::exchange("ask\n");
    const std::vector<Reported> all = tap.exchanges(1);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].peer, (Peer{.pid = getpid(), .name = std::string("tools_tap_test")}));
}

TEST(Link, does_not_wait_for_a_program_that_reads_slowly)
{
    // More than the program's socket takes, but what the service's socket takes, so that the service is free.
    const std::string queued(300'000, 'x');
    // The tap's own connection at its start takes the first script.
    const ScriptedService service({support::closesAtOnce(), support::sends(queued), support::replies("quick")});
    RunningTap tap;
    const Client slow;
    slow.send("ask\n");
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(kvosim_test::exchange("ask\n"), "quick\n");
    EXPECT_EQ(slow.receiveAll().size(), queued.size());
}

TEST(Link, passes_long_requests_to_a_service_that_reads_slowly)
{
    const std::string longRequest = std::string(300'000, 'q') + '\n';
    const Script slow{{.kind = Step::Kind::pause, .pause = 200ms},
                      {.kind = Step::Kind::readLine},
                      {.kind = Step::Kind::write, .bytes = "ok\n"}};
    const ScriptedService service({slow});
    RunningTap tap;
    const Client client;
    std::thread sender([&] { client.send(longRequest); });
    EXPECT_EQ(client.receiveAll(20s), "ok\n");
    shutdown(client.get(), SHUT_RDWR);  // the sender must end if the test has failed
    sender.join();
    EXPECT_EQ(service.requests(), std::vector<std::string>{longRequest});
}

/// The processor time of this process so far.
std::chrono::nanoseconds processorTime()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST(Link, rests_while_a_program_that_has_ended_its_request_reads_nothing)
{
    const std::string queued(2'000'000, 'x');
    const ScriptedService service({support::closesAtOnce(), support::sends(queued)});
    RunningTap tap;
    const Client slow;
    slow.send("ask\n");
    shutdown(slow.get(), SHUT_WR);
    std::this_thread::sleep_for(500ms);  // until all sockets are full
    const auto before = processorTime();
    std::this_thread::sleep_for(1s);
    EXPECT_LT(processorTime() - before, 100ms);
    EXPECT_EQ(slow.receiveAll().size(), queued.size());
}

}  // namespace

}  // namespace tap_test
