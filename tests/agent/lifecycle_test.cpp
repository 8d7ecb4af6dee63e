// Starting the agent: what it needs, which values of the host it reports, and what it leaves for the next start.
#include <kvo_hws/agent.h>
#include <kvo_hws/requests.h>

#include "agent/agent_fixture.h"
#include "agent/lifecycle.h"
#include "support/remote_service.h"
#include "support/resource_usage.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

using agent_test::Agent;
using agent_test::Clock;
using agent_test::expectRefused;
using agent_test::Host;
using agent_test::isRunning;
using agent_test::kSession;
using agent_test::kStation;
using agent_test::parameters;
using agent_test::serves;
using agent_test::start;
using support::eventually;
using support::MessagesOn;
using support::RemoteService;
using support::ScriptedService;
using support::SyslogCapture;
using support::WithSystemCalls;
using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

const std::string kStart = "KVO_HWS DLL - KVO_HWS_startupEmbHwsClient - ";
const std::string kAlreadyRunning = kStart + "one instance of embedded kvo is already running!";

TEST(Agent, exists_only_once)
{
    ASSERT_NE(gEmbKvoInst, nullptr);
    EXPECT_EQ(gEmbKvoInst->running, 0U);
    EXPECT_EQ(gEmbKvoInst->session.socket, -1);
    EXPECT_EQ(gFocusKvoIp, 0U);
    EXPECT_EQ(gKvoIndex, 0U);
    EXPECT_EQ(gMcpLikeFocusKvo, 0U);
    EXPECT_STREQ(gScreenOnFocus, "");
    EXPECT_EQ(gChannelOnFocus, 1U);
    EXPECT_EQ(gStartupActive, 1U);
    EXPECT_EQ(gStartupPrio, 2U);
    EXPECT_EQ(gSuspendLock, 0U);
    EXPECT_EQ(gSuspendPrio, 1U);
    EXPECT_STREQ(gHostname, "");
    EXPECT_STREQ(gFocusName, "");
    EXPECT_EQ(gCmdCallback, nullptr);
    EXPECT_EQ(protocolNegotiated, 0U);
}

TEST(Agent, needs_all_its_arguments)
{
    const MessagesOn messages;
    void *instance = nullptr;
    const std::string text = parameters();
    const std::string refused = kStart + "null pointer received!";
    expectRefused([&] { return KVO_HWS_startupEmbHwsClient(nullptr, &instance, Host::callback); }, -7, refused);
    expectRefused([&] { return KVO_HWS_startupEmbHwsClient(text.c_str(), nullptr, Host::callback); }, -7, refused);
    expectRefused([&] { return KVO_HWS_startupEmbHwsClient(text.c_str(), &instance, nullptr); }, -7, refused);
    EXPECT_EQ(instance, nullptr);
}

TEST(Agent, reports_the_parameters_of_the_host)
{
    setenv("KVO_PLATFORM_INTERFACE", "lo", 1);
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const Agent agent(parameters("kvoIndex=2\nmcpFlag=3\nscreenOnFocus=main\nchannelOnFocus=4\nstartupActive=5\nstartupPrio=6\n"
                                 "suspendLock=7\nsuspendPrio=8\n"));
    EXPECT_EQ(agent.instance, gEmbKvoInst);
    EXPECT_EQ(gCmdCallback, Host::callback);
    ASSERT_TRUE(remote.accept());
    ASSERT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(gFocusKvoIp, inet_addr("10.0.0.5"));
    EXPECT_EQ(gKvoIndex, 2U);
    EXPECT_EQ(gMcpLikeFocusKvo, 3U);
    EXPECT_STREQ(gScreenOnFocus, "main");
    EXPECT_EQ(gChannelOnFocus, 4U);
    EXPECT_EQ(gStartupActive, 5U);
    EXPECT_EQ(gStartupPrio, 6U);
    EXPECT_EQ(gSuspendLock, 7U);
    EXPECT_EQ(gSuspendPrio, 8U);
    EXPECT_STREQ(gHostname, "EmbKVO_000000000000");
    EXPECT_EQ(gEmbKvoInst->session.display, 3U);
    EXPECT_EQ(gEmbKvoInst->session.connected, 1U);
    EXPECT_EQ(gEmbKvoInst->session.server, &gEmbKvoInst->server);
    EXPECT_EQ(gEmbKvoInst->server.session, &gEmbKvoInst->session);
    EXPECT_EQ(gEmbKvoInst->server.address, inet_addr("127.0.0.1"));
}

