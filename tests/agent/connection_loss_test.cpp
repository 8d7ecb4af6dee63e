// The connection thread where a connection fails, is lost, or a socket is left open.
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

/// Puts a connected socket in @p fd's place, whose error is reported only to a caller that asks for it.
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

TEST_F(Connection, that_fails_only_after_a_while_is_tried_again)
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

TEST_F(Connection, that_is_lost_is_made_again_after_5_seconds)
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
    EXPECT_EQ(remote.line(), "bad request\r\n") << "a new connection begins with an empty line";
    EXPECT_EQ(remote.ask("get-kvoindex"), "kvoindex=7");
    EXPECT_EQ(remote.ask("get-disable-numlock"), "disable-numlock=1") << "kept as long as the agent lives";
}

TEST_F(Connection, that_is_reset_is_made_again)
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

TEST_F(Connection, that_sends_an_endless_line_is_closed_and_made_again)
{
    RemoteService remote(kSession);
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    remote.send(std::string(256, 'x'));
    EXPECT_EQ(remote.line(), "(closed)");
    EXPECT_TRUE(remote.accept());
}

TEST_F(Connection, that_cannot_be_waited_for_is_closed_and_made_again)
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

TEST_F(Connection, is_not_left_to_a_connect_that_a_signal_interrupts)
{
    std::atomic<int> rounds{0};
    RemoteService remote(kSession);
    const WithSystemCalls calls{{.connect = [&](int fd, const sockaddr *address, socklen_t length) {
        if (address->sa_family != AF_INET || rounds++ > 0) {
            return support::kPassThrough;
        }
        // It goes on in the background, as the system does it.
        EXPECT_EQ(connect(fd, address, length), -1);
        EXPECT_EQ(errno, EINPROGRESS);
        errno = EINTR;
        return -1;
    }}};
    const Agent agent;
    ASSERT_TRUE(remote.accept(900ms)) << "without another try";
    EXPECT_EQ(remote.ask("ping"), "pong");
}

/// An agent that has failed to connect once and sleeps, with a socket that somebody else has given it.
class OpenSocket : public Connection {
protected:
    /// @param age  milliseconds since something was heard on it
    void give(int32_t age)
    {
        KvoTimeval heard;
        timeval_get(&heard);
        heard.tv_sec -= age / 1000;
        awaitPause();
        giveHeardAt(heard);
    }
    void awaitPause() const
    {
        ASSERT_TRUE(eventually([&] { return std::ranges::count(capture.texts(), kNextTry) > 0; }));
    }
    void giveHeardAt(KvoTimeval time)
    {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        gEmbKvoInst->session.lastActivity = time;
        std::atomic_ref(gEmbKvoInst->session.socket).store(ends[0]);
    }

    const SyslogCapture capture;
    int ends[2] = {-1, -1};
};

TEST_F(OpenSocket, is_closed_when_nothing_was_heard_for_6_milliseconds)
{
    const Agent agent;
    give(1000);
    ASSERT_TRUE(eventually([&] { return std::ranges::count(capture.texts(), kConnect + "timeout") > 0; }));
    char byte = 0;
    EXPECT_EQ(read(ends[1], &byte, 1), 0);
    close(ends[1]);
}

TEST_F(OpenSocket, is_closed_before_the_connect_when_it_is_a_little_older)
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
    // The next try comes a second after the first at the earliest.
    giveHeardAt({.tv_sec = firstTry.tv_sec + 1, .tv_usec = firstTry.tv_usec - 20'000});
    ASSERT_TRUE(eventually([&] { return std::ranges::count(capture.texts(), kNextTry) == 2; }));
    const auto texts = threadTexts(capture);
    const auto second = std::ranges::find(texts.begin() + 2, texts.end(), kThread + "connect to 127.0.0.1");
    ASSERT_GE(texts.end() - second, 5);
    EXPECT_THAT(std::vector(second, second + 5),
                ElementsAre(kThread + "connect to 127.0.0.1", kConnect + "timeout",
                            "KVO_HWS DLL - hmi_close_x - socket " + std::to_string(ends[0]),
                            kConnect + "connect() returns " + std::to_string(ECONNREFUSED), kNextTry));
    close(ends[1]);
}

/// An agent that starts has no socket, whatever was left in the record that programs can write to.
TEST_F(OpenSocket, of_an_earlier_time_is_closed_before_the_agent_connects)
{
    RemoteService remote(kSession);
    KvoTimeval later;
    timeval_get(&later);
    later.tv_sec += 60;  // fresh, as far as its age tells
    giveHeardAt(later);
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    char byte = 0;
    EXPECT_EQ(recv(ends[1], &byte, 1, MSG_DONTWAIT), 0);
    close(ends[1]);
}

TEST_F(OpenSocket, is_kept_when_something_was)
{
    const Agent agent;
    give(-60000);
    ASSERT_EQ(write(ends[1], "ping\n", 5), 5);
    char answer[7] = {};
    ASSERT_EQ(recv(ends[1], answer, 6, MSG_WAITALL), 6);
    EXPECT_STREQ(answer, "pong\r\n");
    EXPECT_EQ(std::ranges::count(threadTexts(capture), kThread + "Emb-KVO connected with 127.0.0.1"), 0);
    close(ends[1]);
}

}  // namespace
