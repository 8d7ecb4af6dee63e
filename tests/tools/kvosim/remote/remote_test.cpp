// The remote side over the control socket: requests to agents, their replies in good and bad order, and the log.
#include "common/control_client.h"
#include "kvosim/net/tcp_socket.h"
#include "kvosim/remote/remote_log.h"
#include "kvosim/remote/remote_session.h"
#include "support/eventually.h"
#include "tools/kvosim/support/agent.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/running_service.h"

#include <gmock/gmock.h>

#include <future>
#include <thread>

using namespace std::chrono_literals;

namespace {

using kvosim_test::Agent;
using kvosim_test::RunningService;
using support::eventually;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;
using tools::askSimulator;
using tools::CouldNot;
using tools::Json;
using tools::Refused;

kvosim::ServiceOptions sessions(std::vector<unsigned> numbers)
{
    kvosim::ServiceOptions options;
    options.remoteSessions = std::move(numbers);
    return options;
}

tools::Json sessionRow(unsigned session)
{
    const tools::Json list = tools::askSimulator({{"do", "remote.list"}});
    for (const tools::Json &row : list["sessions"]) {
        if (row["session"] == session) {
            return row;
        }
    }
    return {};
}

/// Waits until an agent is connected, or none.
bool becomes(bool connected, unsigned session = 3)
{
    return eventually([=] { return sessionRow(session)["agent"].is_null() != connected; });
}

tools::Json request(std::string text, const tools::Json &more = tools::Json::object())
{
    tools::Json ask{{"do", "remote.ask"}, {"session", 3}, {"request", std::move(text)}, {"patience_ms", 5000}};
    ask.update(more);
    return ask;
}

/// The reply, or why there is none.
std::future<std::string> asks(const tools::Json &request)
{
    return std::async(std::launch::async, [request]() -> std::string {
        try {
            return tools::askSimulator(request, tools::kControlSocket, 30s)["reply"].get<std::string>();
        } catch (const tools::CouldNot &error) {
            return std::string("could not: ") + error.what();
        }
    });
}

std::vector<std::string> log(const tools::Json &query = tools::Json::object())
{
    tools::Json request{{"do", "remote.log"}};
    request.update(query);
    std::vector<std::string> lines;
    const tools::Json page = tools::askSimulator(request);
    for (const tools::Json &record : page["records"]) {
        const std::string kind = record["kind"].get<std::string>();
        const std::string note = record["note"].get<std::string>();
        lines.push_back(kind + ' ' + record["text"].get<std::string>() + (note.empty() ? "" : " (" + note + ')'));
    }
    return lines;
}

class Remote : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(becomes(true)); }

    /// Waits until there are so many records.
    static std::vector<std::string> logOf(std::size_t count)
    {
        eventually([=] { return log().size() >= count; });
        return log();
    }

    RunningService service{kvosim_test::kSmallPlant, sessions({3, 9})};
    Agent agent;
};

// ---- Asking ----

TEST_F(Remote, ARequestGetsATagAndItsReplyLosesIt)
{
    auto reply = asks(request("get-kvoindex"));
    EXPECT_EQ(agent.hear(), "001:get-kvoindex\r\n");
    agent.send("001:kvoindex=1\r\n");
    EXPECT_EQ(reply.get(), "kvoindex=1");
    auto next = asks(request("ping"));
    EXPECT_EQ(agent.hear(), "002:ping\r\n");
    agent.send("002:pong\r\n");
    EXPECT_EQ(next.get(), "pong");
}

TEST_F(Remote, ATagThatIsGivenIsKept)
{
    auto reply = asks(request("ping", {{"tag", "042"}}));
    EXPECT_EQ(agent.hear(), "042:ping\r\n");
    agent.send("042:pong\r\n");
    EXPECT_EQ(reply.get(), "042:pong");
    auto inside = asks(request("043:ping"));
    EXPECT_EQ(agent.hear(), "043:ping\r\n");
    agent.send("043:pong\r\n");
    EXPECT_EQ(inside.get(), "043:pong");
}

TEST_F(Remote, ARequestWithoutATagIsSentAsItIs)
{
    auto reply = asks(request("ping", {{"untagged", true}}));
    EXPECT_EQ(agent.hear(), "ping\r\n");
    agent.send("pong\r\n");
    EXPECT_EQ(reply.get(), "pong");
}

TEST_F(Remote, TheLongestRequestHasNoRoomForATag)
{
    const std::string longest(kvosim::kLongestRequest, 'x');
    auto reply = asks(request(longest));
    EXPECT_EQ(agent.hear(), longest + "\r\n");
    agent.send("bad request\r\n");
    EXPECT_EQ(reply.get(), "bad request");
}

