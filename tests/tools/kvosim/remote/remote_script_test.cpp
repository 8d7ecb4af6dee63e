// Scripts for the remote side: their steps, refused scripts, and how the first difference is reported.
#include "kvosim/remote/remote_script.h"
#include "kvosim/remote/remote_script_run.h"

#include "tools/kvosim/support/agent.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/running_service.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <gmock/gmock.h>

#include <future>
#include <optional>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim::parseScript;
using kvosim::ScriptResult;
using kvosim::ScriptStep;
using kvosim_test::Agent;
using kvosim_test::RunningService;
using testing::HasSubstr;
using testing::ThrowsMessage;
using tools::CouldNot;
using tools::Json;
using tools::Refused;

// ---- Parsing ----

TEST(Script, has_a_line_for_each_step)
{
    const auto steps =
        parseScript("# comment\n\nsession 3\r\n  > ping  \n< pong\r\nsession 4\nraw a\\r\\n\\t\\0\\\\\\x1F\\xffz\n>\n", "s");
    ASSERT_EQ(steps.size(), 4U);
    EXPECT_EQ(steps[0].kind, ScriptStep::Kind::send);
    EXPECT_EQ(steps[0].text, "ping  ") << "trailing blanks belong to the text";
    EXPECT_EQ(steps[0].line, 4U);
    EXPECT_EQ(steps[0].session, 3U);
    EXPECT_EQ(steps[1].text, "pong");
    EXPECT_EQ(steps[2].session, 4U);
    EXPECT_EQ(steps[2].text, std::string("a\r\n\t\0\\\x1F\xffz", 9));
    EXPECT_EQ(steps[3].text, "");
}

TEST(Script, sets_timeouts_and_pauses)
{
    const auto steps = parseScript("session 0\n< a\ntimeout 3\n< b\nwait-connected\nwait-closed 600\npause 5\n", "s");
    ASSERT_EQ(steps.size(), 5U);
    EXPECT_EQ(steps[0].time, 10s);
    EXPECT_EQ(steps[1].time, 3s);
    EXPECT_EQ(steps[2].time, 3s);
    EXPECT_EQ(steps[3].time, 600s);
    EXPECT_EQ(steps[4].time, 5ms);
}

struct WrongRow : kvosim_test::NamedRow {
    std::string text;
    std::string mistake;
};

class WrongScript : public testing::TestWithParam<WrongRow> {};

TEST_P(WrongScript, is_refused_with_its_line)
{
    const std::string text = "# comment\n" + GetParam().text + "\n< never reached\n";
    EXPECT_THAT([&] { parseScript(text, "agent.script"); }, ThrowsMessage<tools::Refused>(HasSubstr(GetParam().mistake)));
}

const std::vector<WrongRow> kWrongScripts = {
    {{"word"}, "session 3\nsend x", "agent.script:3: \"send\" is not a script word; a line begins with"},
    {{"no_blank"}, "session 3\n>ping", "agent.script:3: \">ping\" is not a script word"},
    {{"no_session"}, "> ping", "agent.script:2: no session is selected; write a line such as \"session 3\" first"},
    {{"session_10"}, "session 10", "agent.script:2: \"10\" is out of range; write 0 to 9"},
    {{"session_empty"}, "session", "agent.script:2: \"\" is out of range"},
    {{"timeout"}, "timeout 0", "agent.script:2: \"0\" is out of range; write 1 to 600"},
    {{"wait"}, "session 3\nwait-connected soon", "agent.script:3: \"soon\" is out of range"},
    {{"pause"}, "session 3\npause -1", "agent.script:3: \"-1\" is out of range; write 1 to 600000"},
    {{"close"}, "session 3\nclose now", "agent.script:3: \"now\" is not allowed here"},
    {{"away"}, "session 3\naway", "agent.script:3: \"\" is out of range; write 1 to 600"},
    {{"reset"}, "session 3\nreset now", "agent.script:3: \"now\" is not allowed here"},
    {{"escape"}, "session 3\nraw a\\q", R"(agent.script:3: "\q" is not an escape; write \r \n \t \0 \\ or \x1F)"},
    {{"escape_end"}, "session 3\nraw a\\", R"(agent.script:3: "\" is not an escape)"},
    {{"escape_hex"}, "session 3\nraw \\x1", R"(agent.script:3: "\x" is not an escape)"},
    {{"pattern"}, "session 3\n<~ (", "agent.script:3: \"(\" is not a regular expression: "},
    {{"raw_long"},
     "session 3\nraw " + std::string(4097, 'x'),
     "agent.script:3: the line has 4097 bytes; write at most 4096 on a line"},
    {{"not_utf8"}, "session 3\n> a\xFF", "agent.script:3: the request is not valid UTF-8; send other bytes with \"raw\""},
    {{"long"}, "session 3\n> " + std::string(255, 'x'), "agent.script:3: the request has 255 bytes"}};

