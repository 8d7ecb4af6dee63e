// Writing replies and indications: their parts, their numbers, and that each leaves whole and in one piece.
#include <kvo_hws/agent.h>

#include "agent/own_session.h"
#include "support/remote_service.h"
#include "support/system_calls.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using agent_test::OwnSession;
using support::WithSystemCalls;
using testing::ElementsAre;

constexpr char *kEnd = nullptr;

class Lines : public testing::Test {
protected:
    void SetUp() override { protocolNegotiated = 1; }

    int socket() const { return own.session.socket; }

    OwnSession own;
};

TEST_F(Lines, are_made_of_their_parts)
{
    hmiconn_reply(socket(), nullptr, "one", " two", "", " %s%n", "\r\n", kEnd);
    EXPECT_EQ(own.heard(), "one two %s%n\r\n");
    hmiconn_reply(socket(), "042:", "one\r\n", kEnd);
    EXPECT_EQ(own.heard(), "042:one\r\n");
    hmiconn_reply(socket(), "042:", kEnd);
    EXPECT_EQ(own.heard(), "042:") << "the first null ends the list";
}

TEST_F(Lines, count_indications_from_1_to_99_and_round_again)
{
    for (int number = 1; number <= 99; ++number) {
        EXPECT_EQ(hmiconn_indication(socket(), "e", "v\r\n", kEnd), 1);
        const std::string two = std::to_string(number);
        ASSERT_EQ(own.heard(), "I" + std::string(2 - two.size(), '0') + two + ":ev\r\n");
    }
    EXPECT_EQ(hmiconn_indication(socket(), "the 100th\r\n", kEnd), 1);
    EXPECT_EQ(own.heard(), "I01:the 100th\r\n");
}

TEST_F(Lines, indicate_nothing_before_the_remote_side_has_spoken)
{
    protocolNegotiated = 0;
    EXPECT_EQ(hmiconn_indication(socket(), "event\r\n", kEnd), -1);
    EXPECT_EQ(own.heard(), "");
    protocolNegotiated = 1;
    EXPECT_EQ(hmiconn_indication(socket(), "event\r\n", kEnd), 1);
    EXPECT_EQ(own.heard(), "I01:event\r\n") << "one that is refused uses no number";
}

TEST_F(Lines, are_corked_while_they_are_written)
{
    std::vector<std::string> calls;
    {
        const WithSystemCalls seen{
            {.send =
                 [&](int, const void *bytes, std::size_t length, int) {
                     calls.emplace_back(static_cast<const char *>(bytes), length);
                     return ssize_t{support::kPass};
                 },
             .setsockopt =
                 [&](int, int level, int option) {
                     EXPECT_EQ(level, IPPROTO_TCP);
                     calls.emplace_back(option == TCP_CORK ? "cork" : option == TCP_NODELAY ? "no delay" : "?");
                     return support::kPass;
                 }}};
        hmiconn_reply(socket(), "042:", "one", "\r\n", kEnd);
        hmiconn_indication(socket(), "two", kEnd);
    }
    EXPECT_THAT(calls, ElementsAre("no delay", "cork", "042:", "one", "\r\n", "cork", "cork", "I01:", "two", "cork"));
}

TEST_F(Lines, are_not_written_while_another_is)
{
    ASSERT_EQ(pthread_mutex_lock(&sGCriticalSectionEventSocket), 0);
    std::atomic<bool> written{false};
    std::thread writer([&] {
        hmiconn_reply(socket(), nullptr, "one\r\n", kEnd);
        written = true;
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(written);
    EXPECT_EQ(own.heard(), "");
    pthread_mutex_unlock(&sGCriticalSectionEventSocket);
    writer.join();
    EXPECT_EQ(own.heard(), "one\r\n");
}

TEST_F(Lines, raise_no_signal_where_the_remote_side_has_gone)
{
    own.closeRemote();
    hmiconn_reply(socket(), nullptr, "one\r\n", kEnd);
    EXPECT_EQ(hmiconn_indication(socket(), "two\r\n", kEnd), 1) << "a broken connection shows on the next read";
}

TEST_F(Lines, go_on_after_a_signal_and_a_short_send)
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
    EXPECT_EQ(own.heard(), "042:one\r\n");
}

TEST_F(Lines, that_can_not_be_sent_whole_end_the_connection)
{
    std::atomic<int> round{0};
    {
        const WithSystemCalls calls{{.send = [&](int, const void *, std::size_t, int) -> ssize_t {
            if (++round == 2) {
                errno = ENOBUFS;
                return -1;
            }
            return support::kPass;
        }}};
        hmiconn_reply(socket(), "042:", "one", "\r\n", kEnd);
    }
    EXPECT_EQ(own.heard(), "042:") << "and nothing behind the part that is missing";
    char byte = 0;
    EXPECT_EQ(recv(socket(), &byte, 1, MSG_DONTWAIT), 0) << "the reader finds it closed";
}

}  // namespace
