// Writing replies and indications: their parts, their numbers, and that each line is sent complete and without interleaving.
#include <kvo_hws/agent.h>

#include "agent/own_session.h"
#include "support/remote_service.h"
#include "support/system_calls.h"

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

using agent_test::OwnSession;
using support::WithSystemCalls;
using testing::ElementsAre;

constexpr char *kEnd = nullptr;

class Lines : public testing::Test {
protected:
    void SetUp() override
    {
        protocolNegotiated = 1;
        // The count is per process: start from 1.
        do {
            hmiconn_indication(socket(), "\r\n", kEnd);
        } while (own.received() != "I99:\r\n");
    }

    int socket() const { return own.session.socket; }

    OwnSession own;
};

TEST_F(Lines, begin_with_their_tag_and_contain_all_parts)
{
    hmiconn_reply(socket(), nullptr, "one", " two", "", " %s%n", "\r\n", kEnd);
    EXPECT_EQ(own.received(), "one two %s%n\r\n");
    hmiconn_reply(socket(), "042:", "one\r\n", kEnd);
    EXPECT_EQ(own.received(), "042:one\r\n");
    hmiconn_reply(socket(), "042:", kEnd);
    EXPECT_EQ(own.received(), "042:") << "the first null ends the list";
}

TEST_F(Lines, number_indications_from_1_to_99_and_start_again)
{
    for (int number = 1; number <= 99; ++number) {
        EXPECT_EQ(hmiconn_indication(socket(), "e", "v\r\n", kEnd), 1);
        const std::string two = std::to_string(number);
        ASSERT_EQ(own.received(), "I" + std::string(2 - two.size(), '0') + two + ":ev\r\n");
    }
    EXPECT_EQ(hmiconn_indication(socket(), "the 100th\r\n", kEnd), 1);
    EXPECT_EQ(own.received(), "I01:the 100th\r\n");
}

TEST_F(Lines, with_indications_are_refused_before_the_first_known_request)
{
    protocolNegotiated = 0;
    EXPECT_EQ(hmiconn_indication(socket(), "event\r\n", kEnd), -1);
    EXPECT_EQ(own.received(), "");
    protocolNegotiated = 1;
    EXPECT_EQ(hmiconn_indication(socket(), "event\r\n", kEnd), 1);
    EXPECT_EQ(own.received(), "I01:event\r\n") << "a refused indication uses no number";
}

/// Both ends of a TCP connection over the loopback interface.
class TcpPair {
public:
    TcpPair()
    {
        const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), length), 0);
        EXPECT_EQ(listen(listener, 1), 0);
        EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length), 0);
        near = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(connect(near, reinterpret_cast<const sockaddr *>(&address), length), 0);
        far = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        close(listener);
    }
    TcpPair(const TcpPair &) = delete;
    TcpPair &operator=(const TcpPair &) = delete;
    ~TcpPair()
    {
        close(near);
        close(far);
    }

    [[nodiscard]] bool has(int option) const
    {
        int value = 0;
        socklen_t length = sizeof value;
        return getsockopt(near, IPPROTO_TCP, option, &value, &length) == 0 && value != 0;
    }

    int near = -1;
    int far = -1;
};

TEST_F(Lines, are_corked_while_written_and_sent_at_once)
{
    const TcpPair pair;
    std::vector<std::string> parts;
    const auto write = [&](const auto &line) {
        const WithSystemCalls seen{{.send = [&](int, const void *bytes, std::size_t length, int) {
            EXPECT_TRUE(pair.has(TCP_CORK)) << "for each part";
            parts.emplace_back(static_cast<const char *>(bytes), length);
            return ssize_t{support::kPassThrough};
        }}};
        line();
        EXPECT_FALSE(pair.has(TCP_CORK)) << "after the whole line";
        EXPECT_TRUE(pair.has(TCP_NODELAY)) << "uncorking alone would delay it until an acknowledgement";
    };
    write([&] { hmiconn_reply(pair.near, "042:", "one", "\r\n", kEnd); });
    write([&] { hmiconn_indication(pair.near, "two", kEnd); });
    gEmbKvoInst->session.socket = pair.near;
    write([&] { EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, "three"), 1); });
    gEmbKvoInst->session.socket = -1;
    EXPECT_THAT(parts, ElementsAre("042:", "one", "\r\n", "I01:", "two", "I02:", "three", "\r\n"));
}

