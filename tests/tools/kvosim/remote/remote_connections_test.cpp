// The connections of the remote side: its addresses, connecting and disconnecting agents, and agents that misbehave.
#include "common/control_client.h"
#include "kvosim/net/tcp_socket.h"
#include "kvosim/remote/remote_log.h"
#include "kvosim/remote/remote_session.h"
#include "tools/kvosim/remote/remote_fixture.h"
#include "tools/kvosim/support/agent.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/running_service.h"

#include <chrono>
#include <future>
#include <gmock/gmock.h>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim_test::Agent;
using kvosim_test::log;
using kvosim_test::Remote;
using kvosim_test::request;
using kvosim_test::requestAsync;
using kvosim_test::RunningService;
using kvosim_test::sessionRow;
using kvosim_test::sessions;
using kvosim_test::waitForConnection;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

// ---- Connections ----

TEST_F(Remote, sessions_are_listed)
{
    const tools::Json row = sessionRow(3);
    EXPECT_EQ(row["port"], 5853);
    EXPECT_EQ(row["address"], "127.0.0.1");
    EXPECT_THAT(row["agent"].get<std::string>(), StartsWith("127.0.0.1:"));
    EXPECT_TRUE(sessionRow(9)["agent"].is_null());
    EXPECT_EQ(tools::askSimulator({{"do", "status"}})["remote_sessions"], 2);
}

TEST_F(Remote, a_second_agent_replaces_the_first)
{
    auto reply = requestAsync(request("ping"));
    EXPECT_EQ(agent.receiveLine(), "001:ping\r\n");
    Agent second;
    EXPECT_THAT(reply.get(), HasSubstr("replaced by the agent at "));
    EXPECT_EQ(agent.receiveLine(), "(closed)");
    auto next = requestAsync(request("ping"));
    second.answer("pong\r\n");
    EXPECT_EQ(next.get(), "pong");
    EXPECT_THAT(log(), testing::Contains(testing::MatchesRegex("closed replaced by the agent at 127.0.0.1:[0-9]+")));
}

TEST_F(Remote, sessions_are_independent)
{
    Agent other(9);
    ASSERT_TRUE(waitForConnection(true, 9));
    auto reply = requestAsync(request("ping", {{"session", 9}}));
    EXPECT_EQ(other.answer("pong\r\n"), "ping\r\n");
    EXPECT_EQ(reply.get(), "pong");
    EXPECT_THAT(log({{"session", 3}}), ElementsAre(StartsWith("connected")));
    EXPECT_THAT(log({{"session", 9}}), ElementsAre(StartsWith("connected"), "request 001:ping", "reply 001:pong"));
    EXPECT_EQ(agent.receiveLine(50ms), "(nothing more came)");
}

TEST_F(Remote, a_connection_can_be_closed_or_reset)
{
    tools::askSimulator({{"do", "remote.close"}, {"session", 3}});
    EXPECT_EQ(agent.receiveLine(), "(closed)");
    Agent second;
    ASSERT_TRUE(waitForConnection(true));
    tools::askSimulator({{"do", "remote.close"}, {"session", 3}, {"reset", true}});
    EXPECT_EQ(second.receiveLine(), "(reset)");
    EXPECT_TRUE(waitForConnection(false));
}

TEST_F(Remote, can_be_unavailable_for_a_time)
{
    const auto gone = std::chrono::steady_clock::now();
    tools::askSimulator({{"do", "remote.close"}, {"session", 3}, {"away_ms", 2000}});
    EXPECT_EQ(agent.receiveLine(), "(closed)");
    EXPECT_THROW(Agent(), std::runtime_error);
    EXPECT_TRUE(sessionRow(3)["away"].get<bool>());
    while (sessionRow(3)["away"].get<bool>()) {
        std::this_thread::sleep_for(10ms);
        ASSERT_LT(std::chrono::steady_clock::now() - gone, 10s);
    }
    EXPECT_GE(std::chrono::steady_clock::now() - gone, 2s);
    Agent second;
    EXPECT_TRUE(waitForConnection(true));
}

