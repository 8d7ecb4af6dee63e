// A remote side that misbehaves, and hosts that send events meanwhile.
#include <kvo_hws/agent.h>

#include "agent/agent_fixture.h"
#include "support/alarms.h"
#include "support/resource_usage.h"
#include "support/usb_events.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

namespace {

using agent_test::Agent;
using agent_test::isRunning;
using agent_test::kSession;
using agent_test::serves;
using support::eventually;
using support::RemoteService;
using support::ScriptedService;

using Clock = std::chrono::steady_clock;

constexpr int kPushers = 4;

class HostileRemote : public testing::Test {
protected:
    /// An agent that is connected and has answered a request.
    void SetUp() override
    {
        ASSERT_EQ(KVO_HWS_startupEmbHwsClient(agent_test::parameters().c_str(), &instance, agent_test::Host::callback), 1);
        ASSERT_TRUE(remote.accept());
        ASSERT_EQ(remote.ask("ping"), "pong");
        ASSERT_EQ(remote.ask("ping"), "pong");
    }
    void TearDown() override
    {
        if (isRunning()) {
            EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
        }
    }

    bool push(const std::string &text) { return KVO_HWS_sendEmbHwsEvent(instance, text.c_str()) == 1; }

    RemoteService remote{kSession};
    const ScriptedService service{{serves()}};
    void *instance = nullptr;
};

TEST_F(HostileRemote, receives_whole_lines_in_order_while_many_threads_send)
{
    constexpr int kEach = 500;
    std::vector<std::jthread> pushers;
    for (int pusher = 0; pusher < kPushers; ++pusher) {
        pushers.emplace_back([this, pusher] {
            for (int event = 0; event < kEach; ++event) {
                EXPECT_TRUE(push("pusher " + std::to_string(pusher) + " event " + std::to_string(event)));
            }
        });
    }
    int replies = 0;
    int requests = 0;
    int number = 0;
    int next[kPushers] = {};
    for (int indications = 0; indications < kPushers * kEach || replies < requests;) {
        if (indications < kPushers * kEach && requests - replies < 3) {
            remote.send("042:get-kvoindex\r\n");
            ++requests;
        }
        const std::string line = remote.line();
        if (line == "042:kvoindex=1\r\n") {
            ++replies;
            continue;
        }
        int pusher = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "I%*2d:pusher %d event", &pusher), 1) << line;
        ASSERT_LT(pusher, kPushers);
        number = number % 99 + 1;
        char expected[64];
        std::snprintf(expected, sizeof expected, "I%02d:pusher %d event %d\r\n", number, pusher, next[pusher]++);
        ASSERT_EQ(line, expected) << "the numbers, and the events of each thread, arrive in order";
        ++indications;
    }
    EXPECT_GT(replies, 0);
}

TEST_F(HostileRemote, that_stops_reading_is_disconnected_and_blocks_no_thread)
{
    std::atomic<int> pushed{0};
    std::atomic<bool> ending{false};
    std::vector<std::jthread> pushers;
    for (int pusher = 0; pusher < kPushers; ++pusher) {
        pushers.emplace_back([&] {
            const std::string text(4000, 'e');
            while (!ending) {
                push(text);
                ++pushed;
            }
        });
    }
    // The test reads nothing: the senders stall until the agent notices and closes the connection.
    EXPECT_TRUE(eventually([] { return std::atomic_ref(gEmbKvoInst->session.socket).load() < 0; }));
    const int before = pushed;
    EXPECT_TRUE(eventually([&] { return pushed > before + 100; })) << "no sender is blocked any more";
    ending = true;
    for (std::jthread &pusher : pushers) {
        pusher.join();
    }
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong") << "a new connection is made";
}

TEST_F(HostileRemote, that_resumes_reading_in_time_loses_nothing)
{
    const int socket = gEmbKvoInst->session.socket;
    std::atomic<int> pushed{0};
    std::atomic<bool> stalled{false};
    std::jthread pusher([&] {
        const std::string text(4000, 'e');
        while (!stalled) {
            push(text);
            ++pushed;
        }
    });
    // Signals must not make the stall appear longer either.
    const support::Alarms alarms(1ms, 1ms);
    int before = -1;
    EXPECT_TRUE(eventually([&] {
        const int now = pushed;
        std::this_thread::sleep_for(200ms);
        return now == std::exchange(before, now);
    }));
    std::this_thread::sleep_for(1200ms);  // longer than one wait of the agent; after 4 s it would close the connection
    stalled = true;
    const int stuck = pushed;
    for (int event = 0; event <= stuck; ++event) {
        ASSERT_EQ(remote.line().size(), 4 + 4000 + 2U);
    }
    EXPECT_EQ(std::atomic_ref(gEmbKvoInst->session.socket).load(), socket) << "the connection was kept";
}

