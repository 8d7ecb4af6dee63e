// kvo::Agent: the commands, the checks of its parameters, what a process has only once, and the end.
#include <kvo_hws/kvo_hws.hpp>

#include "agent/agent_fixture.h"
#include "cpp/events/signal.h"
#include "support/eventually.h"
#include "support/remote_service.h"
#include "support/scripted_service.h"
#include "support/system_calls.h"

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using agent_test::serves;
using cpp_events_test::Signal;
using support::eventually;
using support::RemoteService;
using support::ScriptedService;
using testing::ElementsAre;
using testing::HasSubstr;

struct Text {
    std::string operator()(const kvo::StopViewer &) const { return "stop viewer"; }
    std::string operator()(const kvo::StopViewerPreempt &) const { return "stop viewer preempt"; }
    std::string operator()(const kvo::StopViewerNoClean &) const { return "stop viewer no clean"; }
    std::string operator()(const kvo::ActivateMe &) const { return "activate me"; }
    std::string operator()(const kvo::ShowViewerActive &) const { return "show viewer active"; }
    std::string operator()(const kvo::SetDarken &command) const { return "set darken " + command.argument; }
    std::string operator()(const kvo::SetStatusline &command) const { return "set statusline " + command.argument; }
};

kvo::AgentAnswer refuse(const kvo::AgentCommand &) { return kvo::AgentAnswer::failed; }

kvo::AgentOptions options()
{
    kvo::AgentOptions options;
    options.focus = kvo::Address("10.0.0.5");
    options.session = agent_test::kSession;
    return options;
}

class CppAgent : public testing::Test {
protected:
    void SetUp() override { setenv("KVO_PLATFORM_INTERFACE", "lo", 1); }
    void TearDown() override
    {
        EXPECT_TRUE(eventually([] { return !agent_test::isRunning(); }));
    }

    RemoteService remote{agent_test::kSession};
    ScriptedService service{{serves()}};
};

TEST_F(CppAgent, passes_every_command_and_answers_as_the_handler_does)
{
    std::vector<std::string> commands;
    std::atomic<int> answer{0};
    kvo::Agent agent = kvo::Agent::start(options(), [&](const kvo::AgentCommand &command) {
                           commands.push_back(std::visit(Text{}, command));
                           if (answer == 2) {
                               throw std::runtime_error("a handler that throws counts as failed");
                           }
                           return static_cast<kvo::AgentAnswer>(answer.load());
                       }).value();
    ASSERT_TRUE(remote.accept());
    EXPECT_TRUE(agent.running());
    const std::vector<std::string> requests = {
        "stop-viewer",        "stop-viewer-preempt", "stop-viewer-noclean",     "activate-me",
        "show-viewer-active", "set-darken=3",        "set-statusline=1,2,a = b"};
    answer = 1;
    std::vector<std::string> yes;
    for (const std::string &request : requests) {
        yes.push_back(remote.ask(request));
    }
    EXPECT_THAT(yes, ElementsAre("ok", "ok", "ok", "ok", "active=1", "ok", "ok"));
    EXPECT_THAT(commands, ElementsAre("stop viewer", "stop viewer preempt", "stop viewer no clean", "activate me",
                                      "show viewer active", "set darken 3", "set statusline 1,2,a = b"));
    answer = 0;
    EXPECT_EQ(remote.ask("activate-me"), "busy");
    answer = -1;
    EXPECT_EQ(remote.ask("activate-me"), "failed");
    answer = 2;
    EXPECT_EQ(remote.ask("activate-me"), "failed");
    EXPECT_TRUE(agent.close());
    EXPECT_FALSE(agent.running());
}

TEST_F(CppAgent, answers_a_command_that_it_does_not_know)
{
    const kvo::Agent agent =
        kvo::Agent::start(options(), [](const kvo::AgentCommand &) { return kvo::AgentAnswer::yes; }).value();
    for (const char *const command : {"stop-viewer-later", "stop-viewer=1", "set-volume=3", ""}) {
        EXPECT_EQ(kvo::detail::agent_callback(gEmbKvoInst, command), -1) << command;
    }
    EXPECT_EQ(kvo::detail::agent_callback(gEmbKvoInst, "stop-viewer"), 1);
}

