// The connection thread when a connection fails, is lost, or leaves a socket open.
#include <kvo_hws/agent.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/runtime.h>

#include "agent/agent_fixture.h"
#include "agent/connection_fixture.h"
#include "support/remote_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
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
using agent_test::sessionSocket;
using agent_test::threadTexts;
using support::eventually;
using support::RemoteService;
using support::SyslogCapture;
using support::WithSystemCalls;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::Lt;

/// Replaces @p fd with a connected socket whose error is reported only by SO_ERROR.
void failLater(int fd)
{
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof place;
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&place), sizeof place), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&place), &length), 0);
    const int nearEnd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(connect(nearEnd, reinterpret_cast<const sockaddr *>(&place), sizeof place), 0);
    const int farEnd = accept(listener, nullptr, nullptr);
    const linger reset{.l_onoff = 1, .l_linger = 0};
    setsockopt(farEnd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    close(farEnd);
    close(listener);
    ASSERT_EQ(dup3(nearEnd, fd, O_CLOEXEC), fd);
    close(nearEnd);
}

TEST_F(Connection, that_fails_after_connect_has_returned_is_tried_again)
{
    std::atomic<int> rounds{0};
    RemoteService remote(kSession);
    const SyslogCapture capture;
    const WithSystemCalls calls{{.connect = [&](int fd, const sockaddr *address, socklen_t) {
        if (address->sa_family != AF_INET || !support::calledByLibrary() || rounds++ > 0) {
            return support::kPassThrough;
        }
        failLater(fd);
        errno = EINPROGRESS;
        return -1;
    }}};
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_THAT(threadTexts(capture), Contains(kConnect + "connect() returns " + std::to_string(ECONNRESET)));
}

TEST_F(Connection, that_is_lost_is_restored_after_5_seconds)
{
    RemoteService remote(kSession);
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    ASSERT_EQ(remote.ask("set-kvoindex=7"), "ok");
    ASSERT_EQ(remote.ask("set-disable-numlock=1"), "ok");
    remote.send("pin");
    std::this_thread::sleep_for(100ms);
    const auto lost = Clock::now();
    remote.close();
    ASSERT_TRUE(remote.accept());
    EXPECT_THAT(Clock::now() - lost, AllOf(Ge(5s), Lt(9s)));
    remote.send("g\n");
    EXPECT_EQ(remote.line(), "bad request\r\n") << "a new connection starts with an empty line";
    EXPECT_EQ(remote.ask("get-kvoindex"), "kvoindex=7");
    EXPECT_EQ(remote.ask("get-disable-numlock"), "disable-numlock=1") << "kept for the agent's lifetime";
}

TEST_F(Connection, that_is_reset_is_restored)
{
    RemoteService remote(kSession);
    const SyslogCapture capture;
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    ASSERT_EQ(remote.ask("ping"), "pong");
    remote.close(true);
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_THAT(capture.texts(),
                Contains("In hmiconn_process_one_request: HWS connection to 127.0.0.1:3: Connection reset by peer"));
}

TEST_F(Connection, that_sends_an_endless_line_is_closed_and_restored)
{
    RemoteService remote(kSession);
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    remote.send(std::string(256, 'x'));
    EXPECT_EQ(remote.line(), "(closed)");
    EXPECT_TRUE(remote.accept());
}

TEST_F(Connection, that_cannot_be_polled_is_closed_and_restored)
{
    RemoteService remote(kSession);
    const SyslogCapture capture;
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    ASSERT_EQ(remote.ask("ping"), "pong");
    const int socket = sessionSocket();
    {
        std::atomic<bool> failed{false};
        const WithSystemCalls calls{{.poll = [&](pollfd *descriptors, nfds_t count, int) {
            if (count == 1 && descriptors->fd == socket && !failed.exchange(true)) {
                errno = ENOMEM;
                return -1;
            }
            return support::kPassThrough;
        }}};
        remote.send("ping\n");
        ASSERT_TRUE(eventually([&] { return failed.load(); }));
        ASSERT_TRUE(eventually([] { return sessionSocket() < 0; }));
    }
    const std::string number = std::to_string(socket);
    const auto texts = threadTexts(capture);
    const auto first = std::ranges::find(texts, kThread + "Emb-KVO socket " + number + " getsockopt returns 0 serrno:0");
    ASSERT_NE(first, texts.end());
    EXPECT_EQ(*std::next(first), kThread + "Emb-KVO select returns:-1 error:" + std::to_string(ENOMEM));
    EXPECT_EQ(*std::next(first, 2), "KVO_HWS DLL - hmi_close_x - socket " + number);
    EXPECT_TRUE(remote.accept());
}

