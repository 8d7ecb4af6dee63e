// Cleaning up the agent in each of its states.
#include <kvo_hws/agent.h>
#include <kvo_hws/requests.h>

#include "agent/agent_fixture.h"
#include "agent/lifecycle.h"
#include "support/remote_service.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
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
using testing::Contains;
using testing::EndsWith;
using testing::Ge;
using testing::HasSubstr;
using testing::Lt;
using testing::Not;

const std::string kCleanup = "KVO_HWS DLL - KVO_HWS_cleanupEmbHwsClient - ";

/// A host that blocks in its callback until it is released; then it calls @p then and returns 1.
class BlockedHost {
public:
    explicit BlockedHost(std::function<void()> then = [] {})
    {
        Host::setAnswer([this, then = std::move(then)](const std::string &) {
            called_ = true;
            while (blocked_) {
                std::this_thread::sleep_for(10ms);
            }
            then();
            return 1;
        });
    }

    /// Sends a request that calls the host, and waits until the callback blocks.
    [[nodiscard]] bool isBlockedBy(const RemoteService &remote)
    {
        remote.send("stop-viewer\r\n");
        return eventually([this] { return called_.load(); });
    }
    void release() { blocked_ = false; }
    /// Releases the host after 300 ms: by then another thread waits for it.
    [[nodiscard]] std::jthread releaseSoon()
    {
        return std::jthread([this] {
            std::this_thread::sleep_for(300ms);
            release();
        });
    }

private:
    std::atomic<bool> called_{false};
    std::atomic<bool> blocked_{true};
};

TEST(Cleanup, needs_a_running_agent_and_the_right_handle)
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
    // The thread logs too.
    const SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(nullptr), -7);
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(&other), -10);
    EXPECT_THAT(capture.texts(), Contains(kCleanup + "instance data is NULL"));
    EXPECT_THAT(capture.texts(), Contains(kCleanup + "instance data is invalid"));
    EXPECT_EQ(remote.ask("ping"), "pong") << "the agent keeps running";
}

TEST(Cleanup, ends_the_agent_and_then_waits_one_more_second)
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
    EXPECT_THAT(Clock::now() - began, AllOf(Ge(1s), Lt(5s))) << "at most one second until the thread ends, and one more second";
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

TEST(Cleanup, waits_for_an_agent_that_has_just_started)
{
    const ScriptedService service({serves()});
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_FALSE(isRunning());
}

/// A listener on the agent's port with a full queue, so a connect never completes.
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
        return support::kPassThrough;
    }}};
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(eventually([&] { return connecting.load(); }));
    const auto began = Clock::now();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_LE(Clock::now() - began, 4500ms);
    EXPECT_THAT(capture.texts(), Not(Contains(HasSubstr("Emb-KVO connected"))));
}

/// Each of the two requests may take nearly as long as the clean-up's timeout.
TEST(Cleanup, ends_an_agent_between_its_requests_about_the_station)
{
    std::atomic<bool> requested{false};
    const ScriptedService service({support::answersWith([&](const std::string &) {
        requested = true;
        std::this_thread::sleep_for(3500ms);
        return kStation;
    })});
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(eventually([&] { return requested.load(); }));
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_EQ(service.requests().size(), 1U);
}

/// Thread ids are reused: a later thread may have the id of an earlier one.
TEST(Cleanup, does_not_mistake_a_new_thread_for_the_agent_thread)
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

TEST(Cleanup, does_not_block_a_callback_that_starts_another_agent)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    std::atomic<int> startResult{0};
    BlockedHost host([&] {
        void *another = nullptr;
        startResult = start(&another);
    });
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    ASSERT_TRUE(host.isBlockedBy(remote));
    const std::jthread releasing = host.releaseSoon();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_EQ(startResult, -8);
}