INSTANTIATE_TEST_SUITE_P(Table, WrongScript, testing::ValuesIn(kWrongScripts), kvosim_test::kNameOfRow);

TEST(Script, is_refused_if_the_file_does_not_exist)
{
    EXPECT_THAT([] { kvosim::loadScript("/nowhere.script"); },
                ThrowsMessage<tools::Refused>(HasSubstr("/nowhere.script: cannot be read")));
    EXPECT_THAT([] { kvosim::loadScript("/tmp"); }, ThrowsMessage<tools::Refused>(HasSubstr("/tmp: cannot be read")));
}

// ---- Running ----

class ScriptRun : public testing::Test {
protected:
    static kvosim::ServiceOptions options()
    {
        kvosim::ServiceOptions options;
        options.remoteSessions = std::vector<unsigned>{3, 4};
        return options;
    }

    /// Runs a script on another thread, while the test plays the agent.
    static std::future<ScriptResult> runs(const std::string &script)
    {
        return std::async(std::launch::async, [script] {
            return kvosim::runScript(parseScript(script, "s"), "s", [](const tools::Json &request) {
                return tools::askSimulator(request, tools::kControlSocket, 30s);
            });
        });
    }
    static std::string failure(std::future<ScriptResult> run)
    {
        try {
            run.get();
            return "(none)";
        } catch (const tools::CouldNot &error) {
            return error.what();
        }
    }

    RunningService service{kvosim_test::kSmallPlant, options()};
};

const std::string kBegin = "session 3\nwait-connected\n";

TEST_F(ScriptRun, compares_received_lines)
{
    auto run = runs(kBegin + R"(> ping
< pong
> 042:show-current-server
<~ 042:vncserver=.*:3
! one
! I02:two
!~ t.*e
> get-softkey-type
< none
raw pi
raw ng\r\n
< pong
> last
)");
    Agent agent;
    EXPECT_EQ(agent.receiveLine(), "ping\r\n");
    agent.send("pong\r\n");
    EXPECT_EQ(agent.receiveLine(), "042:show-current-server\r\n");
    agent.send("I01:one\r\nI02:two\r\n042:vncserver=10.0.0.1:3\r\nI03:three\r\n");
    EXPECT_EQ(agent.receiveLine(), "get-softkey-type\r\n");
    agent.send("none");
    EXPECT_EQ(agent.receiveLine(), "ping\r\n");
    agent.send("pong\r\n");
    EXPECT_EQ(agent.receiveLine(), "last\r\n");
    const ScriptResult result = run.get();
    EXPECT_EQ(result.steps, 14U);
    EXPECT_EQ(result.replies, 4U);
    EXPECT_EQ(result.indications, 3U);
    EXPECT_EQ(result.unread, 0U);
}

TEST_F(ScriptRun, reports_the_number_of_unread_records)
{
    auto run = runs(kBegin + "> a\n> b\n! end\n");
    Agent agent;
    EXPECT_EQ(agent.receiveLine(), "a\r\n");
    EXPECT_EQ(agent.receiveLine(), "b\r\n");
    agent.send("1\r\n2\r\nI01:end\r\n");
    EXPECT_EQ(run.get().unread, 2U);
    EXPECT_EQ(runs(kBegin).get().unread, 0U) << "counts only the records of this run";
}

struct DifferenceRow : kvosim_test::NamedRow {
    std::string script;
    std::string answer;
    std::string failure;
};

class Difference : public ScriptRun, public testing::WithParamInterface<DifferenceRow> {};

TEST_P(Difference, is_reported_with_its_line)
{
    auto run = runs(kBegin + "timeout 1\n> ping\n" + GetParam().script + "< never reached\n");
    Agent agent;
    EXPECT_EQ(agent.receiveLine(), "ping\r\n");
    agent.send(GetParam().answer);
    EXPECT_EQ(failure(std::move(run)), GetParam().failure);
}