TEST(Agent, uses_the_address_of_the_description)
{
    RemoteService remote(kSession);
    const ScriptedService service(
        {support::replies("0A000009" + kStation.substr(8)), support::replies("t2m2n"), support::replies("rv4mode=1")});
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("get-rv4mode"), "rv4mode=1");
    EXPECT_THAT(service.requests(), ElementsAre("getExDescByIP 0500000A\n", "getKVOt2m2n=0A000009\n", "getRV4Mode=0A000009\n"));
}

TEST(Agent, finds_its_station_by_the_name_from_the_host)
{
    std::strcpy(gFocusName, "st1");
    RemoteService remote(kSession);
    const ScriptedService service({support::replies(kStation), support::replies("t2m2n")});
    const Agent agent("focusKvoName=another\nremoteKvoHwsIp=127.0.0.1\nremoteSession=3\n");
    ASSERT_TRUE(remote.accept());
    EXPECT_THAT(service.requests(), ElementsAre("getExDescByName st1\n", "getKVOt2m2n=0500000A\n"));
    EXPECT_STREQ(gFocusName, "st1") << "the program's own name";
    EXPECT_STREQ(gEmbKvoInst->focusKvoName, "another");
}

TEST(Agent, truncates_the_screen_name_only_to_its_own_field)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const Agent agent(parameters("screenOnFocus=" + std::string(300, 's') + "\n"));
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("get-screen-on-focus"), "screen-on-focus=" + std::string(127, 's'));
}

TEST(Agent, forgets_the_values_of_the_previous_remote_side)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    {
        const Agent agent;
        ASSERT_TRUE(remote.accept());
        EXPECT_EQ(remote.ask("servername=alpha"), "ok");
        EXPECT_EQ(remote.ask("set-disable-numlock=1"), "ok");
        EXPECT_EQ(remote.ask("set-kvoindex=7"), "ok");
        EXPECT_EQ(remote.ask("set-channel-info=kept"), "ok");
    }
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(gEmbKvoInst->server.name, nullptr);
    EXPECT_EQ(remote.ask("get-disable-numlock"), "disable-numlock=0");
    EXPECT_EQ(remote.ask("get-kvoindex"), "kvoindex=1");
    EXPECT_EQ(remote.ask("get-channel-info"), "channel-info=kept") << "which belongs to the process";
}

TEST(Agent, refuses_a_second_start_while_it_runs)
{
    const MessagesOn messages;
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    void *instance = nullptr;
    EXPECT_EQ(start(&instance), -8);
    EXPECT_EQ(KVO_HWS_startupEmbHwsClient(nullptr, nullptr, nullptr), -8) << "the missing arguments are checked first";
    EXPECT_EQ(instance, nullptr);
    EXPECT_EQ(remote.ask("get-kvoindex"), "kvoindex=1") << "the first one keeps running";
}

TEST(Agent, that_has_ended_by_itself_is_cleaned_up_before_the_next_start)
{
    const MessagesOn messages;
    void *instance = nullptr;
    {
        const SyslogCapture capture;
        ASSERT_EQ(start(&instance), 1) << "there is no local service";
        ASSERT_TRUE(eventually([] { return !isRunning(); }));
        EXPECT_THAT(capture.texts(), Contains(StartsWith("init_fb - getDescriptionEx(IP 10.0.0.5) fails with")));
        EXPECT_THAT(capture.texts().back(),
                    AllOf(StartsWith("KVO_HWS DLL - embHwsClientThread - threadID["), EndsWith("] terminates with -1")));
    }
    EXPECT_EQ(gFocusKvoIp, 0U);
    expectRefused([&] { return start(&instance); }, -8, kAlreadyRunning);
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);

    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const Agent again;
    EXPECT_TRUE(remote.accept());
}

