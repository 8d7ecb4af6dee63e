// Starting and stopping the agent, and what it leaves behind; pushing the host's events.
#include <kvo_hws/agent.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/result.h>
#include <kvo_hws/runtime.h>

#include "agent/agent_fixture.h"
#include "support/holdings.h"
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
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

namespace {

using agent_test::Agent;
using agent_test::Host;
using agent_test::isRunning;
using agent_test::kSession;
using agent_test::kStation;
using agent_test::parameters;
using agent_test::serves;
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
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Lt;
using testing::Not;
using testing::StartsWith;

using Clock = std::chrono::steady_clock;

const std::string kStart = "KVO_HWS DLL - KVO_HWS_startupEmbHwsClient - ";
const std::string kCleanup = "KVO_HWS DLL - KVO_HWS_cleanupEmbHwsClient - ";
const std::string kEvent = "KVO_HWS DLL - KVO_HWS_sendEmbHwsEvent - ";
const std::string kAlreadyRunning = kStart + "one instance of embedded kvo is already running!";

int start(void **instance, const std::string &params = parameters())
{
    return KVO_HWS_startupEmbHwsClient(params.c_str(), instance, Host::callback);
}

/// A host that does not return from its callback until it is released; then it does @p then, and says 1.
class HeldHost {
public:
    explicit HeldHost(std::function<void()> then = [] {})
    {
        Host::says([this, then = std::move(then)](const std::string &) {
            asked_ = true;
            while (held_) {
                std::this_thread::sleep_for(10ms);
            }
            then();
            return 1;
        });
    }

    /// Has the remote side ask for it, and waits until it is held.
    [[nodiscard]] bool isHeldBy(const RemoteService &remote)
    {
        remote.send("stop-viewer\r\n");
        return eventually([this] { return asked_.load(); });
    }
    void release() { held_ = false; }
    /// By then somebody else waits for it.
    [[nodiscard]] std::jthread releaseSoon()
    {
        return std::jthread([this] {
            std::this_thread::sleep_for(300ms);
            release();
        });
    }

private:
    std::atomic<bool> asked_{false};
    std::atomic<bool> held_{true};
};

/// One call's result and what it logs.
template <class Call>
void expectRefused(Call call, int result, const std::string &message)
{
    const SyslogCapture capture;
    EXPECT_EQ(call(), result);
    EXPECT_THAT(capture.texts(), ElementsAre(message));
}

TEST(Agent, is_one)
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

TEST(Agent, tells_what_the_host_has_set)
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

TEST(Agent, goes_on_with_the_address_of_the_description)
{
    RemoteService remote(kSession);
    const ScriptedService service(
        {support::replies("0A000009" + kStation.substr(8)), support::replies("t2m2n"), support::replies("rv4mode=1")});
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("get-rv4mode"), "rv4mode=1");
    EXPECT_THAT(service.requests(), ElementsAre("getExDescByIP 0500000A\n", "getKVOt2m2n=0A000009\n", "getRV4Mode=0A000009\n"));
}

TEST(Agent, finds_its_station_by_the_name_that_the_host_has_set)
{
    std::strcpy(gFocusName, "st1");
    RemoteService remote(kSession);
    const ScriptedService service({support::replies(kStation), support::replies("t2m2n")});
    const Agent agent("focusKvoName=another\nremoteKvoHwsIp=127.0.0.1\nremoteSession=3\n");
    ASSERT_TRUE(remote.accept());
    EXPECT_THAT(service.requests(), ElementsAre("getExDescByName st1\n", "getKVOt2m2n=0500000A\n"));
    EXPECT_STREQ(gFocusName, "st1") << "the program's own";
    EXPECT_STREQ(gEmbKvoInst->focusKvoName, "another");
}

TEST(Agent, cuts_the_screen_name_only_at_its_own_field)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const Agent agent(parameters("screenOnFocus=" + std::string(300, 's') + "\n"));
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("get-screen-on-focus"), "screen-on-focus=" + std::string(127, 's'));
}

TEST(Agent, forgets_what_the_remote_side_of_the_one_before_has_told)
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
    EXPECT_EQ(remote.ask("get-channel-info"), "channel-info=kept") << "which is the process's own";
}

TEST(Agent, that_runs_refuses_another)
{
    const MessagesOn messages;
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    void *instance = nullptr;
    EXPECT_EQ(start(&instance), -8);
    EXPECT_EQ(KVO_HWS_startupEmbHwsClient(nullptr, nullptr, nullptr), -8) << "that comes first";
    EXPECT_EQ(instance, nullptr);
    EXPECT_EQ(remote.ask("get-kvoindex"), "kvoindex=1") << "and goes on";
}