const std::vector<DifferenceRow> kDifferences = {
    {{"reply"}, "< pang\n", "pong\r\n", "s:5: expected the reply \"pang\", got \"pong\""},
    {{"prefix"}, "< pon\n", "pong\r\n", "s:5: expected the reply \"pon\", got \"pong\""},
    {{"pattern"}, "<~ o.*\n", "pong\r\n", "s:5: expected the reply that matches \"o.*\", got \"pong\""},
    {{"tag"}, "< pong\n", "042:pong\r\n", "s:5: expected the reply \"pong\", got \"042:pong\""},
    {{"second"}, "< pong\n\n< pong\n", "pong\r\nx\x01\r\n", "s:7: expected the reply \"pong\", got \"x\\x01\""},
    {{"nothing"}, "< pong\n", "", "s:5: expected the reply \"pong\", got none within 1 s"},
    {{"half"}, "< pong\n", "pong", "s:5: expected the reply \"pong\", got none within 1 s"},
    {{"indication"}, "! a\n", "I01:b\r\n", "s:5: expected the indication \"a\", got \"I01:b\""},
    {{"number"}, "! I02:a\n", "I01:a\r\n", "s:5: expected the indication \"I02:a\", got \"I01:a\""},
    {{"no_indication"}, "! a\n", "a\r\n", "s:5: expected the indication \"a\", got none within 1 s"},
    {{"wait_closed"}, "wait-closed\n", "", "s:5: expected the connection to be closed; this did not happen within 1 s"},
    {{"session"}, "session 9\n> x\n", "", "s:6: session 9 is not served; start the simulator with --remote 9"},
    {{"no_agent"}, "session 4\n> x\n", "", "s:6: no agent is connected in session 4 (port 5854)"},
    {{"wait_connected"},
     "session 4\nwait-connected 1\n",
     "",
     "s:6: expected an agent to connect; this did not happen within 1 s"},
    {{"closed"},
     "close\n< pong\n",
     "",
     "s:6: expected the reply \"pong\", got the end of the connection (this side closed it on request)"}};

INSTANTIATE_TEST_SUITE_P(Table, Difference, testing::ValuesIn(kDifferences), kvosim_test::kNameOfRow);

TEST_F(ScriptRun, closes_and_waits_until_the_agent_reconnects)
{
    auto run = runs(kBegin + "close\nwait-connected\n> ping\n< pong\nreset\nwait-closed\nwait-connected\n");
    {
        Agent first;
        EXPECT_EQ(first.receiveLine(), "(closed)");
    }
    Agent second;
    EXPECT_EQ(second.answer("pong\r\n"), "ping\r\n");
    EXPECT_EQ(second.receiveLine(), "(reset)");
    Agent third;
    EXPECT_EQ(run.get().steps, 9U - 1U);
}

TEST_F(ScriptRun, goes_away_and_waits_until_the_agent_reconnects)
{
    const auto gone = std::chrono::steady_clock::now();
    auto run = runs(kBegin + "away 1\nwait-connected\n> ping\n< pong\n");
    {
        Agent first;
        EXPECT_EQ(first.receiveLine(), "(closed)");
    }
    std::optional<Agent> second;
    while (!second) {
        try {
            second.emplace();
        } catch (const std::runtime_error &) {
            std::this_thread::sleep_for(20ms);
        }
    }
    EXPECT_GE(std::chrono::steady_clock::now() - gone, 1s);
    EXPECT_EQ(second->answer("pong\r\n"), "ping\r\n");
    EXPECT_EQ(run.get().steps, 5U);
}

TEST_F(ScriptRun, closes_a_connection_that_it_has_not_seen_yet)
{
    auto run = runs("session 3\npause 1500\nclose\nwait-connected\n> ping\n< pong\n");
    std::this_thread::sleep_for(200ms);  // the script starts without an agent
    {
        const Agent passing;
    }
    {
        Agent first;
        EXPECT_EQ(first.receiveLine(), "(closed)");
    }
    std::this_thread::sleep_for(200ms);
    Agent second;
    EXPECT_EQ(second.answer("pong\r\n"), "ping\r\n");
    EXPECT_EQ(run.get().steps, 5U);
}

TEST_F(ScriptRun, fails_at_once_if_the_connection_is_lost)
{
    auto run = runs(kBegin + "timeout 60\n> ping\n< pong\n");
    const auto start = std::chrono::steady_clock::now();
    {
        Agent agent;
        EXPECT_EQ(agent.receiveLine(), "ping\r\n");
    }
    EXPECT_EQ(failure(std::move(run)),
              "s:5: expected the reply \"pong\", got the end of the connection (the other side closed the connection)");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

}  // namespace
