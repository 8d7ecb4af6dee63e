// The connection thread: where it connects to, how it serves requests, and what it logs.
#include <kvo_hws/agent.h>
#include <kvo_hws/config.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/runtime.h>

#include "agent/agent_fixture.h"
#include "agent/connection_fixture.h"
#include "support/no_standard_input.h"
#include "support/remote_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using agent_test::Agent;
using agent_test::Clock;
using agent_test::Connection;
using agent_test::kConnect;
using agent_test::kNextTry;
using agent_test::kSession;
using agent_test::kThread;
using agent_test::parameters;
using agent_test::sessionSocket;
using agent_test::threadTexts;
using support::eventually;
using support::RemoteService;
using support::SyslogCapture;
using support::WithSystemCalls;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::Ge;
using testing::Le;
using testing::Lt;
using testing::Not;
using testing::StartsWith;

/// Replaces the platform's adapter functions: records which adapter is selected and returns fixed values.
std::mutex adapterLock;
std::vector<std::string> adapterCalls;
std::atomic<bool> adapterIsSlow{false};

void noteAdapterCall(const std::string &call)
{
    {
        const std::lock_guard guard(adapterLock);
        adapterCalls.push_back(call);
    }
    if (adapterIsSlow) {
        std::this_thread::sleep_for(50ms);
    }
}

}  // namespace

extern "C" {

void setAdapterInterfaceCache(const char *interface) noexcept { noteAdapterCall(std::string("select ") + interface); }

int getAdapterValuesDirect(int refresh) noexcept
{
    noteAdapterCall("read " + std::to_string(refresh));
    return 0;
}

void getAdapterMacCache(uint8_t *mac) noexcept
{
    noteAdapterCall("hardware address");
    std::ranges::copy(std::array<uint8_t, 6>{0x01, 0x23, 0xAB, 0xCD, 0x0E, 0xF0}, mac);
}

uint32_t getAdapterBroadcastCache() noexcept
{
    noteAdapterCall("broadcast address");
    return htonl(INADDR_LOOPBACK);
}

}  // extern "C"

namespace {

TEST_F(Connection, is_logged_from_start_to_end)
{
    RemoteService remote(kSession);
    const SyslogCapture capture;
    {
        const Agent agent;
        ASSERT_TRUE(remote.accept());
        ASSERT_EQ(remote.ask("ping"), "pong");
        std::this_thread::sleep_for(1200ms);
    }
    const auto texts = threadTexts(capture);
    ASSERT_GE(texts.size(), 6U);
    EXPECT_EQ(texts[0], kThread + "embHwsClientThread uses interface '" + sConfData.interface + "'");
    EXPECT_EQ(texts[1], kThread + "connect to 127.0.0.1");
    EXPECT_EQ(texts[2], kThread + "Emb-KVO connected with 127.0.0.1");
    EXPECT_EQ(texts[3], kThread + "Emb-KVO select with timeout");
    EXPECT_THAT(texts[texts.size() - 2], StartsWith("KVO_HWS DLL - hmi_close_x - socket "));
    EXPECT_THAT(texts.back(), AllOf(StartsWith(kThread + "threadID["), EndsWith("] terminates with 0")));
}

TEST_F(Connection, uses_the_name_of_the_configured_interface)
{
    adapterCalls.clear();
    hws_keywords[0].defaultText = "cell0";
    hws_keywords[1].defaultText = nullptr;
    RemoteService remote(kSession);
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("get-kvo-name"), "EmbKVO_0123ABCD0EF0");
    EXPECT_STREQ(gHostname, "EmbKVO_0123ABCD0EF0");
    EXPECT_THAT(adapterCalls, ElementsAre(std::string("select ") + sConfData.interface, "read 1", "hardware address"));
}

/// The platform has a single adapter cache: the values of a selected adapter are read before another one is selected.
TEST_F(Connection, reads_its_own_interface_while_another_thread_sets_a_usb_lock)
{
    adapterCalls.clear();
    adapterIsSlow = true;
    std::thread setter([] { EXPECT_EQ(KVO_HWS_setUsbLock(0, nullptr, 1, 0), 1); });
    {
        const Agent agent;
        ASSERT_TRUE(eventually([] {
            const std::lock_guard guard(adapterLock);
            return adapterCalls.size() == 6;
        }));
        setter.join();
    }
    adapterIsSlow = false;
    const bool agentFirst = adapterCalls[2] == "hardware address";
    const std::string own = sConfData.interface;
    const std::vector<std::string> agents = {"select " + own, "read 1", "hardware address"};
    const std::vector<std::string> locks = {"select lo", "read 1", "broadcast address"};
    std::vector<std::string> expected = agentFirst ? agents : locks;
    expected.insert(expected.end(), agentFirst ? locks.begin() : agents.begin(), agentFirst ? locks.end() : agents.end());
    EXPECT_THAT(adapterCalls, ElementsAreArray(expected));
}

TEST_F(Connection, works_on_descriptor_0)
{
    RemoteService remote(kSession);
    const SyslogCapture capture;
    {
        const support::NoStandardInput noStandardInput;
        const Agent agent;
        ASSERT_TRUE(remote.accept());
        EXPECT_EQ(remote.ask("ping"), "pong");
        EXPECT_EQ(sessionSocket(), 0);
        // The reply is sent a moment before events are allowed.
        EXPECT_TRUE(eventually([&] { return KVO_HWS_sendEmbHwsEvent(agent.instance, "key") == 1; }));
        EXPECT_EQ(remote.line(), "I01:key\r\n");
    }
    EXPECT_THAT(threadTexts(capture), Contains("KVO_HWS DLL - hmi_close_x - socket 0"));
    EXPECT_EQ(sessionSocket(), -1);
}