TEST_F(CppAgent, reports_its_options)
{
    kvo::AgentOptions all = options();
    all.kvo_index = 7;
    all.channel_on_focus = 8;
    all.screen_on_focus = std::string(127, 's');
    all.suspend_lock = 3;
    all.suspend_prio = 0x7FFFFFFF;
    all.startup_active = 2;
    all.startup_prio = 5;
    all.mcp_flag = true;
    kvo::Agent agent = kvo::Agent::start(all, refuse).value();
    ASSERT_TRUE(remote.accept());
    EXPECT_THAT(remote.ask("get-kvoindex"), HasSubstr("7"));
    EXPECT_THAT(remote.ask("get-channel-on-focus"), HasSubstr("8"));
    EXPECT_THAT(remote.ask("get-screen-on-focus"), HasSubstr(all.screen_on_focus));
    EXPECT_EQ(gEmbKvoInst->suspendLock, 3U);
    EXPECT_EQ(gEmbKvoInst->suspendPrio, 0x7FFFFFFFU);
    EXPECT_EQ(gEmbKvoInst->startupActive, 2U);
    EXPECT_EQ(gEmbKvoInst->startupPrio, 5U);
    EXPECT_EQ(gEmbKvoInst->mcpFlag, 1U);
    EXPECT_EQ(gEmbKvoInst->focusKvoIp, htonl(0x0A000005));
}

TEST_F(CppAgent, finds_the_station_in_focus_by_its_name)
{
    const ScriptedService byName({serves({{"getExDescByName st1", agent_test::kStation}})});
    kvo::AgentOptions named = options();
    named.focus = kvo::Address();
    named.focus_name = "st1";
    const kvo::Agent agent = kvo::Agent::start(named, refuse).value();
    EXPECT_TRUE(remote.accept()) << "the agent has found the station";
    EXPECT_STREQ(gFocusName, "st1");
}

TEST_F(CppAgent, sends_events_as_indications)
{
    kvo::Agent agent = kvo::Agent::start(options(), refuse).value();
    ASSERT_TRUE(remote.accept());
    EXPECT_FALSE(agent.negotiated());
    EXPECT_EQ(agent.send_event("too early").error().meaning(), kvo::Errc::not_negotiated);
    EXPECT_EQ(remote.ask("ping"), "pong");
    ASSERT_TRUE(eventually([&] { return agent.negotiated(); }));
    for (const std::string_view text :
         {std::string_view("two\nlines"), std::string_view("a\0b", 3), std::string_view("end\r")}) {
        const auto refused = agent.send_event(text);
        ASSERT_FALSE(refused);
        EXPECT_EQ(refused.error().meaning(), kvo::Errc::invalid_text);
    }
    EXPECT_TRUE(agent.send_event("screen changed"));
    EXPECT_THAT(remote.line(), testing::EndsWith(":screen changed\r\n")) << "nothing of the others was sent";

    kvo::Agent moved = std::move(agent);
    EXPECT_EQ(agent.send_event("x").error().meaning(), kvo::Errc::not_running);  // NOLINT(bugprone-use-after-move)
    EXPECT_FALSE(agent.running());
    EXPECT_TRUE(moved.send_event("y"));
    EXPECT_TRUE(moved.close());
    EXPECT_EQ(moved.send_event("z").error().meaning(), kvo::Errc::not_running);
}

// ---- The options are checked before anything is done ----

struct BadOptions {
    const char *name;
    void (*set)(kvo::AgentOptions &options);
    kvo::Errc meaning;
    const char *reason;
};

class CppAgentOptions : public testing::TestWithParam<BadOptions> {};

