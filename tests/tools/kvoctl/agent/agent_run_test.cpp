// "kvoctl agent run": its parameters, its output, the indications that it pushes, and its end.
#include "tools/kvoctl/support/agents.h"
#include "tools/kvoctl/support/signals.h"

#include <chrono>
#include <vector>

using namespace std::chrono_literals;

namespace kvoctl_test {

namespace {

using support::RemoteService;
using support::ScriptedService;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string kStarted = R"(started focus="10.0.0.5" remote="127.0.0.1" port=5853)";

/// Sends a valid request and waits until the agent has recorded it. The agent does so after its reply, so the second reply
/// proves it.
void speak(RemoteService &remote)
{
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(remote.ask("ping"), "pong");
}

class AgentRun : public testing::Test {
protected:
    ScriptedService service_{{knowsFocus()}};
    RemoteService remote_{kSession};
};

// ---- Parameters ----

TEST_F(AgentRun, reports_the_given_parameters)
{
    RunningAgent agent({"--kvo-index", "7", "--screen", "Program = 1", "--channel", "4", "--suspend-lock", "5",
                        "--suspend-prio", "6", "--startup-active", "8", "--startup-prio", "9", "--mcp"});
    ASSERT_TRUE(remote_.accept());
    EXPECT_EQ(remote_.ask("get-kvoindex"), "kvoindex=7");
    EXPECT_EQ(remote_.ask("get-screen-on-focus"), "screen-on-focus=Program = 1");
    EXPECT_EQ(remote_.ask("get-channel-on-focus"), "channel-on-focus=4");
    EXPECT_EQ(remote_.ask("get-kvo-priority"), "Priority=5:6");
    EXPECT_EQ(remote_.ask("get-kvo-startup-active"), "startup-active=8");
    EXPECT_EQ(remote_.ask("get-kvo-startup-prio"), "startup-prio=9");
    EXPECT_EQ(remote_.ask("get-t2m2n"), "1:2,3");
    EXPECT_EQ(remote_.ask("get-mcpaddr"), "mcpaddr=12");
    EXPECT_EQ(agent.stop(), 0);
}

TEST_F(AgentRun, uses_the_defaults_of_the_library)
{
    RunningAgent agent;
    ASSERT_TRUE(remote_.accept());
    EXPECT_EQ(remote_.ask("get-kvoindex"), "kvoindex=1");
    EXPECT_EQ(remote_.ask("get-kvo-priority"), "Priority=0:1");
    EXPECT_EQ(remote_.ask("get-mcpaddr"), "mcpaddr=255");
    EXPECT_EQ(agent.stop(), 0);
    EXPECT_THAT(service_.requests(), ElementsAre("getExDescByIP 0500000A\n", "getKVOt2m2n=0A000005\n"));
}

TEST_F(AgentRun, finds_the_station_by_name)
{
    RunningAgent agent({}, {"--focus-name", "st1"});
    ASSERT_TRUE(remote_.accept());
    EXPECT_EQ(remote_.ask("ping"), "pong");
    EXPECT_EQ(agent.stop(), 0);
    EXPECT_THAT(service_.requests(), ElementsAre("getExDescByName st1\n", "getKVOt2m2n=0A000005\n"));
    EXPECT_THAT(lines(agent.out()).front(), R"(started focus="st1" remote="127.0.0.1" port=5853)");
}

// ---- Answers of the host ----

TEST_F(AgentRun, shows_every_command_of_the_host_with_its_answer)
{
    RunningAgent agent({"--answer", "stop-viewer=not-running", "--answer", "stop-viewer-preempt=failed", "--answer",
                        "activate-me=busy", "--answer", "show-viewer-active=2", "--answer", "set-statusline=-7"});
    ASSERT_TRUE(remote_.accept());
    EXPECT_EQ(remote_.ask("042:stop-viewer"), "042:not running");
    EXPECT_EQ(remote_.ask("stop-viewer-preempt"), "failed");
    EXPECT_EQ(remote_.ask("stop-viewer-noclean"), "ok") << "the default is 1";
    EXPECT_EQ(remote_.ask("activate-me"), "busy");
    EXPECT_EQ(remote_.ask("show-viewer-active"), "failed");
    EXPECT_EQ(remote_.ask("set-darken=1"), "ok");
    EXPECT_EQ(remote_.ask("set-statusline=1,2,Tool=\"7\""), "failed");
    ASSERT_TRUE(agent.hasWritten("set-statusline"));
    EXPECT_EQ(agent.stop(), 0);
    EXPECT_EQ(agent.err(), "");
    EXPECT_THAT(lines(agent.out()),
                ElementsAre(kStarted, "connected", R"(command keyword="stop-viewer" answer=0)",
                            R"(command keyword="stop-viewer-preempt" answer=-1)",
                            R"(command keyword="stop-viewer-noclean" answer=1)", R"(command keyword="activate-me" answer=0)",
                            R"(command keyword="show-viewer-active" answer=2)",
                            R"(command keyword="set-darken" argument="1" answer=1)",
                            R"(command keyword="set-statusline" argument="1,2,Tool=\"7\"" answer=-7)"));
}

TEST_F(AgentRun, uses_one_answer_for_all_other_commands)
{
    RunningAgent agent(
        {"--answer-all", "no", "--answer", "stop-viewer=yes", "--answer", "set-darken=failed", "--answer", "set-darken=done"});
    ASSERT_TRUE(remote_.accept());
    EXPECT_EQ(remote_.ask("stop-viewer"), "ok");
    EXPECT_EQ(remote_.ask("set-darken=0"), "ok") << "the last word counts";
    EXPECT_EQ(remote_.ask("show-viewer-active"), "active=0");
    EXPECT_EQ(remote_.ask("show-current-server"), "none");
    EXPECT_EQ(remote_.ask("stop-viewer-noclean"), "not running");
    EXPECT_EQ(agent.stop(), 0);
}

TEST_F(AgentRun, shows_one_json_object_per_line)
{
    RunningAgent agent({"--json"});
    ASSERT_TRUE(remote_.accept());
    EXPECT_EQ(remote_.ask("set-darken=\xE4\x1B\""), "ok");
    EXPECT_EQ(remote_.ask("stop-viewer"), "ok");
    ASSERT_TRUE(agent.hasWritten("stop-viewer"));
    agent.type("one\n");
    ASSERT_TRUE(agent.hasWritten("pushed"));
    EXPECT_EQ(agent.stop(), 0);
    EXPECT_THAT(
        lines(agent.out()),
        ElementsAre(R"({"event":"started","focus":"10.0.0.5","remote":"127.0.0.1","port":5853})", R"({"event":"connected"})",
                    "{\"event\":\"command\",\"keyword\":\"set-darken\",\"argument\":\"\uFFFD\\u001b\\\"\",\"answer\":1}",
                    R"({"event":"command","keyword":"stop-viewer","answer":1})", R"({"event":"pushed","text":"one"})"));
}

// ---- Pushed lines ----

TEST_F(AgentRun, pushes_lines_after_the_first_valid_request)
{
    RunningAgent agent;
    ASSERT_TRUE(remote_.accept());
    ASSERT_TRUE(agent.hasWritten("connected"));
    agent.type("too early\n");
    ASSERT_TRUE(agent.hasWritten(R"(not_pushed text="too early" reason="the remote side has not sent a valid request yet")"));
    speak(remote_);
    agent.type("screen=1\nscr");
    EXPECT_EQ(remote_.line(), "I01:screen=1\r\n");
    agent.type("een=2\n");
    EXPECT_EQ(remote_.line(), "I02:screen=2\r\n");
    ASSERT_TRUE(agent.hasWritten("pushed text=\"screen=2\"\n"));
    EXPECT_EQ(agent.stop(), 0);
}

TEST_F(AgentRun, rejects_lines_that_the_protocol_cannot_carry)
{
    RunningAgent agent;
    ASSERT_TRUE(remote_.accept());
    speak(remote_);
    const std::string longest(250, 'x');
    agent.type(longest + "\n" + longest + "y\n\n" + std::string("a\0b\n", 4) + "c\r\nlast\n");
    ASSERT_TRUE(agent.hasWritten("\"last\""));
    EXPECT_EQ(remote_.line(), "I01:" + longest + "\r\n");
    EXPECT_EQ(remote_.line(), "I02:last\r\n");
    EXPECT_EQ(agent.stop(), 0);
    const std::vector<std::string> all = lines(agent.out());
    const auto notPushed = [](const std::string &text, const std::string &reason) {
        return "not_pushed text=\"" + text + "\" reason=\"" + reason + "\"";
    };
    EXPECT_THAT(std::vector<std::string>(all.begin() + 2, all.end()),
                ElementsAre("pushed text=\"" + longest + "\"", notPushed(longest, "the line is longer than 250 bytes"),
                            notPushed("", "the line is empty"), notPushed("a\\x00b", "the line contains a control character"),
                            notPushed("c\\x0D", "the line contains a control character"), "pushed text=\"last\""));
}

TEST_F(AgentRun, continues_when_its_input_ends)
{
    RunningAgent agent;
    ASSERT_TRUE(remote_.accept());
    speak(remote_);
    agent.type("without a line end");
    ASSERT_TRUE(agent.hasWritten("connected"));
    agent.endInput();
    EXPECT_EQ(remote_.line(), "I01:without a line end\r\n");
    EXPECT_EQ(remote_.ask("ping"), "pong");
    EXPECT_EQ(agent.stop(), 0);
}

// ---- The connection ----

TEST_F(AgentRun, reports_a_lost_connection_and_the_next_one)
{
    RunningAgent agent;
    ASSERT_TRUE(remote_.accept());
    speak(remote_);
    ASSERT_TRUE(agent.hasWritten("connected"));
    remote_.close();
    const auto lost = std::chrono::steady_clock::now();
    ASSERT_TRUE(agent.hasWritten("connection_lost next_try_seconds=5\n"));
    agent.type("no one hears\n");
    ASSERT_TRUE(agent.hasWritten(R"(not_pushed text="no one hears" reason="the agent is not connected at the moment")"));
    ASSERT_TRUE(remote_.accept());
    const auto waited = std::chrono::steady_clock::now() - lost;
    EXPECT_GT(waited, 4s);
    EXPECT_LT(waited, 9s);
    EXPECT_EQ(remote_.ask("stop-viewer"), "ok");
    ASSERT_TRUE(agent.hasWritten("stop-viewer"));
    EXPECT_EQ(agent.stop(), 0);
    EXPECT_THAT(lines(agent.out()),
                ElementsAre(kStarted, "connected", "connection_lost next_try_seconds=5", HasSubstr("no one hears"), "connected",
                            R"(command keyword="stop-viewer" answer=1)"));
}

TEST(AgentRunAlone, waits_for_a_remote_service)
{
    const ScriptedService service({knowsFocus()});
    RunningAgent agent;
    ASSERT_TRUE(agent.hasWritten("started"));
    RemoteService remote(kSession);
    EXPECT_TRUE(remote.accept());
    EXPECT_TRUE(agent.hasWritten("\nconnected\n"));
    EXPECT_EQ(agent.stop(), 0);
}

// ---- The end ----

class AgentSignals : public testing::TestWithParam<int> {};

TEST_P(AgentSignals, end_the_agent_with_status_0)
{
    const ScriptedService service({knowsFocus()});
    RemoteService remote(kSession);
    RunningAgent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(agent.stop(GetParam()), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 6s);
    EXPECT_EQ(agent.err(), "");
    EXPECT_EQ(remote.line(), "(closed)");
}

INSTANTIATE_TEST_SUITE_P(Each, AgentSignals, testing::Values(SIGINT, SIGTERM, SIGHUP), signalName);

struct Unreadable {
    std::string name;
    std::vector<support::Script> service;  ///< none: no service runs
    Arguments focus;
    int status;
    std::string message;
    int result;
    std::string hint{};
};

std::ostream &operator<<(std::ostream &out, const Unreadable &row) { return out << row.name; }

class UnreadableStations : public testing::TestWithParam<Unreadable> {};

TEST_P(UnreadableStations, end_the_agent_with_a_message)
{
    const Unreadable &row = GetParam();
    std::optional<ScriptedService> service;
    if (!row.service.empty()) {
        service.emplace(row.service);
    }
    RunningAgent agent({"--json"}, row.focus);
    EXPECT_EQ(agent.wait(), row.status);
    const std::string message = "cannot read the station in focus, " + row.message;
    EXPECT_EQ(agent.err(), "kvoctl: agent run: " + message + " (result " + std::to_string(row.result) + ")\n" + row.hint);
    const std::vector<std::string> written = lines(agent.out());
    ASSERT_EQ(written.size(), 2U) << agent.out();
    EXPECT_EQ(Json::parse(written[0])["event"], "started");
    EXPECT_EQ(Json::parse(written[1]), (Json{{"error", {{"code", row.result}, {"meaning", message}}}}));
}

const std::string kNoSuchStation =
    "no station has this address or name; \"kvoctl stations\" lists the stations that the service knows";

const std::vector<Unreadable> kUnreadable = {
    {"unknown_address", {support::replies("not found")}, kByAddress, 1, "10.0.0.5: " + kNoSuchStation, 0},
    {"unknown_name", {support::replies("not found")}, {"--focus-name", "st 1"}, 1, "\"st 1\": " + kNoSuchStation, 0},
    {"no_service", {}, kByAddress, 3, "10.0.0.5: no service answers at /tmp/kvo_hws/cmd_sock", -2, kNoServiceHint},
    {"no_assignment",
     {support::acceptsAll({{"getExDescByIP 0500000A", kStationText}, {"getKVOt2m2n=0A000005", "failed"}})},
     kByAddress,
     4,
     "10.0.0.5: the service refused or sent an unknown reply",
     -1},
    {"refused_once",
     {support::replies("failed"), knowsFocus()},
     kByAddress,
     4,
     "10.0.0.5: the service did not answer in time, but answers now; try again",
     -1}};

INSTANTIATE_TEST_SUITE_P(Rows, UnreadableStations, testing::ValuesIn(kUnreadable),
                         [](const auto &row) { return row.param.name; });

TEST_F(AgentRun, ends_with_status_0_when_its_output_is_closed)
{
    Shell shell("(\"$KVOCTL\" agent run --focus 10.0.0.5 --remote 127.0.0.1 --session 3 < /dev/null; echo status $? >&2)"
                " | head -2");
    ASSERT_TRUE(remote_.accept());
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_EQ(shell.out(), kStarted + "\nconnected\n");
    EXPECT_EQ(shell.err(), "status 0\n");
}

TEST_F(AgentRun, ends_when_its_output_is_full)
{
    Shell shell("\"$KVOCTL\" agent run --focus 10.0.0.5 --remote 127.0.0.1 --session 3 < /dev/null > /dev/full");
    EXPECT_EQ(shell.wait(), 5);
    EXPECT_EQ(shell.err(), "kvoctl: cannot write to standard output: No space left on device\n");
}

TEST_F(AgentRun, continues_without_standard_input)
{
    Shell shell("exec \"$KVOCTL\" agent run --focus 10.0.0.5 --remote 127.0.0.1 --session 3 <&-");
    ASSERT_TRUE(remote_.accept());
    EXPECT_EQ(remote_.ask("ping"), "pong");
    shell.signal(SIGINT);
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_EQ(shell.err(), "");
}

}  // namespace

}  // namespace kvoctl_test