TEST_F(Connection, is_polled_for_one_second_at_a_time)
{
    RemoteService remote(kSession);
    std::mutex lock;
    std::vector<int> waits;
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    ASSERT_EQ(remote.ask("ping"), "pong");
    const int socket = sessionSocket();
    {
        const WithSystemCalls calls{{.poll = [&](pollfd *descriptors, nfds_t, int milliseconds) {
            if (descriptors->fd == socket) {
                const std::lock_guard guard(lock);
                waits.push_back(milliseconds);
            }
            return support::kPassThrough;
        }}};
        ASSERT_EQ(remote.ask("ping"), "pong");
        ASSERT_EQ(remote.ask("ping"), "pong");
    }
    const std::lock_guard guard(lock);
    EXPECT_THAT(waits, testing::Each(1000));
    EXPECT_FALSE(waits.empty());
}

TEST_F(Connection, uses_the_port_of_its_session)
{
    RemoteService remote(9);
    const Agent agent(parameters("remoteSession=19\n"));
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(gEmbKvoInst->session.display, 9U);
}

TEST_F(Connection, of_session_13_uses_port_5853)
{
    RemoteService remote(3);
    const Agent agent("focusKvoIp=10.0.0.5\nremoteKvoHwsIp=127.0.0.1\nremoteSession=13\n");
    EXPECT_TRUE(remote.accept());
}

TEST_F(Connection, begins_without_a_greeting)
{
    RemoteService remote(kSession);
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.bytes(300ms), "") << "no greeting";
}

TEST_F(Connection, records_the_time_of_its_connect)
{
    RemoteService remote(kSession);
    KvoTimeval before{};
    timeval_get(&before);
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    ASSERT_TRUE(eventually([] { return sessionSocket() >= 0; }));
    const KvoTimeval made = gEmbKvoInst->session.lastActivity;
    EXPECT_THAT(timeval_diff(&made, &before), AllOf(Ge(0), Le(5000)));
}

TEST_F(Connection, sets_no_socket_option_on_connect)
{
    RemoteService remote(kSession);
    std::atomic<int> options{0};
    const WithSystemCalls calls{{.setsockopt = [&, own = std::this_thread::get_id()](int, int level, int) {
        options += level == IPPROTO_TCP && std::this_thread::get_id() != own ? 1 : 0;
        return support::kPassThrough;
    }}};
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_TRUE(eventually([] { return sessionSocket() >= 0; }));
    EXPECT_EQ(options, 0);
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(options, 3) << "no-delay for the first line, and corking";
}

TEST_F(Connection, is_tried_every_second_while_no_process_listens)
{
    std::mutex lock;
    std::vector<Clock::time_point> tries;
    const WithSystemCalls calls{{.connect = [&](int, const sockaddr *address, socklen_t) {
        if (address->sa_family == AF_INET) {
            const std::lock_guard guard(lock);
            tries.push_back(Clock::now());
        }
        return support::kPassThrough;
    }}};
    const SyslogCapture capture;
    const Agent agent;
    ASSERT_TRUE(eventually([&] {
        const std::lock_guard guard(lock);
        return tries.size() >= 4;
    }));
    for (std::size_t next = 1; next < 4; ++next) {
        EXPECT_THAT(tries[next] - tries[next - 1], AllOf(Ge(1s), Lt(3s)));
    }
    auto texts = threadTexts(capture);
    texts.resize(7);
    const std::string connecting = kThread + "connect to 127.0.0.1";
    const std::string refused = kConnect + "connect() returns " + std::to_string(ECONNREFUSED);
    EXPECT_THAT(std::vector(texts.begin() + 1, texts.end()),
                ElementsAre(connecting, refused, kNextTry, connecting, refused, kNextTry));
}

TEST_F(Connection, is_tried_again_after_socket_fails)
{
    RemoteService remote(kSession);
    std::atomic<int> rounds{0};
    const WithSystemCalls calls{{.socket = [&](int domain) {
        if (domain == AF_INET && rounds++ == 0) {
            errno = EMFILE;
            return -1;
        }
        return support::kPassThrough;
    }}};
    const SyslogCapture capture;
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    const auto texts = threadTexts(capture);
    EXPECT_THAT(texts, Contains(kConnect + "socket() returns " + std::to_string(EMFILE)));
    EXPECT_THAT(texts, Contains(kNextTry));
}

TEST_F(Connection, survives_a_signal)
{
    RemoteService remote(kSession);
    const SyslogCapture capture;
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    ASSERT_EQ(remote.ask("ping"), "pong");
    const int socket = sessionSocket();
    std::atomic<int> interrupted{0};
    const WithSystemCalls calls{{.poll = [&](pollfd *descriptors, nfds_t count, int) {
        if (count == 1 && descriptors->fd == socket && interrupted++ < 3) {
            errno = EINTR;
            return -1;
        }
        return support::kPassThrough;
    }}};
    remote.send("ping\nping\n");
    EXPECT_EQ(remote.line(), "pong\r\n");
    EXPECT_EQ(remote.line(), "pong\r\n");
    EXPECT_GE(interrupted, 3);
    EXPECT_THAT(capture.texts(), Not(Contains(StartsWith(kThread + "Emb-KVO select returns"))));
}

}  // namespace
