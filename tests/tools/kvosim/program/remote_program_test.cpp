// The commands for the remote side and for events of embedded stations, as users see them.
#include "tools/kvosim/support/agent.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/program.h"
#include "tools/kvosim/support/run_kvosim.h"

#include <gmock/gmock.h>

#include <fstream>
#include <future>
#include <signal.h>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim_test::Agent;
using kvosim_test::Client;
using kvosim_test::Exited;
using kvosim_test::Program;
using kvosim_test::runKvosim;
using kvosim_test::TemporaryDirectory;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr const char *kPlant = "[[station]]\naddress = \"10.0.0.5\"\nname = \"A\"\n";

/// A running "kvosim serve" that is ready.
class Serving {
public:
    explicit Serving(std::vector<std::string> more = {}) : program_(command(std::move(more)))
    {
        ready = program_.hasWritten("kvosim: serving 1 stations");
    }

    [[nodiscard]] const Program &program() const { return program_; }
    bool ready = false;

private:
    std::vector<std::string> command(std::vector<std::string> more)
    {
        const auto plant = directory_ / "plant.toml";
        std::ofstream(plant) << kPlant;
        more.insert(more.begin(), {KVOSIM_PROGRAM, "serve", "--plant", plant.string(), "--usb-lock-address", "none"});
        return more;
    }

    TemporaryDirectory directory_;
    Program program_;
};

/// Sends an indication and then "pong" for each "ping", until the connection ends.
std::future<void> answerPings(Agent &agent)
{
    return std::async(std::launch::async, [&agent] {
        while (agent.answer("pong\r\nI01:seen\r\n").find('(') == std::string::npos) {
        }
    });
}

TEST(RemoteProgram, sends_requests_lists_sessions_shows_the_log_and_runs_scripts)
{
    Serving serving({"--remote", "3,4", "--verbose"});
    ASSERT_TRUE(serving.ready) << serving.program().err();
    EXPECT_EQ(runKvosim({"remote", "list"}).out, "session 3, 127.0.0.1:5853, no agent\nsession 4, 127.0.0.1:5854, no agent\n");
    Agent agent;
    auto answering = answerPings(agent);
    EXPECT_THAT(runKvosim({"remote", "list"}).out, ContainsRegex("session 3, 127.0.0.1:5853, agent at 127.0.0.1:[0-9]+\n"));
    EXPECT_EQ(runKvosim({"remote", "ask", "3", "ping"}).out, "pong\n");
    EXPECT_EQ(runKvosim({"remote", "ask", "3", "ping", "--tag", "042"}).out, "042:pong\n");
    EXPECT_EQ(runKvosim({"remote", "ask", "3", "ping", "--untagged"}).out, "pong\n");
    EXPECT_EQ(runKvosim({"remote", "ask", "3", "ping", "--json"}).out, "{\"reply\":\"pong\"}\n");

    const TemporaryDirectory directory;
    const std::string script = directory / "agent.script";
    std::ofstream(script) << "session 3\n> ping\n< pong\n! seen\n";
    EXPECT_EQ(runKvosim({"remote", "run", script}).out, script + ": 3 steps done, 1 replies and 1 indications as expected\n");
    EXPECT_EQ(runKvosim({"remote", "run", script, "--json"}).out,
              "{\"steps\":3,\"replies\":1,\"indications\":1,\"unread\":0}\n");
    std::ofstream(script) << "session 3\n> ping\n< pang\n";
    const Exited different = runKvosim({"remote", "run", script});
    EXPECT_EQ(different.status, 1);
    EXPECT_EQ(different.err, "kvosim: " + script + ":3: expected the reply \"pang\", got \"pong\"\n");
    std::ofstream(script) << "ping\n";
    EXPECT_EQ(runKvosim({"remote", "run", script}).status, 2);

    const std::string log = runKvosim({"remote", "log", "--session", "3"}).out;
    EXPECT_THAT(log, MatchesRegex("[0-9][0-9]:[0-9][0-9]:[0-9][0-9].[0-9][0-9][0-9] session 3 connected from .*"));
    EXPECT_THAT(log, HasSubstr(" session 3 > 001:ping\n"));
    EXPECT_THAT(log, HasSubstr(" session 3 < 001:pong\n"));
    EXPECT_THAT(log, HasSubstr(" session 3 ! I01:seen\n"));
    EXPECT_EQ(runKvosim({"remote", "log", "--session", "4"}).out, "");
    EXPECT_EQ(runKvosim({"remote", "log", "--session", "5"}).status, 1);
    EXPECT_THAT(runKvosim({"remote", "log", "--json"}).out,
                HasSubstr(R"("session":3,"kind":"indication","text":"I01:seen","note":"")"));
    EXPECT_THAT(serving.program().err(), HasSubstr(" session 3 ! I01:seen\n")) << "logged when it arrives";

    EXPECT_EQ(runKvosim({"remote", "close", "3"}).out, "closed\n");
    answering.get();
    const Exited closed = runKvosim({"remote", "close", "3", "--reset"});
    EXPECT_EQ(closed.status, 1);
    EXPECT_EQ(closed.err, "kvosim: no agent is connected in session 3 (port 5853)\n");
    EXPECT_EQ(runKvosim({"remote", "close", "3", "--for", "600"}).out, "closed\n");
    EXPECT_EQ(runKvosim({"remote", "list"}).out,
              "session 3, 127.0.0.1:5853, temporarily closed\nsession 4, 127.0.0.1:5854, no agent\n");
}