const BadOptions kBadOptions[] = {
    {"no_station", [](auto &o) { o.focus = kvo::Address(); }, kvo::Errc::missing_parameter, "set one of them"},
    {"two_stations", [](auto &o) { o.focus_name = "st1"; }, kvo::Errc::missing_parameter, "set one of them"},
    {"remote_is_zero", [](auto &o) { o.remote = kvo::Address(); }, kvo::Errc::invalid_address, "0.0.0.0"},
    {"screen_of_128_bytes", [](auto &o) { o.screen_on_focus.assign(128, 's'); }, kvo::Errc::invalid_text, "127 bytes"},
    {"name_of_128_bytes",
     [](auto &o) {
         o.focus = kvo::Address();
         o.focus_name.assign(128, 'n');
     },
     kvo::Errc::invalid_text, "127 bytes"},
    {"screen_with_a_line_feed", [](auto &o) { o.screen_on_focus = "a\nkvoIndex=9"; }, kvo::Errc::invalid_text, "line feed"},
    {"screen_with_a_carriage_return", [](auto &o) { o.screen_on_focus = "a\r"; }, kvo::Errc::invalid_text, "carriage return"},
    {"screen_with_a_nul", [](auto &o) { o.screen_on_focus.assign("a\0b", 3); }, kvo::Errc::invalid_text, "NUL"},
    {"session_10", [](auto &o) { o.session = 10; }, kvo::Errc::out_of_range, "session"},
    {"index_256", [](auto &o) { o.kvo_index = 256; }, kvo::Errc::out_of_range, "kvo_index"},
    {"channel_0", [](auto &o) { o.channel_on_focus = 0; }, kvo::Errc::out_of_range, "channel_on_focus"},
    {"channel_9", [](auto &o) { o.channel_on_focus = 9; }, kvo::Errc::out_of_range, "channel_on_focus"},
    {"startup_active_3", [](auto &o) { o.startup_active = 3; }, kvo::Errc::out_of_range, "startup_active"},
    {"large_suspend_lock", [](auto &o) { o.suspend_lock = 0x80000000; }, kvo::Errc::out_of_range, "suspend_lock"},
    {"large_suspend_prio", [](auto &o) { o.suspend_prio = 0x80000000; }, kvo::Errc::out_of_range, "suspend_prio"},
    {"large_startup_prio", [](auto &o) { o.startup_prio = 0x80000000; }, kvo::Errc::out_of_range, "startup_prio"},
};

TEST_P(CppAgentOptions, are_refused_with_what_would_be_right)
{
    std::memset(gFocusName, 0, sizeof gFocusName);
    kvo::AgentOptions bad = options();
    GetParam().set(bad);
    const auto refused = kvo::Agent::start(bad, refuse);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().meaning(), GetParam().meaning);
    EXPECT_THAT(refused.error().message(), HasSubstr(GetParam().reason));
    EXPECT_FALSE(agent_test::isRunning());
    EXPECT_STREQ(gFocusName, "");
}

INSTANTIATE_TEST_SUITE_P(All, CppAgentOptions, testing::ValuesIn(kBadOptions),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(CppAgent, needs_a_handler)
{
    const auto refused = kvo::Agent::start(options(), kvo::Agent::Handler());
    EXPECT_EQ(refused.error().meaning(), kvo::Errc::null_pointer);
}

// ---- Once per process ----

void expectAlreadyRunning(const kvo::Result<kvo::Agent> &result)
{
    ASSERT_FALSE(result.has_value());
    EXPECT_EQ(result.error().meaning(), kvo::Errc::already_running);
    EXPECT_THAT(result.error().message(), HasSubstr("close the other one"));
}

TEST_F(CppAgent, is_refused_to_a_second_object)
{
    kvo::Agent agent = kvo::Agent::start(options(), refuse).value();
    expectAlreadyRunning(kvo::Agent::start(options(), refuse));
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("activate-me"), "failed") << "the first one goes on";
    EXPECT_TRUE(agent.close());
    EXPECT_TRUE(kvo::Agent::start(options(), refuse));
}

TEST_F(CppAgent, is_refused_while_the_functions_of_c_have_one)
{
    std::strcpy(gFocusName, "theirs");
    kvo::AgentOptions named = options();
    named.focus = kvo::Address();
    named.focus_name = "ours";
    {
        const agent_test::Agent agent;
        expectAlreadyRunning(kvo::Agent::start(named, refuse));
        EXPECT_STREQ(gFocusName, "theirs") << "the running agent may read it";
    }
    EXPECT_TRUE(kvo::Agent::start(options(), refuse));
}

TEST_F(CppAgent, does_not_stop_an_agent_of_the_functions_of_c)
{
    kvo::Agent agent = kvo::Agent::start(options(), refuse).value();
    ASSERT_EQ(KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst), 1);
    EXPECT_EQ(agent.send_event("x").error().meaning(), kvo::Errc::not_running);
    const agent_test::Agent theirs;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    ASSERT_TRUE(eventually([] { return __atomic_load_n(&protocolNegotiated, __ATOMIC_SEQ_CST) == 1; }));
    EXPECT_FALSE(agent.running());
    EXPECT_FALSE(agent.negotiated());
    EXPECT_EQ(agent.send_event("x").error().meaning(), kvo::Errc::not_running) << "not an event of that agent";
    EXPECT_TRUE(agent.close());
    EXPECT_TRUE(agent_test::isRunning());
}

