// The remote side over the control socket: requests to agents, their replies in and out of order, and the log.
#include "common/control_client.h"
#include "tools/kvosim/remote/remote_fixture.h"
#include "tools/kvosim/support/agent.h"
#include "tools/kvosim/support/client.h"

#include <chrono>
#include <future>
#include <gmock/gmock.h>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim_test::Agent;
using kvosim_test::log;
using kvosim_test::Remote;
using kvosim_test::request;
using kvosim_test::requestAsync;
using kvosim_test::waitForConnection;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

// ---- Requests and replies ----

TEST_F(Remote, adds_a_tag_to_a_request_and_removes_it_from_the_reply)
{
    auto reply = requestAsync(request("get-kvoindex"));
    EXPECT_EQ(agent.receiveLine(), "001:get-kvoindex\r\n");
    agent.send("001:kvoindex=1\r\n");
    EXPECT_EQ(reply.get(), "kvoindex=1");
    auto next = requestAsync(request("ping"));
    EXPECT_EQ(agent.receiveLine(), "002:ping\r\n");
    agent.send("002:pong\r\n");
    EXPECT_EQ(next.get(), "pong");
}

TEST_F(Remote, uses_a_given_tag)
{
    auto reply = requestAsync(request("ping", {{"tag", "042"}}));
    EXPECT_EQ(agent.receiveLine(), "042:ping\r\n");
    agent.send("042:pong\r\n");
    EXPECT_EQ(reply.get(), "042:pong");
    auto inside = requestAsync(request("043:ping"));
    EXPECT_EQ(agent.receiveLine(), "043:ping\r\n");
    agent.send("043:pong\r\n");
    EXPECT_EQ(inside.get(), "043:pong");
}

TEST_F(Remote, sends_a_request_without_a_tag_unchanged)
{
    auto reply = requestAsync(request("ping", {{"untagged", true}}));
    EXPECT_EQ(agent.receiveLine(), "ping\r\n");
    agent.send("pong\r\n");
    EXPECT_EQ(reply.get(), "pong");
}

TEST_F(Remote, refuses_a_tag_for_the_longest_request)
{
    const std::string longest(kvosim::kLongestRequest, 'x');
    auto reply = requestAsync(request(longest));
    EXPECT_EQ(agent.receiveLine(), longest + "\r\n");
    agent.send("bad request\r\n");
    EXPECT_EQ(reply.get(), "bad request");
}

TEST_F(Remote, indications_may_precede_the_reply)
{
    auto reply = requestAsync(request("ping"));
    EXPECT_EQ(agent.receiveLine(), "001:ping\r\n");
    agent.send("I01:one\r\nI02:two\r\n001:pong\r\n");
    EXPECT_EQ(reply.get(), "pong");
    EXPECT_THAT(logOf(5), ElementsAre(StartsWith("connected from 127.0.0.1:"), "request 001:ping", "indication I01:one",
                                      "indication I02:two", "reply 001:pong"));
}

TEST_F(Remote, none_without_a_line_end_is_accepted_after_a_pause)
{
    auto reply = requestAsync(request("get-softkey-type"));
    EXPECT_EQ(agent.answer("none"), "get-softkey-type\r\n");
    EXPECT_EQ(reply.get(), "none");
    auto untagged = requestAsync(request("get-softkey-type", {{"untagged", true}}));
    EXPECT_EQ(agent.answer("none"), "get-softkey-type\r\n");
    EXPECT_EQ(untagged.get(), "none");
    EXPECT_THAT(logOf(5), ElementsAre(testing::_, testing::_, "reply 001:none (without a line end)", testing::_,
                                      "reply none (without a line end)"));
}