TEST_F(Remote, IndicationsMayStandBeforeTheReply)
{
    auto reply = asks(request("ping"));
    EXPECT_EQ(agent.hear(), "001:ping\r\n");
    agent.send("I01:one\r\nI02:two\r\n001:pong\r\n");
    EXPECT_EQ(reply.get(), "pong");
    EXPECT_THAT(logOf(5), ElementsAre(StartsWith("connected from 127.0.0.1:"), "request 001:ping", "indication I01:one",
                                      "indication I02:two", "reply 001:pong"));
}

TEST_F(Remote, NoneWithoutALineEndIsTakenAfterASilence)
{
    auto reply = asks(request("get-softkey-type"));
    EXPECT_EQ(agent.answer("none"), "get-softkey-type\r\n");
    EXPECT_EQ(reply.get(), "none");
    auto untagged = asks(request("get-softkey-type", {{"untagged", true}}));
    EXPECT_EQ(agent.answer("none"), "get-softkey-type\r\n");
    EXPECT_EQ(untagged.get(), "none");
    EXPECT_THAT(logOf(5), ElementsAre(testing::_, testing::_, "reply 001:none (without a line end)", testing::_,
                                      "reply none (without a line end)"));
}

TEST_F(Remote, NoneWithoutALineEndIsTakenWhereTheNextReplyFollows)
{
    auto first = asks(request("get-softkey-type", {{"untagged", true}}));
    EXPECT_EQ(agent.hear(), "get-softkey-type\r\n");
    auto second = asks(request("ping", {{"untagged", true}}));
    EXPECT_EQ(agent.hear(), "ping\r\n");
    agent.send("nonepong\r\n");
    EXPECT_EQ(first.get(), "none");
    EXPECT_EQ(second.get(), "pong");
}

TEST_F(Remote, NoneIsTakenWhereTheAgentClosesBehindIt)
{
    auto reply = asks(request("get-softkey-type"));
    EXPECT_EQ(agent.hear(), "001:get-softkey-type\r\n");
    agent.send("001:none");
    shutdown(agent.get(), SHUT_WR);
    EXPECT_EQ(reply.get(), "none");
    EXPECT_TRUE(becomes(false));
}

TEST_F(Remote, ManyAskAtOnceAndEachGetsItsOwnReply)
{
    std::vector<std::future<std::string>> replies;
    for (int i = 0; i < 20; ++i) {
        replies.push_back(asks(request("set-kvoindex=" + std::to_string(i))));
    }
    for (int i = 0; i < 20; ++i) {
        const std::string line = agent.hear();
        agent.send(line.substr(0, 4) + "you said " + line.substr(17));
    }
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(replies[static_cast<std::size_t>(i)].get(), "you said " + std::to_string(i));
    }
}

// ---- Asking in vain ----

TEST_F(Remote, WithoutAReplyTheTimeIsOver)
{
    const auto start = std::chrono::steady_clock::now();
    auto reply = asks(request("ping", {{"patience_ms", 300}}));
    EXPECT_EQ(reply.get(), "could not: no reply within 0.300 s");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
    EXPECT_EQ(asks(request("ping", {{"patience_ms", 1000}})).get(), "could not: no reply within 1 s");
}

TEST_F(Remote, AReplyThatComesTooLateIsNotTakenForTheNextOne)
{
    auto first = asks(request("ping", {{"patience_ms", 100}, {"untagged", true}}));
    EXPECT_EQ(agent.hear(), "ping\r\n");
    EXPECT_THAT(first.get(), HasSubstr("no reply"));
    auto second = asks(request("get-kvoindex", {{"untagged", true}}));
    EXPECT_EQ(agent.hear(), "get-kvoindex\r\n");
    agent.send("pong\r\nkvoindex=1\r\n");
    EXPECT_EQ(second.get(), "kvoindex=1");
    EXPECT_THAT(logOf(5),
                ElementsAre(testing::_, "request ping", "request get-kvoindex", "reply pong (too late)", "reply kvoindex=1"));
}

TEST_F(Remote, ARequestThatWasLeftOutIsToldSo)
{
    auto first = asks(request("one"));
    EXPECT_EQ(agent.hear(), "001:one\r\n");
    auto second = asks(request("two"));
    EXPECT_EQ(agent.hear(), "002:two\r\n");
    agent.send("002:ok\r\n");
    EXPECT_EQ(second.get(), "ok");
    EXPECT_EQ(first.get(), "could not: the agent has answered a later request, but not this one");
}