TEST_F(HostileRemote, that_stops_reading_does_not_delay_a_clean_up)
{
    std::atomic<int> pushing{0};
    std::vector<std::jthread> pushers;
    const auto until = Clock::now() + 3s;
    for (int pusher = 0; pusher < kPushers; ++pusher) {
        pushers.emplace_back([&] {
            const std::string text(4000, 'e');
            while (push(text) && Clock::now() < until) {
                ++pushing;
            }
        });
    }
    // Wait for the stall.
    int before = -1;
    EXPECT_TRUE(eventually([&] {
        const int now = pushing;
        std::this_thread::sleep_for(200ms);
        return now == std::exchange(before, now);
    }));
    const auto began = Clock::now();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_LE(Clock::now() - began, 6s);
    for (std::jthread &pusher : pushers) {
        pusher.join();
    }
    EXPECT_LE(Clock::now() - began, 3500ms) << "no send is still blocked";
}

TEST_F(HostileRemote, that_sends_requests_without_reading_does_not_delay_a_clean_up)
{
    std::string requests;
    for (int request = 0; request < 1000; ++request) {
        requests += "get-channel-info\r\n";
    }
    EXPECT_EQ(remote.ask("set-channel-info=" + std::string(200, 'x')), "ok");
    std::jthread asking([&] {
        for (int round = 0; round < 100; ++round) {
            remote.send(requests);
        }
    });
    std::this_thread::sleep_for(1500ms);
    const auto began = Clock::now();
    EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
    EXPECT_LE(Clock::now() - began, 6s);
    asking.join();
}

TEST_F(HostileRemote, that_floods_receives_a_reply_to_each_line)
{
    constexpr int kRequests = 20'000;
    std::jthread asking([&] {
        std::string requests;
        for (int request = 0; request < 100; ++request) {
            requests += request % 2 == 0 ? "ping\r\n" : "nonsense\n";
        }
        for (int round = 0; round < kRequests / 100; ++round) {
            remote.send(requests);
        }
    });
    for (int request = 0; request < kRequests; ++request) {
        ASSERT_EQ(remote.line(), request % 2 == 0 ? "pong\r\n" : "bad request\r\n");
    }
    asking.join();
}

TEST_F(HostileRemote, that_sends_half_a_line_uses_no_processor_time)
{
    remote.send("pi");
    const support::ResourceUsage before = support::resourceUsage();
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    const auto usedBefore = used;
    std::this_thread::sleep_for(2500ms);
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    const double seconds =
        static_cast<double>(used.tv_sec - usedBefore.tv_sec) + static_cast<double>(used.tv_nsec - usedBefore.tv_nsec) * 1e-9;
    EXPECT_LE(seconds, 0.5) << "the agent blocks and does not poll in a loop";
    EXPECT_LE(support::resourceUsage().descriptors,
              before.descriptors);  // fewer, if a descriptor was being closed during the first count
    remote.send("ng\n");
    EXPECT_EQ(remote.line(), "pong\r\n") << "however late";
}

TEST_F(HostileRemote, that_sends_single_bytes_receives_a_reply)
{
    for (const char byte : std::string("042:ping\r\n")) {
        remote.send(std::string(1, byte));
        std::this_thread::sleep_for(2ms);
    }
    EXPECT_EQ(remote.line(), "042:pong\r\n");
}

TEST_F(HostileRemote, that_sends_random_bytes_receives_replies)
{
    unsigned state = 12345;
    std::string bytes;
    for (int count = 0; count < 20'000; ++count) {
        state = state * 1103515245U + 12345U;
        bytes.push_back(count % 100 == 99 ? '\n' : static_cast<char>(state >> 16U));
    }
    std::jthread sending([&] { remote.send(bytes); });
    for (int line = 0; line < 200; ++line) {
        ASSERT_TRUE(remote.line().ends_with("bad request\r\n"));
    }
    sending.join();
}

TEST_F(HostileRemote, that_reconnects_often_is_served_each_time)
{
    const support::ResourceUsage before = support::resourceUsage();
    for (int round = 0; round < 3; ++round) {
        remote.close(round % 2 == 0);
        ASSERT_TRUE(remote.accept());
        ASSERT_EQ(remote.ask("ping"), "pong");
    }
    // Fewer, if a descriptor was being closed during the first count.
    EXPECT_LE(support::resourceUsage().descriptors, before.descriptors);
    EXPECT_LE(support::resourceUsage().threads, before.threads);
}

}  // namespace