TEST_F(Remote, none_without_a_line_end_is_accepted_before_the_next_reply)
{
    auto first = requestAsync(request("get-softkey-type", {{"untagged", true}}));
    EXPECT_EQ(agent.receiveLine(), "get-softkey-type\r\n");
    auto second = requestAsync(request("ping", {{"untagged", true}}));
    EXPECT_EQ(agent.receiveLine(), "ping\r\n");
    agent.send("nonepong\r\n");
    EXPECT_EQ(first.get(), "none");
    EXPECT_EQ(second.get(), "pong");
}

TEST_F(Remote, none_is_accepted_if_the_agent_closes_after_it)
{
    auto reply = requestAsync(request("get-softkey-type"));
    EXPECT_EQ(agent.receiveLine(), "001:get-softkey-type\r\n");
    agent.send("001:none");
    shutdown(agent.get(), SHUT_WR);
    EXPECT_EQ(reply.get(), "none");
    EXPECT_TRUE(waitForConnection(false));
}

TEST_F(Remote, concurrent_requests_get_their_own_replies)
{
    std::vector<std::future<std::string>> replies;
    for (int i = 0; i < 20; ++i) {
        replies.push_back(requestAsync(request("set-kvoindex=" + std::to_string(i))));
    }
    for (int i = 0; i < 20; ++i) {
        const std::string line = agent.receiveLine();
        agent.send(line.substr(0, 4) + "you said " + line.substr(17));
    }
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(replies[static_cast<std::size_t>(i)].get(), "you said " + std::to_string(i));
    }
}

// ---- Requests without a reply ----

TEST_F(Remote, a_request_without_a_reply_times_out)
{
    const auto start = std::chrono::steady_clock::now();
    auto reply = requestAsync(request("ping", {{"patience_ms", 300}}));
    EXPECT_EQ(reply.get(), "could not: no reply within 0.300 s");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
    EXPECT_EQ(requestAsync(request("ping", {{"patience_ms", 1000}})).get(), "could not: no reply within 1 s");
}

TEST_F(Remote, a_late_reply_is_not_used_for_the_next_request)
{
    auto first = requestAsync(request("ping", {{"patience_ms", 100}, {"untagged", true}}));
    EXPECT_EQ(agent.receiveLine(), "ping\r\n");
    EXPECT_THAT(first.get(), HasSubstr("no reply"));
    auto second = requestAsync(request("get-kvoindex", {{"untagged", true}}));
    EXPECT_EQ(agent.receiveLine(), "get-kvoindex\r\n");
    agent.send("pong\r\nkvoindex=1\r\n");
    EXPECT_EQ(second.get(), "kvoindex=1");
    EXPECT_THAT(logOf(5),
                ElementsAre(testing::_, "request ping", "request get-kvoindex", "reply pong (too late)", "reply kvoindex=1"));
}

TEST_F(Remote, a_skipped_request_is_reported)
{
    auto first = requestAsync(request("one"));
    EXPECT_EQ(agent.receiveLine(), "001:one\r\n");
    auto second = requestAsync(request("two"));
    EXPECT_EQ(agent.receiveLine(), "002:two\r\n");
    agent.send("002:ok\r\n");
    EXPECT_EQ(second.get(), "ok");
    EXPECT_EQ(first.get(), "could not: the agent has answered a later request, but not this one");
}

TEST_F(Remote, a_lost_connection_is_reported_to_waiting_clients)
{
    auto reply = requestAsync(request("ping"));
    EXPECT_EQ(agent.receiveLine(), "001:ping\r\n");
    shutdown(agent.get(), SHUT_RDWR);
    EXPECT_THAT(reply.get(),
                testing::MatchesRegex("could not: the connection of the agent at 127.0.0.1:[0-9]+ was lost before its "
                                      "reply: the other side closed the connection"));
}

TEST_F(Remote, the_end_of_the_simulator_is_reported_to_waiting_clients)
{
    auto reply = requestAsync(request("ping"));
    EXPECT_EQ(agent.receiveLine(), "001:ping\r\n");
    EXPECT_EQ(kvosim_test::exchange("killDaemon\n"), "ok\n");
    EXPECT_THAT(reply.get(), HasSubstr("was lost before its reply"));
    EXPECT_EQ(agent.receiveLine(), "(closed)");
    service.join();
    EXPECT_THROW(Agent(), std::runtime_error) << "the port is free again";
}