TEST_F(Remote, ALostConnectionIsToldToWhoWaits)
{
    auto reply = asks(request("ping"));
    EXPECT_EQ(agent.hear(), "001:ping\r\n");
    shutdown(agent.get(), SHUT_RDWR);
    EXPECT_THAT(reply.get(),
                testing::MatchesRegex("could not: the connection of the agent at 127.0.0.1:[0-9]+ was lost before its "
                                      "reply: the other side has closed it"));
}

TEST_F(Remote, TheSimulatorsEndIsToldToWhoWaits)
{
    auto reply = asks(request("ping"));
    EXPECT_EQ(agent.hear(), "001:ping\r\n");
    EXPECT_EQ(kvosim_test::exchange("killDaemon\n"), "ok\n");
    EXPECT_THAT(reply.get(), HasSubstr("was lost before its reply"));
    EXPECT_EQ(agent.hear(), "(closed)");
    service.join();
    EXPECT_THROW(Agent(), std::runtime_error) << "the port is free again";
}

TEST_F(Remote, WhatIsRefusedIsNotSent)
{
    const auto refusal = [](const tools::Json &ask, const std::string &text) {
        EXPECT_THAT([&] { tools::askSimulator(ask); }, ThrowsMessage<tools::Refused>(HasSubstr(text)));
    };
    refusal(request("a\nb"), "the request holds a line end or a zero");
    refusal(request("a\r"), "the request holds a line end or a zero");
    refusal(request(std::string("a\0b", 3)), "the request holds a line end or a zero");
    refusal(request(std::string(255, 'x')), "the request has 255 bytes; an agent takes at most 254");
    refusal(request(std::string(251, 'x'), {{"tag", "042"}}), "the request has 255 bytes");
    refusal(request("ping", {{"tag", "4"}}), "tag: \"4\" is no tag; write three digits");
    refusal(request("ping", {{"tag", "1234"}}), "is no tag");
    refusal(request("ping", {{"patience_ms", 600'001}}), "patience_ms: is out of range; write 0 to 600000");
    refusal({{"do", "remote.raw"}, {"session", 3}, {"bytes", "4"}}, "bytes: write");
    refusal({{"do", "remote.raw"}, {"session", 3}, {"bytes", "4X"}}, "bytes: write");
    refusal({{"do", "remote.raw"}, {"session", 3}, {"bytes", std::string(8194, '0')}}, "bytes: write at most 4096");
    EXPECT_EQ(agent.hear(100ms), "(nothing more came)");
    EXPECT_THAT(log(), ElementsAre(StartsWith("connected")));
}

TEST_F(Remote, WhereNoAgentIsThatIsTold)
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

// ---- Connections ----

TEST_F(Remote, SessionsAreListed)
{
    const tools::Json row = sessionRow(3);
    EXPECT_EQ(row["port"], 5853);
    EXPECT_EQ(row["address"], "127.0.0.1");
    EXPECT_THAT(row["agent"].get<std::string>(), StartsWith("127.0.0.1:"));
    EXPECT_TRUE(sessionRow(9)["agent"].is_null());
    EXPECT_EQ(tools::askSimulator({{"do", "status"}})["remote_sessions"], 2);
}

TEST_F(Remote, ASecondAgentTakesThePlaceOfTheFirst)
{
    auto reply = asks(request("ping"));
    EXPECT_EQ(agent.hear(), "001:ping\r\n");
    Agent second;
    EXPECT_THAT(reply.get(), HasSubstr("takes its place"));
    EXPECT_EQ(agent.hear(), "(closed)");
    auto next = asks(request("ping"));
    second.answer("pong\r\n");
    EXPECT_EQ(next.get(), "pong");
    EXPECT_THAT(log(), testing::Contains(testing::MatchesRegex("closed the agent at 127.0.0.1:[0-9]+ takes its place")));
}

TEST_F(Remote, SessionsAreApart)
{
    Agent other(9);
    ASSERT_TRUE(becomes(true, 9));
    auto reply = asks(request("ping", {{"session", 9}}));
    EXPECT_EQ(other.answer("pong\r\n"), "ping\r\n");
    EXPECT_EQ(reply.get(), "pong");
    EXPECT_THAT(log({{"session", 3}}), ElementsAre(StartsWith("connected")));
    EXPECT_THAT(log({{"session", 9}}), ElementsAre(StartsWith("connected"), "request 001:ping", "reply 001:pong"));
    EXPECT_EQ(agent.hear(50ms), "(nothing more came)");
}

TEST_F(Remote, AConnectionIsClosedOrReset)
{
    tools::askSimulator({{"do", "remote.close"}, {"session", 3}});
    EXPECT_EQ(agent.hear(), "(closed)");
    Agent second;
    ASSERT_TRUE(becomes(true));
    tools::askSimulator({{"do", "remote.close"}, {"session", 3}, {"reset", true}});
    EXPECT_EQ(second.hear(), "(reset)");
    EXPECT_TRUE(becomes(false));
}

TEST_F(Remote, TheOtherSideGoesAwayForATime)
{
    const auto gone = std::chrono::steady_clock::now();
    tools::askSimulator({{"do", "remote.close"}, {"session", 3}, {"away_ms", 500}});
    EXPECT_EQ(agent.hear(), "(closed)");
    EXPECT_THROW(Agent(), std::runtime_error);
    EXPECT_TRUE(sessionRow(3)["away"].get<bool>());
    ASSERT_TRUE(eventually([] { return !sessionRow(3)["away"].get<bool>(); }));
    EXPECT_GE(std::chrono::steady_clock::now() - gone, 500ms);
    Agent second;
    EXPECT_TRUE(becomes(true));
}

TEST_F(Remote, GoesAwayWithoutAnAgentAndAgain)
{
    tools::askSimulator({{"do", "remote.close"}, {"session", 9}, {"away_ms", 600'000}});
    EXPECT_THROW(Agent(9), std::runtime_error);
    tools::askSimulator({{"do", "remote.close"}, {"session", 9}, {"away_ms", 1}});
    ASSERT_TRUE(eventually([] { return !sessionRow(9)["away"].get<bool>(); }));
    Agent other(9);
    EXPECT_TRUE(becomes(true, 9));
}

TEST_F(Remote, ComesBackAsSoonAsThePortIsFree)
{
    tools::askSimulator({{"do", "remote.close"}, {"session", 9}, {"away_ms", 100}});
    {
        const tools::Descriptor taken = kvosim::listenAt("a test", INADDR_LOOPBACK, 5859);
        std::this_thread::sleep_for(400ms);
        EXPECT_TRUE(sessionRow(9)["away"].get<bool>());
    }
    ASSERT_TRUE(eventually([] { return !sessionRow(9)["away"].get<bool>(); }));
    Agent other(9);
    EXPECT_TRUE(becomes(true, 9));
}

// ---- What rude agents do ----

TEST_F(Remote, ALineThatDoesNotEndClosesTheConnection)
{
    agent.send(std::string(kvosim::kLongestAgentLine, 'x'));
    EXPECT_EQ(agent.hear(100ms), "(nothing more came)");
    agent.send("x");
    EXPECT_EQ(agent.hear(), "(closed)");
    EXPECT_THAT(logOf(2).back(), "closed the agent has sent a line longer than 4096 bytes");
}

TEST_F(Remote, HalfALineHoldsNobodyUp)
{
    agent.send("001:po");
    EXPECT_EQ(kvosim_test::exchange("getVersion\n"), "V09.08\n");
    auto reply = asks(request("ping"));
    agent.hear();
    agent.send("ng\r\n");
    EXPECT_EQ(reply.get(), "pong");
}

TEST_F(Remote, AFloodIsLoggedWithinBounds)
{
    const std::string line = "I01:" + std::string(1000, 'x') + "\r\n";
    for (int i = 0; i < 5000; ++i) {
        ASSERT_TRUE(agent.send(line));
    }
    auto reply = asks(request("ping"));
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
            EXPECT_EQ(record["number"], lost + ++records) << "in order, without a gap";
            bytes += record["text"].get<std::string>().size();
        }
        known = page["next"];
    }
    EXPECT_EQ(records + lost, 5003U);
    EXPECT_LE(records, kvosim::RemoteLog::kMostRecords);
    EXPECT_LE(bytes, kvosim::RemoteLog::kMostBytes);
    EXPECT_GT(records, 900U);
}

TEST_F(Remote, AnAgentThatDoesNotReadIsNotSentWithoutEnd)
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

TEST_F(Remote, SoManyRequestsWaitAndNoMore)
{
    constexpr std::size_t kMost = kvosim::RemoteSession::kMostUnanswered;
    for (std::size_t i = 0; i < 2 * kMost; ++i) {
        tools::askSimulator({{"do", "remote.send"}, {"session", 3}, {"request", "nobody waits"}});
        EXPECT_EQ(agent.hear(), "nobody waits\r\n");
    }
    // Those give way to the ones that somebody waits for.
    std::vector<std::future<std::string>> waiting;
    for (std::size_t i = 0; i < kMost; ++i) {
        waiting.push_back(asks(request("ping")));
        EXPECT_THAT(agent.hear(), HasSubstr(":ping"));
    }
    EXPECT_EQ(asks(request("ping")).get(),
              "could not: 32 requests wait for a reply of the agent of session 3 already; wait for them");
    EXPECT_EQ(kvosim_test::exchange("getVersion\n"), "V09.08\n");
    shutdown(agent.get(), SHUT_RDWR);
    for (auto &reply : waiting) {
        EXPECT_THAT(reply.get(), HasSubstr("was lost"));
    }
}

// ---- The log ----

TEST_F(Remote, WhoFollowsTheLogIsToldWhatComes)
{
    ASSERT_EQ(logOf(1).size(), 1U);
    auto page = std::async(std::launch::async, [] {
        return tools::askSimulator({{"do", "remote.log"}, {"after", 1}, {"session", 3}, {"wait_ms", 5000}});
    });
    std::this_thread::sleep_for(50ms);
    Agent other(9);  // is not asked about
    ASSERT_TRUE(becomes(true, 9));
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

TEST_F(Remote, AReplyThatNobodyAskedForIsLogged)
{
    agent.send("hello\r\n");
    EXPECT_THAT(logOf(2).back(), "reply hello (not asked for)");
}

// ---- Where it listens ----

TEST(RemotePorts, NoneWithoutTheOption)
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

TEST(RemotePorts, AllTen)
{
    const RunningService service(kvosim_test::kSmallPlant, sessions({0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    for (unsigned session = 0; session <= 9; ++session) {
        const Agent agent(session);
        EXPECT_TRUE(becomes(true, session)) << session;
    }
}

TEST(RemotePorts, AreThoseOf127_0_0_1AndNoOthersUnlessTold)
{
    const RunningService service(kvosim_test::kSmallPlant, sessions({3}));
    EXPECT_THROW(Agent(3, "127.0.0.2"), std::runtime_error) << "an address of this machine, but another one";
    const Agent agent(3);
    EXPECT_TRUE(becomes(true, 3));
}

TEST(RemotePorts, APlantNamesThem)
{
    const RunningService service("[service]\nremote_sessions = \"1,2\"\nremote_address = \"127.0.0.2\"\n");
    const Agent agent(2, "127.0.0.2");
    EXPECT_TRUE(becomes(true, 2));
    EXPECT_EQ(sessionRow(1)["address"], "127.0.0.2");
    EXPECT_THROW(Agent(2, "127.0.0.1"), std::runtime_error);
}

TEST(RemotePorts, AnOptionGoesBeforeThePlant)
{
    auto options = sessions({});
    options.remoteAddress = "127.0.0.1";
    const RunningService service("[service]\nremote_sessions = \"1,2\"\n", options);
    EXPECT_TRUE(tools::askSimulator({{"do", "remote.list"}})["sessions"].empty());
}

TEST(RemotePorts, OneInUseIsNamed)
{
    kvosim::EventLoop loop;
    const kvosim::RemoteSide first(loop, {.sessions = {3}}, [](std::string_view) {});
    EXPECT_THAT(
        [&] {
            kvosim::RemoteSide(loop, {.sessions = {2, 3}}, [](std::string_view) {});
        },
        ThrowsMessage<std::runtime_error>("can not serve agents of session 3 at 127.0.0.1:5853: the port is in use, perhaps "
                                          "by another simulator or a real hardware service"));
    EXPECT_THAT([&] { kvosim::RemoteSide(loop, {.sessions = {1}, .address = "192.0.2.1"}, [](std::string_view) {}); },
                ThrowsMessage<std::runtime_error>(
                    "can not serve agents of session 1 at 192.0.2.1:5851: this machine does not have the address"));
    EXPECT_THAT(
        [&] { kvosim::RemoteSide(loop, {.sessions = {1}, .address = "::1"}, [](std::string_view) {}); },
        ThrowsMessage<std::runtime_error>(HasSubstr("\"::1\" is no IPv4 address to serve agents at; write one such as")));
}

// ---- How sessions are written ----

TEST(RemoteSessions, AreNumbersWithCommas)
{
    EXPECT_EQ(kvosim::parseSessions("3"), std::vector<unsigned>{3});
    EXPECT_EQ(kvosim::parseSessions("9,0,3"), (std::vector<unsigned>{9, 0, 3}));
    for (const char *wrong : {"", "10", "-1", "3,", ",3", "3,3", "3 4", "x"}) {
        EXPECT_THAT([&] { kvosim::parseSessions(wrong); },
                    ThrowsMessage<std::invalid_argument>(HasSubstr("write session numbers of 0 to 9, each once")))
            << wrong;
    }
}

}  // namespace