TEST(RemoteProgram, follows_the_log)
{
    const Serving serving({"--remote", "3"});
    ASSERT_TRUE(serving.ready);
    Program following({KVOSIM_PROGRAM, "remote", "log", "--follow"});
    const Agent agent;
    EXPECT_TRUE(following.hasWritten(" session 3 connected from"));
    agent.send("I07:later\r\n");
    EXPECT_TRUE(following.hasWritten(" session 3 ! I07:later\n"));
    following.signal(SIGTERM);
    EXPECT_EQ(following.wait(), -SIGTERM);
}

TEST(RemoteProgram, exits_with_status_1_without_a_reply)
{
    const Serving serving({"--remote", "3"});
    ASSERT_TRUE(serving.ready);
    const Agent agent;
    const Exited ended = runKvosim({"remote", "ask", "3", "ping", "--timeout", "1"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "kvosim: no reply within 1 s\n");
}

TEST(RemoteProgram, still_waits_for_the_reply_after_it_was_stopped_and_continued)
{
    const Serving serving({"--remote", "3"});
    ASSERT_TRUE(serving.ready);
    Agent agent;
    Program asking({KVOSIM_PROGRAM, "remote", "ask", "3", "ping"});
    ASSERT_EQ(agent.receiveLine(), "001:ping\r\n");
    std::this_thread::sleep_for(100ms);  // it waits by now
    asking.signal(SIGSTOP);
    std::this_thread::sleep_for(100ms);
    asking.signal(SIGCONT);
    agent.send("001:pong\r\n");
    EXPECT_EQ(asking.wait(), 0) << asking.err();
    EXPECT_EQ(asking.out(), "pong\n");
}

TEST(RemoteProgram, names_a_port_that_is_in_use)
{
    const Serving first({"--remote", "3"});
    ASSERT_TRUE(first.ready);
    const Exited second = runKvosim({"run", "--remote", "3", "--", "true"});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.err, "kvosim: cannot serve agents of session 3 at 127.0.0.1:5853: the port is in use, perhaps by another "
                          "simulator or a real hardware service\n");
}

TEST(RemoteProgram, serves_the_network_if_the_option_requests_it)
{
    const Serving serving({"--remote", "3", "--remote-address", "0.0.0.0"});
    ASSERT_TRUE(serving.ready);
    const Agent agent(3, "127.0.0.9");
    EXPECT_EQ(runKvosim({"remote", "ask", "3", "x", "--timeout", "1"}).err, "kvosim: no reply within 1 s\n");
}

struct WrongRow : kvosim_test::NamedRow {
    std::vector<std::string> arguments;
    std::string err;
};

class WrongUse : public testing::TestWithParam<WrongRow> {};

TEST_P(WrongUse, is_reported_with_status_2)
{
    const Serving serving({"--remote", "3"});
    ASSERT_TRUE(serving.ready);
    const Exited ended = runKvosim(GetParam().arguments);
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.err, HasSubstr(GetParam().err));
}

