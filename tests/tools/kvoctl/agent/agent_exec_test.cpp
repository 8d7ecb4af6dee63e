// "kvoctl agent run --exec": the program's environment, and the answer to the remote side.
#include "tools/kvoctl/support/agents.h"
#include "tools/kvoctl/support/script.h"

#include <chrono>

using namespace std::chrono_literals;

namespace kvoctl_test {

namespace {

using support::RemoteService;
using support::ScriptedService;
using testing::HasSubstr;

class AgentExec : public testing::Test {
protected:
    ScriptedService service_{{knowsFocus()}};
    RemoteService remote_{kSession};
};

TEST_F(AgentExec, passes_the_command_in_the_environment)
{
    const Script script("env | grep -a ^KVO_AGENT_ | LC_ALL=C sort >> environment; echo >> environment; echo from the program");
    setenv("KVO_AGENT_ARGUMENT", "of an outer agent", 1);
    RunningAgent agent({"--exec", script.path()});
    unsetenv("KVO_AGENT_ARGUMENT");
    ASSERT_TRUE(remote_.accept());
    EXPECT_EQ(remote_.ask("set-statusline=1,2,$(touch owned);\xE4"), "ok");
    EXPECT_EQ(remote_.ask("stop-viewer"), "ok");
    EXPECT_EQ(agent.stop(), 0);
    EXPECT_EQ(script.file("environment"), "KVO_AGENT_ARGUMENT=1,2,$(touch owned);\xE4\nKVO_AGENT_EVENT=command\n"
                                          "KVO_AGENT_KEYWORD=set-statusline\n\n"
                                          "KVO_AGENT_EVENT=command\nKVO_AGENT_KEYWORD=stop-viewer\n\n");
    EXPECT_FALSE(script.has("owned"));
    EXPECT_EQ(agent.err(), "from the program\nfrom the program\n");
    EXPECT_THAT(agent.out(), HasSubstr("command keyword=\"stop-viewer\" answer=1\n"));
}

TEST_F(AgentExec, answers_with_the_exit_status_of_the_program)
{
    const Script script("case $KVO_AGENT_KEYWORD in stop-viewer) exit 0;; activate-me) exit 1;; show-viewer-active) exit 2;;"
                        " *) kill -9 $$;; esac");
    RunningAgent agent({"--exec", script.path()});
    ASSERT_TRUE(remote_.accept());
    EXPECT_EQ(remote_.ask("stop-viewer"), "ok");
    EXPECT_EQ(remote_.ask("activate-me"), "busy");
    EXPECT_EQ(remote_.ask("show-viewer-active"), "failed");
    EXPECT_EQ(remote_.ask("set-darken=1"), "failed");
    EXPECT_EQ(agent.stop(), 0);
    const std::string complaint = "kvoctl: agent run: " + script.path() + " ";
    EXPECT_THAT(lines(agent.err()), testing::ElementsAre(complaint + "exited with status 2 (event \"command\")",
                                                         complaint + "was killed by signal 9 (event \"command\")"));
    EXPECT_THAT(agent.out(), HasSubstr("command keyword=\"activate-me\" answer=0\n"
                                       "command keyword=\"show-viewer-active\" answer=-1\n"
                                       "command keyword=\"set-darken\" argument=\"1\" answer=-1\n"));
}

TEST_F(AgentExec, answers_failed_if_the_program_cannot_be_run)
{
    RunningAgent agent({"--exec", "/nowhere/program"});
    ASSERT_TRUE(remote_.accept());
    EXPECT_EQ(remote_.ask("stop-viewer"), "failed");
    EXPECT_EQ(agent.stop(), 0);
    EXPECT_EQ(agent.err(),
              "kvoctl: agent run: /nowhere/program cannot be run: No such file or directory (event \"command\")\n");
}

TEST_F(AgentExec, ends_while_the_program_hangs)
{
    // The program ends by itself, so that no process remains for long.
    const Script script("touch hangs; exec sleep 20");
    RunningAgent agent({"--exec", script.path()});
    ASSERT_TRUE(remote_.accept());
    remote_.send("stop-viewer\r\n");
    ASSERT_TRUE(support::eventually([&script] { return script.has("hangs"); }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(agent.stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    EXPECT_EQ(agent.err(), "kvoctl: agent run: the agent did not end in time; kvoctl ends without waiting for it\n");
}

}  // namespace

}  // namespace kvoctl_test