TEST_F(Connection, is_completed_after_an_interrupted_connect)
{
    std::atomic<int> rounds{0};
    RemoteService remote(kSession);
    const WithSystemCalls calls{{.connect = [&](int fd, const sockaddr *address, socklen_t length) {
        if (address->sa_family != AF_INET || !support::calledByLibrary() || rounds++ > 0) {
            return support::kPassThrough;
        }
        // As in the kernel, an interrupted connect continues in the background.
        EXPECT_EQ(connect(fd, address, length), -1);
        EXPECT_EQ(errno, EINPROGRESS);
        errno = EINTR;
        return -1;
    }}};
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(rounds, 1) << "without a second try";
}

/// An agent that has failed to connect once and pauses; the test then gives it a connected socket.
class OpenSocket : public Connection {
protected:
    /// @p age  milliseconds since the last activity on the socket
    void giveSocket(int32_t age)
    {
        KvoTimeval active;
        timeval_get(&active);
        active.tv_sec -= age / 1000;
        awaitPause();
        giveSocketActiveAt(active);
    }
    void awaitPause() const
    {
        ASSERT_TRUE(eventually([&] { return std::ranges::count(capture.texts(), kNextTry) > 0; }));
    }
    void giveSocketActiveAt(KvoTimeval time)
    {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        gEmbKvoInst->session.lastActivity = time;
        std::atomic_ref(gEmbKvoInst->session.socket).store(ends[0]);
    }

    const SyslogCapture capture;
    int ends[2] = {-1, -1};
};

TEST_F(OpenSocket, is_closed_if_it_was_idle_for_one_second)
{
    const Agent agent;
    giveSocket(1000);
    ASSERT_TRUE(eventually([&] { return std::ranges::count(capture.texts(), kConnect + "timeout") > 0; }));
    char byte = 0;
    EXPECT_EQ(read(ends[1], &byte, 1), 0);
    close(ends[1]);
}

TEST_F(OpenSocket, is_closed_before_the_connect_if_it_was_idle_for_20_milliseconds)
{
    KvoTimeval firstTry{};
    const WithSystemCalls calls{{.connect = [&](int, const sockaddr *address, socklen_t) {
        if (address->sa_family == AF_INET && firstTry.tv_sec == 0) {
            timeval_get(&firstTry);
        }
        return support::kPassThrough;
    }}};
    const Agent agent;
    awaitPause();
    // The next try follows at least one second after the first.
    giveSocketActiveAt({.tv_sec = firstTry.tv_sec + 1, .tv_usec = firstTry.tv_usec - 20'000});
    ASSERT_TRUE(eventually([&] { return std::ranges::count(capture.texts(), kNextTry) >= 2; }));
    const auto texts = threadTexts(capture);
    const auto second = std::ranges::find(texts.begin() + 2, texts.end(), kThread + "connect to 127.0.0.1");
    ASSERT_GE(texts.end() - second, 5);
    EXPECT_THAT(std::vector(second, second + 5),
                ElementsAre(kThread + "connect to 127.0.0.1", kConnect + "timeout",
                            "KVO_HWS DLL - hmi_close_x - socket " + std::to_string(ends[0]),
                            kConnect + "connect() returns " + std::to_string(ECONNREFUSED), kNextTry));
    close(ends[1]);
}

/// An agent starts without a socket, even if the record contains one. Programs can write to the record.
TEST_F(OpenSocket, left_from_an_earlier_agent_is_closed_before_the_connect)
{
    RemoteService remote(kSession);
    KvoTimeval later;
    timeval_get(&later);
    later.tv_sec += 60;  // a recent timestamp
    giveSocketActiveAt(later);
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    char byte = 0;
    EXPECT_EQ(recv(ends[1], &byte, 1, MSG_DONTWAIT), 0);
    close(ends[1]);
}

TEST_F(OpenSocket, is_kept_after_recent_activity)
{
    const Agent agent;
    giveSocket(-60000);
    ASSERT_EQ(write(ends[1], "ping\n", 5), 5);
    char answer[7] = {};
    ASSERT_EQ(recv(ends[1], answer, 6, MSG_WAITALL), 6);
    EXPECT_STREQ(answer, "pong\r\n");
    EXPECT_EQ(std::ranges::count(threadTexts(capture), kThread + "Emb-KVO connected with 127.0.0.1"), 0);
    close(ends[1]);
}

}  // namespace