const std::vector<WrongRow> kWrongUses = {
    {{"sessions"}, {"run", "--remote", "3,10", "--", "true"}, "is not a list of sessions; write session numbers from 0 to 9"},
    {{"address"},
     {"run", "--remote", "4", "--remote-address", "::1", "--", "true"},
     "\"::1\" is not an IPv4 address; write one"},
    {{"host_name"}, {"run", "--remote", "4", "--remote-address", "localhost", "--", "true"}, "is not an IPv4 address"},
    {{"alive"}, {"run", "--alive", "-1", "--", "true"}, "--alive"},
    {{"ask_line_end"}, {"remote", "ask", "3", "a\nb"}, "the request contains a line end or a zero byte; write one line"},
    {{"ask_long"}, {"remote", "ask", "3", std::string(255, 'x')}, "the request has 255 bytes; an agent accepts at most 254"},
    {{"ask_tag"}, {"remote", "ask", "3", "ping", "--tag", "4"}, "is not a tag; write three digits"},
    {{"ask_two_ways"}, {"remote", "ask", "3", "ping", "--tag", "042", "--untagged"}, "excludes"},
    {{"ask_timeout"}, {"remote", "ask", "3", "ping", "--timeout", "601"}, "--timeout"},
    {{"remote_without_subcommand"}, {"remote"}, "Usage: kvosim remote [OPTIONS] COMMAND\n"},
    {{"event_name"}, {"event", "a name that is too long, x"}, "write \"name, data\" with a name of 1 to 19 bytes"},
    {{"event_lines"}, {"event", "a, b\nc", "--as-is"}, "the event contains a line end"},
    {{"event_not_utf8"}, {"event", "a, \xff"}, "a text is not UTF-8"}};

INSTANTIATE_TEST_SUITE_P(Table, WrongUse, testing::ValuesIn(kWrongUses), kvosim_test::kNameOfRow);

class WithoutSimulator : public testing::TestWithParam<const char *> {};

TEST_P(WithoutSimulator, exits_with_status_3)
{
    const Exited ended = runKvosim(std::string(GetParam()) == "event" ? std::vector<std::string>{"event", "a, b"}
                                                                      : std::vector<std::string>{"remote", GetParam()});
    EXPECT_EQ(ended.status, 3);
    EXPECT_THAT(ended.err, HasSubstr("no simulator is running"));
}

INSTANTIATE_TEST_SUITE_P(All, WithoutSimulator, testing::Values("list", "log", "event"));

// ---- Events of embedded stations ----

TEST(EventProgram, shows_the_number_of_listeners)
{
    Serving serving({"--alive", "0"});
    ASSERT_TRUE(serving.ready);
    const Exited unsent = runKvosim({"event", "key, F1"});
    EXPECT_EQ(unsent.status, 1);
    EXPECT_EQ(unsent.out, "");
    EXPECT_EQ(unsent.err, "kvosim: no program listens for events; the event was sent to 0 listeners\n");
    const Client first("/tmp/kvo_hws/event_sock");
    EXPECT_EQ(runKvosim({"event", "key, F1"}).out, "sent to 1 listener\n");
    const Client second("/tmp/kvo_hws/event_sock");
    EXPECT_EQ(runKvosim({"event", "key", "--as-is"}).out, "sent to 2 listeners\n");
    EXPECT_EQ(runKvosim({"event", "Alive?", "--json"}).out, "{\"listeners\":2}\n");
    EXPECT_EQ(first.receiveAll(100ms), "key, F1\nkey\nAlive?\n(nothing more came)");
    EXPECT_EQ(second.receiveAll(100ms), "key\nAlive?\n(nothing more came)");
}

TEST(EventProgram, sends_alive_at_the_interval_of_the_option)
{
    const Serving serving({"--alive", "1"});
    ASSERT_TRUE(serving.ready);
    const Client listener("/tmp/kvo_hws/event_sock");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(listener.receive(14), "Alive?\nAlive?\n");
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, 900ms) << "not at once";
    EXPECT_LT(waited, 8s) << "without the option the first one comes after 10 s";
}

}  // namespace