TEST_F(Lines, are_not_written_while_another_line_is_written)
{
    const std::vector<std::function<void()>> writers = {
        [&] { hmiconn_reply(socket(), nullptr, "one\r\n", kEnd); }, [&] { hmiconn_indication(socket(), "one\r\n", kEnd); },
        [&] { KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, "one"); }, [&] { hmi_close_x(&own.session); }};
    std::string received;
    gEmbKvoInst->session.socket = socket();
    for (const auto &write : writers) {
        ASSERT_EQ(pthread_mutex_lock(&sGCriticalSectionEventSocket), 0);
        std::atomic<bool> written{false};
        std::thread writer([&] {
            write();
            written = true;
        });
        std::this_thread::sleep_for(50ms);
        EXPECT_FALSE(written);
        EXPECT_EQ(own.received(), "");
        EXPECT_GE(socket(), 0);
        pthread_mutex_unlock(&sGCriticalSectionEventSocket);
        writer.join();
        received += own.received();
    }
    gEmbKvoInst->session.socket = -1;
    EXPECT_EQ(received, "one\r\nI01:one\r\nI02:one\r\n");
    EXPECT_EQ(socket(), -1);
}

TEST_F(Lines, of_waiting_events_are_dropped_after_a_clean_up)
{
    gEmbKvoInst->session.socket = socket();
    ASSERT_EQ(pthread_mutex_lock(&sGCriticalSectionEventSocket), 0);
    int result = 0;
    std::thread pusher([&] { result = KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, "late"); });
    std::this_thread::sleep_for(50ms);
    std::atomic_ref(protocolNegotiated).store(0);
    pthread_mutex_unlock(&sGCriticalSectionEventSocket);
    pusher.join();
    gEmbKvoInst->session.socket = -1;
    EXPECT_EQ(result, -1);
    EXPECT_EQ(own.received(), "");
}

TEST_F(Lines, raise_no_signal_when_the_remote_side_is_gone)
{
    own.closeRemote();
    hmiconn_reply(socket(), nullptr, "one\r\n", kEnd);
    EXPECT_EQ(hmiconn_indication(socket(), "two\r\n", kEnd), 1) << "a broken connection shows on the next read";
}

TEST_F(Lines, are_completed_after_a_signal_and_a_short_send)
{
    std::atomic<int> round{0};
    const WithSystemCalls calls{{.send = [&](int fd, const void *bytes, std::size_t, int flags) -> ssize_t {
        if (++round % 2 == 1) {
            errno = EINTR;
            return -1;
        }
        return sendto(fd, bytes, 1, flags, nullptr, 0);
    }}};
    hmiconn_reply(socket(), "042:", "one\r\n", kEnd);
    EXPECT_EQ(own.received(), "042:one\r\n");
}

TEST_F(Lines, that_cannot_be_sent_completely_end_the_connection)
{
    std::atomic<int> round{0};
    {
        const WithSystemCalls calls{{.send = [&](int, const void *, std::size_t, int) -> ssize_t {
            if (++round == 2) {
                errno = ENOBUFS;
                return -1;
            }
            return support::kPassThrough;
        }}};
        hmiconn_reply(socket(), "042:", "one", "\r\n", kEnd);
    }
    EXPECT_EQ(own.received(), "042:") << "nothing after the missing part";
    char byte = 0;
    EXPECT_EQ(recv(socket(), &byte, 1, MSG_DONTWAIT), 0) << "the reader finds it closed";
}

}  // namespace