TEST(Agent, that_has_ended_by_itself_is_cleaned_up_before_the_next)
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

TEST(Agent, ends_where_the_station_s_second_text_is_missing)
{
    const MessagesOn messages;
    const ScriptedService service({support::replies(kStation), support::replies("failed")});
    const SyslogCapture capture;
    const Agent agent;
    ASSERT_TRUE(eventually([] { return !isRunning(); }));
    EXPECT_THAT(capture.texts(), Contains("init_fb - getKVOT2M2N(IP 10.0.0.5) fails with -1"));
}

TEST(Agent, without_a_thread_is_cleaned_up_before_the_next)
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
    EXPECT_EQ(gCmdCallback, Host::callback) << "the callback stays";
    expectRefused([&] { return start(&instance); }, -8, kAlreadyRunning);
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst), 1);
    EXPECT_EQ(gCmdCallback, nullptr);
}

TEST(Cleanup, needs_an_agent_and_its_handle)
{
    const MessagesOn messages;
    int other = 0;
    expectRefused([] { return KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst); }, -7, kCleanup + "no previous startup");
    expectRefused([] { return KVO_HWS_cleanupEmbHwsClient(nullptr); }, -7, kCleanup + "no previous startup");

    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    ASSERT_EQ(remote.ask("ping"), "pong");
    // The thread logs on too.
    const SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(nullptr), -7);
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(&other), -10);
    EXPECT_THAT(capture.texts(), Contains(kCleanup + "instance data is NULL"));
    EXPECT_THAT(capture.texts(), Contains(kCleanup + "instance data is invalid"));
    EXPECT_EQ(remote.ask("ping"), "pong") << "the agent goes on";
}

TEST(Cleanup, ends_the_agent_and_takes_a_second_more)
{
    const MessagesOn messages;
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    ASSERT_EQ(remote.ask("ping"), "pong");
    const SyslogCapture capture;
    const auto began = Clock::now();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_THAT(Clock::now() - began, AllOf(Ge(1s), Lt(5s))) << "a wait of at most a second, and a second";
    EXPECT_FALSE(isRunning());
    EXPECT_EQ(gEmbKvoInst->stop, 0U);
    EXPECT_EQ(gEmbKvoInst->session.socket, -1);
    EXPECT_EQ(gEmbKvoInst->session.lineBuffer, nullptr);
    EXPECT_EQ(gCmdCallback, nullptr);
    EXPECT_EQ(gFocusKvoIp, 0U);
    EXPECT_EQ(protocolNegotiated, 0U);
    EXPECT_EQ(remote.line(), "(closed)");
    EXPECT_THAT(capture.texts(), Contains(AllOf(HasSubstr("threadID["), EndsWith("] terminates with 0"))));
}

TEST(Cleanup, ends_an_agent_that_is_not_connected)
{
    const MessagesOn messages;
    const ScriptedService service({serves()});
    const SyslogCapture capture;
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(eventually([&] { return service.requests().size() == 2; }));
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_THAT(capture.texts(), Contains(AllOf(HasSubstr("threadID["), EndsWith("] terminates with -1"))));
}

TEST(Cleanup, right_after_the_start_waits_for_the_agent)
{
    const ScriptedService service({serves()});
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_FALSE(isRunning());
}

/// A listener on the agent's port whose queue is full, so that connects get no answer.
class SilentPort {
public:
    SilentPort() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(5850 + kSession);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 0), 0);
        for (int &client : clients_) {
            client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address);
        }
    }
    SilentPort(const SilentPort &) = delete;
    SilentPort &operator=(const SilentPort &) = delete;
    ~SilentPort()
    {
        close(listener_);
        for (const int client : clients_) {
            close(client);
        }
    }

private:
    int listener_;
    int clients_[4];
};

TEST(Cleanup, ends_an_agent_whose_connect_hangs)
{
    const SilentPort port;
    const ScriptedService service({serves()});
    std::atomic<bool> connecting{false};
    const MessagesOn messages;
    const SyslogCapture capture;
    const WithSystemCalls calls{{.connect = [&](int, const sockaddr *address, socklen_t) {
        connecting = connecting || address->sa_family == AF_INET;
        return support::kPass;
    }}};
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(eventually([&] { return connecting.load(); }));
    const auto began = Clock::now();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_LE(Clock::now() - began, 3s);
    EXPECT_THAT(capture.texts(), Not(Contains(HasSubstr("Emb-KVO connected"))));
}