TEST_F(CppAgent, that_has_ended_must_be_closed_before_the_next_start)
{
    const ScriptedService without({serves({{"getExDescByIP 0500000A", "failed"}})});
    kvo::Agent agent = kvo::Agent::start(options(), refuse).value();
    ASSERT_TRUE(eventually([&] { return !agent.running(); })) << "the service does not know the station";
    expectAlreadyRunning(kvo::Agent::start(options(), refuse));
    EXPECT_TRUE(agent.close());
    EXPECT_TRUE(kvo::Agent::start(options(), refuse));
}

TEST_F(CppAgent, can_be_started_after_a_start_without_a_thread)
{
    {
        support::SystemCalls calls;
        calls.pthreadCreate = [] { return EAGAIN; };
        const support::WithSystemCalls failing(calls);
        const auto failed = kvo::Agent::start(options(), refuse);
        ASSERT_FALSE(failed);
        EXPECT_EQ(failed.error().meaning(), kvo::Errc::no_thread);
    }
    EXPECT_TRUE(kvo::Agent::start(options(), refuse));
}

// ---- The end ----

TEST_F(CppAgent, waits_at_its_destruction_for_the_handler_that_runs)
{
    Signal begun;
    std::atomic<bool> goOn{false};
    std::atomic<bool> returned{false};
    std::optional<kvo::Agent> agent = kvo::Agent::start(options(), [&](const kvo::AgentCommand &) {
                                          begun.set();
                                          EXPECT_TRUE(eventually([&] { return goOn.load(); }, 30s));
                                          returned = true;
                                          return kvo::AgentAnswer::yes;
                                      }).value();
    ASSERT_TRUE(remote.accept());
    remote.send("stop-viewer\r\n");
    ASSERT_TRUE(begun.wait());
    std::thread release([&] {
        // The clean-up has given up after 6 s and cleared the callback.
        EXPECT_TRUE(eventually([] { return __atomic_load_n(&gCmdCallback, __ATOMIC_SEQ_CST) == nullptr; }, 30s));
        std::this_thread::sleep_for(1500ms);  // until it has returned
        EXPECT_FALSE(returned);
        goOn = true;
    });
    agent.reset();
    EXPECT_TRUE(returned);
    release.join();
    EXPECT_TRUE(kvo::Agent::start(options(), refuse)) << "the destruction has waited for the end of the agent";
}

TEST_F(CppAgent, does_not_wait_if_the_handler_destroys_it)
{
    const auto alive = std::make_shared<int>(0);
    std::optional<kvo::Agent> agent;
    agent = kvo::Agent::start(options(), [&, owned = alive](const kvo::AgentCommand &) {
                agent.reset();
                EXPECT_GT(owned.use_count(), 1) << "the handler lives until its call has returned";
                return kvo::AgentAnswer::yes;
            }).value();
    ASSERT_TRUE(remote.accept());
    remote.send("stop-viewer\r\n");
    EXPECT_TRUE(eventually([] { return !agent_test::isRunning(); }));
    EXPECT_TRUE(eventually([&] { return alive.use_count() == 1; }));
    EXPECT_TRUE(kvo::Agent::start(options(), refuse));
}

TEST_F(CppAgent, that_its_handler_closed_leaves_the_next_one_alone)
{
    std::optional<kvo::Agent> agent;
    agent = kvo::Agent::start(options(), [&](const kvo::AgentCommand &) {
                EXPECT_TRUE(agent->close());
                return kvo::AgentAnswer::yes;
            }).value();
    ASSERT_TRUE(remote.accept());
    remote.send("stop-viewer\r\n");
    ASSERT_TRUE(eventually([] { return !agent_test::isRunning(); }));
    agent = kvo::Agent::start(options(), refuse).value();  // closes the first one after the start of the second one
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("activate-me"), "failed");
    EXPECT_TRUE(agent->running());
}

TEST_F(CppAgent, answers_a_command_that_arrives_after_its_destruction)
{
    std::atomic<int> calls{0};
    {
        const kvo::Agent agent =
            kvo::Agent::start(options(), [&](const kvo::AgentCommand &) { return ++calls, kvo::AgentAnswer::yes; }).value();
    }
    EXPECT_EQ(kvo::detail::agent_callback(gEmbKvoInst, "stop-viewer"), -1);
    EXPECT_EQ(calls, 0);
}

}  // namespace