TEST_F(Remote, refused_requests_are_not_sent)
{
    const auto refusal = [](const tools::Json &ask, const std::string &text) {
        EXPECT_THAT([&] { tools::askSimulator(ask); }, ThrowsMessage<tools::Refused>(HasSubstr(text)));
    };
    refusal(request("a\nb"), "the request contains a line end or a zero byte");
    refusal(request("a\r"), "the request contains a line end or a zero byte");
    refusal(request(std::string("a\0b", 3)), "the request contains a line end or a zero byte");
    refusal(request(std::string(255, 'x')), "the request has 255 bytes; an agent accepts at most 254");
    refusal(request(std::string(251, 'x'), {{"tag", "042"}}), "the request has 255 bytes");
    refusal(request("ping", {{"tag", "4"}}), "tag: \"4\" is not a tag; write three digits");
    refusal(request("ping", {{"tag", "1234"}}), "is not a tag");
    refusal(request("ping", {{"patience_ms", 600'001}}), "patience_ms: is out of range; write 0 to 600000");
    refusal({{"do", "remote.raw"}, {"session", 3}, {"bytes", "4"}}, "bytes: write");
    refusal({{"do", "remote.raw"}, {"session", 3}, {"bytes", "4X"}}, "bytes: write");
    refusal({{"do", "remote.raw"}, {"session", 3}, {"bytes", std::string(8194, '0')}}, "bytes: write at most 4096");
    EXPECT_EQ(agent.receiveLine(100ms), "(nothing more came)");
    EXPECT_THAT(log(), ElementsAre(StartsWith("connected")));
}

TEST_F(Remote, a_request_without_an_agent_fails)
{
    const auto failure = [](unsigned session, const std::string &text) {
        for (const char *action : {"remote.ask", "remote.send", "remote.raw", "remote.close"}) {
            const tools::Json ask{
                {"do", action}, {"session", session}, {"request", "ping"}, {"bytes", "00"}, {"patience_ms", 100}};
            EXPECT_THAT([&] { tools::askSimulator(ask); }, ThrowsMessage<tools::CouldNot>(text)) << action;
        }
    };
    failure(9, "no agent is connected in session 9 (port 5859)");
    failure(4, "session 4 is not served; start the simulator with --remote 3,9,4");
}

// ---- The log ----

TEST_F(Remote, the_log_can_be_followed)
{
    ASSERT_EQ(logOf(1).size(), 1U);
    auto page = std::async(std::launch::async, [] {
        return tools::askSimulator({{"do", "remote.log"}, {"after", 1}, {"session", 3}, {"wait_ms", 5000}});
    });
    std::this_thread::sleep_for(50ms);
    Agent other(9);  // the query does not include this session
    ASSERT_TRUE(waitForConnection(true, 9));
    EXPECT_EQ(page.wait_for(50ms), std::future_status::timeout);
    agent.send("I01:now\r\n");
    const tools::Json told = page.get();
    ASSERT_EQ(told["records"].size(), 1U);
    EXPECT_EQ(told["records"][0]["text"], "I01:now");
    EXPECT_EQ(told["records"][0]["session"], 3);
    EXPECT_EQ(told["next"], 3);
    const tools::Json nothing = tools::askSimulator({{"do", "remote.log"}, {"after", 3}, {"wait_ms", 100}});
    EXPECT_TRUE(nothing["records"].empty());
    EXPECT_EQ(nothing["next"], 3);
}

TEST_F(Remote, an_unexpected_reply_is_logged)
{
    agent.send("hello\r\n");
    EXPECT_THAT(logOf(2).back(), "reply hello (not requested)");
}

}  // namespace