TEST(Agent, ends_without_the_second_text_of_the_station)
{
    const MessagesOn messages;
    const ScriptedService service({support::replies(kStation), support::replies("failed")});
    const SyslogCapture capture;
    const Agent agent;
    ASSERT_TRUE(eventually([] { return !isRunning(); }));
    EXPECT_THAT(capture.texts(), Contains("init_fb - getKVOT2M2N(IP 10.0.0.5) fails with -1"));
}

TEST(Agent, without_a_thread_is_cleaned_up_before_the_next_start)
{
    const MessagesOn messages;
    void *instance = nullptr;
    {
        const WithSystemCalls calls{{.pthreadCreate = [] {
            errno = EAGAIN;
            return EAGAIN;
        }}};
        const SyslogCapture capture;
        EXPECT_EQ(start(&instance), -1);
        EXPECT_THAT(capture.texts(), Contains(kStart + "pthread_create fails " + std::to_string(EAGAIN)));
        EXPECT_EQ(instance, nullptr);
    }
    EXPECT_EQ(gCmdCallback, Host::callback) << "the callback is kept";
    expectRefused([&] { return start(&instance); }, -8, kAlreadyRunning);
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst), 1);
    EXPECT_EQ(gCmdCallback, nullptr);
}

TEST(Agent, starts_and_stops_in_a_loop_without_leaks)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    support::threadsRunning();
    const auto round = [&] {
        const Agent agent;
        ASSERT_TRUE(remote.accept());
        EXPECT_EQ(remote.ask("servername=alpha"), "ok");
        EXPECT_EQ(remote.ask("set-channel-info=beta"), "ok");
    };
    round();
    remote.close();
    const support::ResourceUsage before = support::resourceUsage();
    for (int count = 0; count < 4; ++count) {
        round();
    }
    remote.close();
    EXPECT_TRUE(eventually([&] { return support::threadsRunning() == before.threads; }));
    EXPECT_EQ(support::resourceUsage().descriptors, before.descriptors);
}

TEST(Agent, may_be_started_and_stopped_by_several_threads)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const auto until = Clock::now() + 6s;
    std::atomic<int> started{0};
    std::atomic<int> stopped{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&] {
            while (Clock::now() < until) {
                void *instance = nullptr;
                const int begin = start(&instance);
                EXPECT_THAT(begin, AnyOf(1, -8));
                started += begin == 1 ? 1 : 0;
                const int end = KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst);
                EXPECT_THAT(end, AnyOf(1, -7));
                stopped += end == 1 ? 1 : 0;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(started, stopped);
    EXPECT_GE(started, 3);
    EXPECT_FALSE(isRunning());
    EXPECT_EQ(gCmdCallback, nullptr);
}

TEST(Agent, is_started_by_one_of_several_threads_that_waited_for_a_clean_up)
{
    const MessagesOn messages;
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    std::jthread cleaner([&] { EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1); });
    // Now the agent has ended. The clean-up takes one more second, and no thread may start an agent before it returns.
    ASSERT_TRUE(eventually([] { return std::atomic_ref(gCmdCallback).load() == nullptr; }));
    std::atomic<int> started{0};
    std::atomic<int> refused{0};
    const SyslogCapture capture;
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 2; ++thread) {
            threads.emplace_back([&] {
                void *own = nullptr;
                const int result = start(&own);
                started += result == 1 ? 1 : 0;
                refused += result == -8 ? 1 : 0;
            });
        }
    }
    EXPECT_EQ(started, 1);
    EXPECT_EQ(refused, 1);
    EXPECT_THAT(capture.texts(), Contains(kAlreadyRunning));
    cleaner.join();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst), 1);
}

TEST(Agent, works_with_descriptors_above_1024)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < 2048) {
        GTEST_SKIP() << "at most" << limit.rlim_cur << " descriptors are allowed here";
    }
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    std::vector<int> used;
    while (used.empty() || used.back() < 1100) {
        used.push_back(dup(null));
    }
    {
        const Agent agent;
        ASSERT_TRUE(remote.accept());
        EXPECT_EQ(remote.ask("ping"), "pong");
        EXPECT_GT(gEmbKvoInst->session.socket, 1024);
    }
    for (const int descriptor : used) {
        close(descriptor);
    }
    close(null);
}

}  // namespace