TEST_F(Remote, can_be_unavailable_repeatedly_without_an_agent)
{
    tools::askSimulator({{"do", "remote.close"}, {"session", 9}, {"away_ms", 600'000}});
    EXPECT_THROW(Agent(9), std::runtime_error);
    tools::askSimulator({{"do", "remote.close"}, {"session", 9}, {"away_ms", 1}});
    while (sessionRow(9)["away"].get<bool>()) {
        std::this_thread::sleep_for(10ms);
    }
    Agent other(9);
    EXPECT_TRUE(waitForConnection(true, 9));
}

TEST_F(Remote, returns_as_soon_as_the_port_is_free)
{
    tools::askSimulator({{"do", "remote.close"}, {"session", 9}, {"away_ms", 1000}});
    {
        const tools::Descriptor taken = kvosim::listenAt("a test", INADDR_LOOPBACK, 5859);
        std::this_thread::sleep_for(1300ms);
        EXPECT_TRUE(sessionRow(9)["away"].get<bool>());
    }
    while (sessionRow(9)["away"].get<bool>()) {
        std::this_thread::sleep_for(10ms);
    }
    Agent other(9);
    EXPECT_TRUE(waitForConnection(true, 9));
}

// ---- Agents that misbehave ----

TEST_F(Remote, a_line_that_does_not_end_closes_the_connection)
{
    agent.send(std::string(kvosim::kLongestAgentLine, 'x'));
    EXPECT_EQ(agent.receiveLine(100ms), "(nothing more came)");
    agent.send("x");
    EXPECT_EQ(agent.receiveLine(), "(closed)");
    EXPECT_THAT(logOf(2).back(), "closed the agent has sent a line longer than 4096 bytes");
}

TEST_F(Remote, an_incomplete_line_does_not_delay_clients)
{
    agent.send("001:po");
    EXPECT_EQ(kvosim_test::exchange("getVersion\n"), "V09.08\n");
    auto reply = requestAsync(request("ping"));
    agent.receiveLine();
    agent.send("ng\r\n");
    EXPECT_EQ(reply.get(), "pong");
}

TEST_F(Remote, the_log_of_a_flood_is_limited)
{
    const std::string line = "I01:" + std::string(1000, 'x') + "\r\n";
    for (int i = 0; i < 5000; ++i) {
        ASSERT_TRUE(agent.send(line));
    }
    auto reply = requestAsync(request("ping"));
    EXPECT_EQ(agent.answer("pong\r\n"), "ping\r\n");
    EXPECT_EQ(reply.get(), "pong");
    uint64_t known = 0;
    std::size_t bytes = 0;
    std::size_t records = 0;
    uint64_t lost = 0;
    for (;;) {
        const tools::Json page = tools::askSimulator({{"do", "remote.log"}, {"after", known}});
        lost += page["lost"].get<uint64_t>();
        if (page["records"].empty()) {
            break;
        }
        EXPECT_LE(page["records"].size(), 200U);
        for (const tools::Json &record : page["records"]) {
            EXPECT_EQ(record["number"], lost + ++records) << "consecutive numbers";
            bytes += record["text"].get<std::string>().size();
        }
        known = page["next"];
    }
    EXPECT_EQ(records + lost, 5003U);
    EXPECT_LE(records, kvosim::RemoteLog::kMaxRecords);
    EXPECT_LE(bytes, kvosim::RemoteLog::kMaxBytes);
    EXPECT_GT(records, 900U);
}

TEST_F(Remote, sends_a_limited_amount_to_an_agent_that_does_not_read)
{
    const std::string longest(kvosim::kLongestRequest, 'x');
    std::string failure;
    for (int i = 0; i < 200'000 && failure.empty(); ++i) {
        try {
            tools::askSimulator({{"do", "remote.raw"}, {"session", 3}, {"bytes", std::string(8192, '0')}});
        } catch (const tools::CouldNot &error) {
            failure = error.what();
        }
    }
    EXPECT_THAT(failure, StartsWith("the agent of session 3 does not read"));
    EXPECT_EQ(kvosim_test::exchange("getVersion\n"), "V09.08\n");
}

TEST_F(Remote, the_number_of_pending_requests_is_limited)
{
    constexpr std::size_t kMaxPending = kvosim::RemoteSession::kMaxUnanswered;
    for (std::size_t i = 0; i < 2 * kMaxPending; ++i) {
        tools::askSimulator({{"do", "remote.send"}, {"session", 3}, {"request", "nobody waits"}});
        EXPECT_EQ(agent.receiveLine(), "nobody waits\r\n");
    }
    // Requests without a waiting client are discarded first.
    std::vector<std::future<std::string>> waiting;
    for (std::size_t i = 0; i < kMaxPending; ++i) {
        waiting.push_back(requestAsync(request("ping")));
        EXPECT_THAT(agent.receiveLine(), HasSubstr(":ping"));
    }
    EXPECT_EQ(requestAsync(request("ping")).get(),
              "could not: 32 requests already wait for a reply from the agent of session 3; wait for these replies");
    EXPECT_EQ(kvosim_test::exchange("getVersion\n"), "V09.08\n");
    shutdown(agent.get(), SHUT_RDWR);
    for (auto &reply : waiting) {
        EXPECT_THAT(reply.get(), HasSubstr("was lost"));
    }
}

// ---- The ports ----

TEST(RemotePorts, are_closed_without_the_option)
{
    const RunningService service;
    EXPECT_TRUE(tools::askSimulator({{"do", "remote.list"}})["sessions"].empty());
    for (unsigned session = 0; session <= 9; ++session) {
        EXPECT_THROW(Agent agent(session), std::runtime_error) << session;
    }
    EXPECT_THAT(
        [] {
            tools::askSimulator({{"do", "remote.ask"}, {"session", 0}, {"request", "ping"}, {"patience_ms", 1}});
        },
        ThrowsMessage<tools::CouldNot>("session 0 is not served; start the simulator with --remote 0"));
}

TEST(RemotePorts, can_be_all_ten)
{
    const RunningService service(kvosim_test::kSmallPlant, sessions({0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    for (unsigned session = 0; session <= 9; ++session) {
        const Agent agent(session);
        EXPECT_TRUE(waitForConnection(true, session)) << session;
    }
}

TEST(RemotePorts, are_at_127_0_0_1_unless_the_option_sets_another_address)
{
    const RunningService service(kvosim_test::kSmallPlant, sessions({3}));
    EXPECT_THROW(Agent(3, "127.0.0.2"), std::runtime_error) << "another address of this machine";
    const Agent agent(3);
    EXPECT_TRUE(waitForConnection(true, 3));
}

TEST(RemotePorts, can_be_set_by_the_plant)
{
    const RunningService service("[service]\nremote_sessions = \"1,2\"\nremote_address = \"127.0.0.2\"\n");
    const Agent agent(2, "127.0.0.2");
    EXPECT_TRUE(waitForConnection(true, 2));
    EXPECT_EQ(sessionRow(1)["address"], "127.0.0.2");
    EXPECT_THROW(Agent(2, "127.0.0.1"), std::runtime_error);
}

TEST(RemotePorts, are_set_by_the_option_rather_than_the_plant)
{
    auto options = sessions({});
    options.remoteAddress = "127.0.0.1";
    const RunningService service("[service]\nremote_sessions = \"1,2\"\n", options);
    EXPECT_TRUE(tools::askSimulator({{"do", "remote.list"}})["sessions"].empty());
}

TEST(RemotePorts, are_named_in_the_error_if_in_use)
{
    tools::EventLoop loop;
    const kvosim::RemoteSide first(loop, {.sessions = {3}}, [](std::string_view) {});
    EXPECT_THAT(
        [&] {
            kvosim::RemoteSide(loop, {.sessions = {2, 3}}, [](std::string_view) {});
        },
        ThrowsMessage<std::runtime_error>("cannot serve agents of session 3 at 127.0.0.1:5853: the port is in use, perhaps "
                                          "by another simulator or a real hardware service"));
    EXPECT_THAT([&] { kvosim::RemoteSide(loop, {.sessions = {1}, .address = "192.0.2.1"}, [](std::string_view) {}); },
                ThrowsMessage<std::runtime_error>(
                    "cannot serve agents of session 1 at 192.0.2.1:5851: this machine does not have this address"));
    EXPECT_THAT([&] { kvosim::RemoteSide(loop, {.sessions = {1}, .address = "::1"}, [](std::string_view) {}); },
                ThrowsMessage<std::runtime_error>(HasSubstr("\"::1\" is not an IPv4 address for agents; write one such as")));
}

// ---- The syntax of sessions ----

TEST(RemoteSessions, are_numbers_separated_by_commas)
{
    EXPECT_EQ(kvosim::parseSessions("3"), std::vector<unsigned>{3});
    EXPECT_EQ(kvosim::parseSessions("9,0,3"), (std::vector<unsigned>{9, 0, 3}));
    for (const char *wrong : {"", "10", "-1", "3,", ",3", "3,3", "3 4", "x"}) {
        EXPECT_THAT([&] { kvosim::parseSessions(wrong); },
                    ThrowsMessage<std::invalid_argument>(HasSubstr("write session numbers from 0 to 9, each once")))
            << wrong;
    }
}

}  // namespace