/// Each of the two questions may take nearly as long as a clean-up waits.
TEST(Cleanup, ends_an_agent_between_its_questions_about_the_station)
{
    std::atomic<bool> asked{false};
    const ScriptedService service({support::answersWith([&](const std::string &) {
        asked = true;
        std::this_thread::sleep_for(3500ms);
        return kStation;
    })});
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(eventually([&] { return asked.load(); }));
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_EQ(service.requests().size(), 1U);
}

/// Threads of a program come and go, and a later one may have the number of an earlier one.
TEST(Cleanup, on_a_new_thread_is_not_taken_for_the_agent_s_own)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    for (int round = 0; round < 3; ++round) {
        std::thread([] {
            void *instance = nullptr;
            EXPECT_EQ(start(&instance), 1);
            EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
            EXPECT_FALSE(isRunning());
        }).join();
    }
}

TEST(Cleanup, does_not_hold_a_callback_that_starts_another)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    std::atomic<int> startResult{0};
    HeldHost host([&] {
        void *another = nullptr;
        startResult = start(&another);
    });
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    ASSERT_TRUE(host.isHeldBy(remote));
    const std::jthread releasing = host.releaseSoon();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_EQ(startResult, -8);
}

TEST(Cleanup, ends_an_agent_in_its_pause_after_a_connection)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    remote.close();
    ASSERT_TRUE(eventually([] { return std::atomic_ref(gEmbKvoInst->session.socket).load() < 0; }));
    std::this_thread::sleep_for(100ms);  // by now it pauses
    const MessagesOn messages;
    const SyslogCapture capture;
    const auto began = Clock::now();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_LE(Clock::now() - began, 3s);
    EXPECT_THAT(capture.texts(), Not(Contains(HasSubstr("hmi_close_x")))) << "it is closed already";
    EXPECT_THAT(capture.texts(), Contains(AllOf(HasSubstr("threadID["), EndsWith("] terminates with -1"))));
}

TEST(Cleanup, of_a_connection_that_is_just_lost_closes_it_once)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    HeldHost host([] { hmi_close_x(&gEmbKvoInst->session); });
    const MessagesOn messages;
    const SyslogCapture capture;
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    ASSERT_TRUE(host.isHeldBy(remote));
    const std::jthread releasing = host.releaseSoon();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_EQ(std::ranges::count_if(capture.texts(),
                                    [](const std::string &text) { return text.find("hmi_close_x") != std::string::npos; }),
              1);
    EXPECT_THAT(capture.texts(), Contains(AllOf(HasSubstr("threadID["), EndsWith("] terminates with 0"))));
}

TEST(Cleanup, gives_up_on_a_host_that_does_not_return)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    HeldHost host;
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    ASSERT_TRUE(host.isHeldBy(remote));
    const auto began = Clock::now();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), -1);
    EXPECT_THAT(Clock::now() - began, AllOf(Ge(7s), Lt(9s))) << "6 s for the thread, and a second";
    EXPECT_EQ(gEmbKvoInst->stop, 0U);
    EXPECT_EQ(gFocusKvoIp, 0U);
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(instance, "too late"), -1);
    EXPECT_EQ(gCmdCallback, nullptr);
    EXPECT_EQ(start(&instance), -8) << "it runs on";
    host.release();
    EXPECT_TRUE(eventually([] { return !isRunning(); })) << "and ends when the host returns";
    EXPECT_EQ(protocolNegotiated, 0U);
    gFocusKvoIp = inet_addr("10.0.0.5");
    EXPECT_EQ(init_fb(), 0) << "a program's own question is no longer the agent's";
    RemoteService next(kSession + 1);
    const Agent again(parameters("remoteSession=4\n"));
    EXPECT_TRUE(next.accept());
}

TEST(Cleanup, may_be_asked_for_by_the_callback)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    std::atomic<int> result{0};
    std::atomic<int> startResult{0};
    Host::says([&](const std::string &) {
        void *another = nullptr;
        startResult = start(&another);
        result = KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst);
        return 1;
    });
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    const auto began = Clock::now();
    EXPECT_EQ(remote.ask("stop-viewer"), "ok") << "the reply still goes out";
    EXPECT_TRUE(eventually([] { return !isRunning(); }));
    EXPECT_LE(Clock::now() - began, 2s) << "it does not wait for itself";
    EXPECT_EQ(result, -1);
    EXPECT_EQ(startResult, -8);
    EXPECT_EQ(gCmdCallback, nullptr);
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), -7);
    ASSERT_EQ(start(&instance), 1) << "and the next may start";
    EXPECT_TRUE(remote.accept());
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
}

TEST(Cleanup, in_a_callback_is_refused_with_another_handle)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    std::atomic<int> result{0};
    Host::says([&](const std::string &) {
        result = KVO_HWS_cleanupEmbHwsClient(&result);
        return 1;
    });
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("stop-viewer"), "ok");
    EXPECT_EQ(result, -10);
    EXPECT_EQ(remote.ask("ping"), "pong");
}