TEST(Cleanup, ends_an_agent_that_pauses_after_a_connection)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    remote.close();
    ASSERT_TRUE(eventually([] { return std::atomic_ref(gEmbKvoInst->session.socket).load() < 0; }));
    std::this_thread::sleep_for(100ms);  // long enough for the pause to begin
    const MessagesOn messages;
    const SyslogCapture capture;
    const auto began = Clock::now();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_LE(Clock::now() - began, 4500ms);
    EXPECT_THAT(capture.texts(), Not(Contains(HasSubstr("hmi_close_x")))) << "the connection is already closed";
    EXPECT_THAT(capture.texts(), Contains(AllOf(HasSubstr("threadID["), EndsWith("] terminates with -1"))));
}

TEST(Cleanup, does_not_close_a_lost_connection_again)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    BlockedHost host([] { hmi_close_x(&gEmbKvoInst->session); });
    const MessagesOn messages;
    const SyslogCapture capture;
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    ASSERT_TRUE(host.isBlockedBy(remote));
    const std::jthread releasing = host.releaseSoon();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_EQ(std::ranges::count_if(capture.texts(),
                                    [](const std::string &text) { return text.find("hmi_close_x") != std::string::npos; }),
              1);
    EXPECT_THAT(capture.texts(), Contains(AllOf(HasSubstr("threadID["), EndsWith("] terminates with 0"))));
}

TEST(Cleanup, gives_up_on_a_callback_that_does_not_return)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    BlockedHost host;
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    ASSERT_TRUE(host.isBlockedBy(remote));
    const auto began = Clock::now();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), -1);
    EXPECT_THAT(Clock::now() - began, AllOf(Ge(7s), Lt(9s))) << "6 s for the thread, and one second more";
    EXPECT_EQ(gEmbKvoInst->stop, 0U);
    EXPECT_EQ(gFocusKvoIp, 0U);
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(instance, "too late"), -1);
    EXPECT_EQ(gCmdCallback, nullptr);
    EXPECT_EQ(start(&instance), -8) << "the old agent still runs";
    host.release();
    EXPECT_TRUE(eventually([] { return !isRunning(); })) << "and ends when the host returns";
    EXPECT_EQ(protocolNegotiated, 0U);
    gFocusKvoIp = inet_addr("10.0.0.5");
    EXPECT_EQ(init_fb(), 0) << "the program's own request is no longer taken for the agent's";
    RemoteService next(kSession + 1);
    const Agent again(parameters("remoteSession=4\n"));
    EXPECT_TRUE(next.accept());
}

TEST(Cleanup, may_be_called_by_the_callback)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    std::atomic<int> result{0};
    std::atomic<int> startResult{0};
    Host::setAnswer([&](const std::string &) {
        void *another = nullptr;
        startResult = start(&another);
        result = KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst);
        return 1;
    });
    void *instance = nullptr;
    ASSERT_EQ(start(&instance), 1);
    ASSERT_TRUE(remote.accept());
    const auto began = Clock::now();
    EXPECT_EQ(remote.ask("stop-viewer"), "ok") << "the reply is still sent";
    EXPECT_TRUE(eventually([] { return !isRunning(); }));
    EXPECT_LE(Clock::now() - began, 5s) << "it does not wait for its own thread";
    EXPECT_EQ(result, -1);
    EXPECT_EQ(startResult, -8);
    EXPECT_EQ(gCmdCallback, nullptr);
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), -7);
    ASSERT_EQ(start(&instance), 1) << "and the next agent may start";
    EXPECT_TRUE(remote.accept());
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
}

TEST(Cleanup, is_refused_in_a_callback_with_another_handle)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    std::atomic<int> result{0};
    Host::setAnswer([&](const std::string &) {
        result = KVO_HWS_cleanupEmbHwsClient(&result);
        return 1;
    });
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("stop-viewer"), "ok");
    EXPECT_EQ(result, -10);
    EXPECT_EQ(remote.ask("ping"), "pong");
}

TEST(Cleanup, on_several_threads_ends_the_agent_once)
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

}  // namespace
