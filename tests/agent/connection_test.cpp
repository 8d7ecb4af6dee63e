// The connection thread: where it connects to and when, how it serves, and what it logs on the way.
#include <kvo_hws/agent.h>
#include <kvo_hws/config.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/runtime.h>

#include "agent/agent_fixture.h"
#include "support/no_standard_input.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

/// The platform's adapter, in the place of its library's: which one is asked for, and what it answers.
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

using agent_test::Agent;
using agent_test::kSession;
using agent_test::parameters;
using agent_test::serves;
using support::eventually;
using support::MessagesOn;
using support::RemoteService;
using support::ScriptedService;
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

using Clock = std::chrono::steady_clock;

const std::string kThread = "KVO_HWS DLL - embHwsClientThread - ";
const std::string kConnect = "KVO_HWS DLL - try_hws_connect - ";
const std::string kNextTry = kThread + "Emb-KVO next try to connect to 127.0.0.1 in 1 second";

int32_t sessionSocket() { return std::atomic_ref(gEmbKvoInst->session.socket).load(); }

/// The messages of the connection thread among all that was logged.
std::vector<std::string> threadTexts(const SyslogCapture &capture)
{
    std::vector<std::string> texts;
    for (const std::string &text : capture.texts()) {
        if (text.starts_with(kThread) || text.starts_with(kConnect) || text.find("hmi_close_x") != std::string::npos) {
            texts.push_back(text);
        }
    }
    return texts;
}

class Connection : public testing::Test {
protected:
    void SetUp() override { setenv("KVO_PLATFORM_INTERFACE", "lo", 1); }

    const MessagesOn messages;
    const ScriptedService service{{serves()}};
};

TEST_F(Connection, is_logged_from_its_beginning_to_its_end)
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

TEST_F(Connection, is_named_by_the_configured_interface)
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

/// The platform has one adapter cache: an adapter that was selected is read before another is selected.
TEST_F(Connection, is_named_by_its_own_interface_while_a_usb_lock_is_set)
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

TEST_F(Connection, may_be_descriptor_0)
{
    RemoteService remote(kSession);
    const SyslogCapture capture;
    {
        const support::NoStandardInput noStandardInput;
        const Agent agent;
        ASSERT_TRUE(remote.accept());
        EXPECT_EQ(remote.ask("ping"), "pong");
        EXPECT_EQ(sessionSocket(), 0);
        // The reply is out a moment before events may be.
        EXPECT_TRUE(eventually([&] { return KVO_HWS_sendEmbHwsEvent(agent.instance, "key") == 1; }));
        EXPECT_EQ(remote.line(), "I01:key\r\n");
    }
    EXPECT_THAT(threadTexts(capture), Contains("KVO_HWS DLL - hmi_close_x - socket 0"));
    EXPECT_EQ(sessionSocket(), -1);
}

TEST_F(Connection, is_waited_on_for_a_second_at_a_time)
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
            return support::kPass;
        }}};
        ASSERT_EQ(remote.ask("ping"), "pong");
        ASSERT_EQ(remote.ask("ping"), "pong");
    }
    const std::lock_guard guard(lock);
    EXPECT_THAT(waits, testing::Each(1000));
    EXPECT_FALSE(waits.empty());
}

TEST_F(Connection, goes_to_the_port_of_its_session)
{
    RemoteService remote(9);
    const Agent agent(parameters("remoteSession=19\n"));
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(gEmbKvoInst->session.display, 9U);
}

TEST_F(Connection, of_session_13_goes_to_port_5853)
{
    RemoteService remote(3);
    const Agent agent("focusKvoIp=10.0.0.5\nremoteKvoHwsIp=127.0.0.1\nremoteSession=13\n");
    EXPECT_TRUE(remote.accept());
}

TEST_F(Connection, waits_for_the_remote_side_to_speak)
{
    RemoteService remote(kSession);
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.bytes(300ms), "") << "no announcement";
}

TEST_F(Connection, notes_when_it_was_made)
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

TEST_F(Connection, sets_no_socket_option_when_it_is_made)
{
    RemoteService remote(kSession);
    std::atomic<int> options{0};
    const WithSystemCalls calls{{.setsockopt = [&, own = std::this_thread::get_id()](int, int level, int) {
        options += level == IPPROTO_TCP && std::this_thread::get_id() != own ? 1 : 0;
        return support::kPass;
    }}};
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_TRUE(eventually([] { return sessionSocket() >= 0; }));
    EXPECT_EQ(options, 0);
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(options, 3) << "the first line's no delay, and the corking";
}

TEST_F(Connection, is_tried_every_second_while_nobody_listens)
{
    std::mutex lock;
    std::vector<Clock::time_point> tries;
    const WithSystemCalls calls{{.connect = [&](int, const sockaddr *address, socklen_t) {
        if (address->sa_family == AF_INET) {
            const std::lock_guard guard(lock);
            tries.push_back(Clock::now());
        }
        return support::kPass;
    }}};
    const SyslogCapture capture;
    const Agent agent;
    ASSERT_TRUE(eventually([&] {
        const std::lock_guard guard(lock);
        return tries.size() >= 4;
    }));
    for (std::size_t next = 1; next < 4; ++next) {
        EXPECT_THAT(tries[next] - tries[next - 1], AllOf(Ge(1s), Lt(2s)));
    }
    auto texts = threadTexts(capture);
    texts.resize(7);
    const std::string connecting = kThread + "connect to 127.0.0.1";
    const std::string refused = kConnect + "connect() returns " + std::to_string(ECONNREFUSED);
    EXPECT_THAT(std::vector(texts.begin() + 1, texts.end()),
                ElementsAre(connecting, refused, kNextTry, connecting, refused, kNextTry));
}

TEST_F(Connection, is_tried_again_where_there_is_no_socket)
{
    RemoteService remote(kSession);
    std::atomic<int> rounds{0};
    const WithSystemCalls calls{{.socket = [&](int domain) {
        if (domain == AF_INET && rounds++ == 0) {
            errno = EMFILE;
            return -1;
        }
        return support::kPass;
    }}};
    const SyslogCapture capture;
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    const auto texts = threadTexts(capture);
    EXPECT_THAT(texts, Contains(kConnect + "socket() returns " + std::to_string(EMFILE)));
    EXPECT_THAT(texts, Contains(kNextTry));
}

/// Puts a connected socket in @p fd's place, of which the error is told only to whoever asks for it.
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
            return support::kPass;
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
            return support::kPass;
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

TEST_F(Connection, goes_on_after_a_signal)
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
        return support::kPass;
    }}};
    remote.send("ping\nping\n");
    EXPECT_EQ(remote.line(), "pong\r\n");
    EXPECT_EQ(remote.line(), "pong\r\n");
    EXPECT_GE(interrupted, 3);
    EXPECT_THAT(capture.texts(), Not(Contains(StartsWith(kThread + "Emb-KVO select returns"))));
}

TEST_F(Connection, is_not_left_to_a_connect_that_a_signal_interrupts)
{
    std::atomic<int> rounds{0};
    RemoteService remote(kSession);
    const WithSystemCalls calls{{.connect = [&](int fd, const sockaddr *address, socklen_t length) {
        if (address->sa_family != AF_INET || rounds++ > 0) {
            return support::kPass;
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
        return support::kPass;
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