TEST(Cleanup, of_several_threads_ends_the_agent_once)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    std::atomic<int> ended{0};
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            const int result = KVO_HWS_cleanupEmbHwsClient(instance);
            ended += result == 1 ? 1 : 0;
            refused += result == -7 ? 1 : 0;
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(ended, 1);
    EXPECT_EQ(refused, 3);
}

TEST(Agent, starts_and_stops_in_a_loop_and_holds_nothing)
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
    const support::Holdings before = support::holdings();
    for (int count = 0; count < 4; ++count) {
        round();
    }
    remote.close();
    EXPECT_TRUE(eventually([&] { return support::threadsRunning() == before.threads; }));
    EXPECT_EQ(support::holdings().descriptors, before.descriptors);
}

TEST(Agent, is_started_and_stopped_by_several_threads)
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

TEST(Agent, is_started_by_one_of_those_that_waited_for_a_clean_up)
{
    const MessagesOn messages;
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    std::jthread cleaner([&] { EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1); });
    // From here on it takes a second more: nothing is in use, and nobody may start yet.
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

TEST(Events, need_the_agent_s_handle_and_a_text)
{
    const MessagesOn messages;
    int other = 0;
    expectRefused([] { return KVO_HWS_sendEmbHwsEvent(nullptr, "event"); }, -7, kEvent + "instance data is NULL");
    expectRefused([&] { return KVO_HWS_sendEmbHwsEvent(&other, "event"); }, -10, kEvent + "instance data is invalid");
    expectRefused([] { return KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, nullptr); }, -7, kEvent + "null pointer received!");
}

TEST(Events, wait_until_the_remote_side_has_spoken)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const Agent agent;
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "too early"), -1);
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "too early"), -1);
    EXPECT_EQ(remote.ask("nonsense"), "bad request");
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "too early"), -1);
    EXPECT_EQ(remote.ask("ping"), "pong");
    // The reply goes out just before the protocol counts as negotiated.
    EXPECT_TRUE(eventually([&] { return KVO_HWS_sendEmbHwsEvent(agent.instance, "event") == 1; }));
    EXPECT_EQ(remote.line(), "I01:event\r\n");
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, ""), 1);
    EXPECT_EQ(remote.line(), "I02:\r\n");
}

TEST(Events, are_refused_until_the_next_agent_s_remote_side_has_spoken)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    protocolNegotiated = 1;  // left over from whatever was before
    const Agent agent;
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "too early"), -1);
    ASSERT_TRUE(remote.accept());
    std::atomic<int> inCallback{0};
    Host::says([&](const std::string &) {
        inCallback = KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, "too early");
        return 1;
    });
    EXPECT_EQ(remote.ask("stop-viewer"), "ok");
    EXPECT_EQ(inCallback, -1) << "the first request is not yet answered";
}

TEST(Callback, may_push_ask_and_close)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves({{"getRV4Mode=0500000A", "rv4mode=1"}})});
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(remote.ask("ping"), "pong");
    Host::says([&](const std::string &) {
        uint32_t mode = 0;
        EXPECT_EQ(KVO_HWS_getRV4Mode(gFocusKvoIp, &mode), 1);
        EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, "from inside"), 1);
        EXPECT_EQ(kvo_hws_detach_thread(), -1) << "nobody has to join its thread";
        hmi_close_x(&gEmbKvoInst->session);
        return 1;
    });
    remote.send("stop-viewer\r\n");
    EXPECT_THAT(remote.line(), EndsWith(":from inside\r\n"));
    EXPECT_EQ(remote.line(), "(closed)");
    EXPECT_TRUE(remote.accept()) << "and a new connection is made";
}

TEST(Agent, works_with_descriptors_beyond_1024)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < 2048) {
        GTEST_SKIP() << "no more than " << limit.rlim_cur << " descriptors are allowed here";
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

TEST(Events, go_nowhere_while_there_is_no_connection)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "heard"), 1);
    const int first = std::stoi(remote.line().substr(1, 2));
    remote.close();
    ASSERT_TRUE(eventually([] { return std::atomic_ref(gEmbKvoInst->session.socket).load() < 0; }));
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "lost"), 1);
    ASSERT_TRUE(remote.accept());
    ASSERT_TRUE(eventually([] { return std::atomic_ref(gEmbKvoInst->session.socket).load() >= 0; }));
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "heard"), 1);
    EXPECT_EQ(std::stoi(remote.line().substr(1, 2)), first + 2)
        << "a number is used, so that the remote side sees that it has missed one";
}

}  // namespace
