// Reading request lines: where they end, how they are recognized, and what ends a session.
#include <kvo_hws/agent.h>
#include <kvo_hws/runtime.h>

#include "agent/own_session.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>

using namespace std::chrono_literals;

namespace {

using agent_test::OwnSession;
using support::LogLine;
using support::MessagesOn;
using support::SyslogCapture;
using support::WithSystemCalls;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kBad = "bad request\r\n";

class Requests : public testing::Test {
protected:
    void SetUp() override { protocolNegotiated = 0; }

    OwnSession own;
};

TEST_F(Requests, are_recognized_in_any_case)
{
    EXPECT_EQ(own.answersTo("PING\r\n"), "pong\r\n");
    EXPECT_EQ(own.answersTo("pInG\r\n"), "pong\r\n");
    EXPECT_EQ(own.answersTo("SET-KVOINDEX=7\r\n"), "ok\r\n");
    EXPECT_EQ(own.answersTo("get-kvoindex\r\n"), "kvoindex=7\r\n");
}

TEST_F(Requests, are_the_same_in_every_locale)
{
    if (std::setlocale(LC_ALL, "tr_TR.UTF-8") == nullptr) {
        GTEST_SKIP() << "no Turkish locale (tr_TR.UTF-8) on this machine; its i has another capital letter";
    }
    EXPECT_EQ(own.answersTo("PING\r\n"), "pong\r\n");
    EXPECT_EQ(own.answersTo("p\xC4\xB1ng\r\n"), kBad);
    std::setlocale(LC_ALL, "C");
}

TEST_F(Requests, end_with_a_line_feed_after_an_optional_carriage_return)
{
    EXPECT_EQ(own.answersTo("ping\n"), "pong\r\n");
    EXPECT_EQ(own.answersTo("ping\r\n"), "pong\r\n");
    EXPECT_EQ(own.answersTo("ping\r\r\n"), kBad) << "only one carriage return belongs to the line end";
    EXPECT_EQ(own.answersTo("\n"), kBad);
    EXPECT_EQ(own.answersTo("\r\n"), kBad);
}

TEST_F(Requests, may_have_a_tag_of_three_digits_and_a_colon)
{
    EXPECT_EQ(own.answersTo("123:ping\n"), "123:pong\r\n");
    EXPECT_EQ(own.answersTo("000:nothing\n"), "000:" + kBad);
    EXPECT_EQ(own.answersTo("123:\n"), "123:" + kBad);
    EXPECT_EQ(own.answersTo("12:ping\n"), kBad) << "no tag";
    EXPECT_EQ(own.answersTo("1234:ping\n"), kBad);
    EXPECT_EQ(own.answersTo("12a:ping\n"), kBad);
    EXPECT_EQ(own.answersTo("123 ping\n"), kBad);
    EXPECT_EQ(own.answersTo("123:456:ping\n"), "123:" + kBad) << "one tag";
}

TEST_F(Requests, match_completely_if_the_keyword_takes_no_argument)
{
    EXPECT_EQ(own.answersTo("ping extra\n"), kBad);
    EXPECT_EQ(own.answersTo("pin\n"), kBad);
    EXPECT_EQ(own.answersTo(" ping\n"), kBad);
    EXPECT_EQ(own.answersTo("ping=\n"), kBad);
    EXPECT_EQ(own.answersTo("stop-viewer-preempt\n"), kBad) << "known, but there is no host";
    EXPECT_EQ(protocolNegotiated, 1U) << "set by the known request";
}

TEST_F(Requests, match_by_their_beginning_if_the_keyword_takes_an_argument)
{
    EXPECT_EQ(own.answersTo("set-backlight=5\n"), "failed: EMB-KVO backlight not supported\r\n");
    EXPECT_EQ(own.answersTo("set-backlight-brightness=5\n"), "failed: EMB-KVO backlight brightness not supported\r\n");
    EXPECT_EQ(own.answersTo("set-backlight-brightness-v2=5\n"), "failed: EMB-KVO backlight brightness V2 not supported\r\n");
    EXPECT_EQ(own.answersTo("set-backlight\n"), kBad);
}

TEST_F(Requests, negotiate_the_protocol_when_they_match)
{
    EXPECT_EQ(own.answersTo("pong\n"), kBad);
    EXPECT_EQ(protocolNegotiated, 0U);
    EXPECT_EQ(own.answersTo("ping\n"), "pong\r\n");
    EXPECT_EQ(protocolNegotiated, 1U);
    EXPECT_EQ(own.answersTo("pong\n"), kBad);
    EXPECT_EQ(protocolNegotiated, 1U) << "not reset";
}

TEST_F(Requests, may_arrive_in_pieces)
{
    EXPECT_EQ(own.answersTo("123:pi"), "");
    EXPECT_EQ(own.session.lineFill, 6U);
    EXPECT_EQ(own.answersTo("n"), "");
    EXPECT_EQ(own.answersTo("g\r"), "");
    EXPECT_EQ(own.answersTo("\nping"), "123:pong\r\n");
    EXPECT_EQ(own.session.lineFill, 4U);
    EXPECT_EQ(own.answersTo("\n"), "pong\r\n");
    EXPECT_EQ(own.session.lineFill, 0U);
}

TEST_F(Requests, that_arrive_together_are_answered_one_per_call)
{
    own.sends("001:ping\r\n002:nothing\n003:ping\r\n");
    hmiconn_process_one_request(&own.session);
    EXPECT_EQ(own.received(), "001:pong\r\n");
    hmiconn_process_one_request(&own.session);
    EXPECT_EQ(own.received(), "002:" + kBad);
    hmiconn_process_one_request(&own.session);
    EXPECT_EQ(own.received(), "003:pong\r\n");
}

TEST_F(Requests, leave_the_following_bytes_in_the_socket)
{
    own.sends("ping\nping");
    hmiconn_process_one_request(&own.session);
    std::array<char, 16> left{};
    EXPECT_EQ(recv(own.session.socket, left.data(), left.size(), MSG_DONTWAIT), 4);
    EXPECT_STREQ(left.data(), "ping");
}

TEST_F(Requests, fit_in_256_bytes_with_their_end)
{
    EXPECT_EQ(own.answersTo("set-channel-info=" + std::string(237, 'x') + "\r\n"), "ok\r\n");
    EXPECT_EQ(own.answersTo("set-channel-info=" + std::string(238, 'x') + "\n"), "ok\r\n");
    EXPECT_STREQ(hws_channel_info, std::string(238, 'x').c_str());
    EXPECT_EQ(own.answersTo("set-channel-info=\n"), "ok\r\n");
}

TEST_F(Requests, without_an_end_within_256_bytes_close_the_session)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    const int socket = own.session.socket;
    EXPECT_EQ(own.answersTo(std::string(256, 'x') + "\n"), "");
    EXPECT_EQ(own.session.socket, -1);
    EXPECT_THAT(capture.texts(), ElementsAre("KVO_HWS DLL - hmi_close_x - socket " + std::to_string(socket)));
}

TEST_F(Requests, in_pieces_without_an_end_close_the_session)
{
    EXPECT_EQ(own.answersTo(std::string(255, 'x')), "");
    EXPECT_EQ(own.session.lineFill, 255U);
    EXPECT_GE(own.session.socket, 0);
    EXPECT_EQ(own.answersTo("x"), "");
    EXPECT_EQ(own.session.socket, -1);
}

TEST_F(Requests, end_at_a_nul_byte_but_are_read_completely)
{
    EXPECT_EQ(own.answersTo(std::string("ping\0 and more\n", 15)), "pong\r\n");
    EXPECT_EQ(own.answersTo(std::string("\0\0\0\n", 4)), kBad);
    EXPECT_EQ(own.answersTo(std::string("12\0:ping\n", 9)), kBad);
    EXPECT_EQ(own.answersTo("ping\n"), "pong\r\n");
}

TEST_F(Requests, with_unknown_bytes_are_bad)
{
    EXPECT_EQ(own.answersTo("\xFF\xFE%s%n\x1B[2J\n"), kBad);
    EXPECT_EQ(own.answersTo("\xB0\xB1\xB2:ping\n"), kBad) << "no digits";
}

TEST_F(Requests, mark_the_session_as_alive)
{
    own.session.chunk = 7;
    own.session.lastActivity = {};
    KvoTimeval before{};
    timeval_get(&before);
    own.answersTo("pi");
    EXPECT_EQ(own.session.chunk, 0U);
    EXPECT_GE(timeval_diff(&own.session.lastActivity, &before), 0);
    EXPECT_LT(timeval_diff(&own.session.lastActivity, &before), 10000);
}

TEST_F(Requests, that_cannot_be_read_at_once_are_read_by_the_next_call)
{
    own.sends("ping\n");
    {
        std::atomic<int> calls{0};
        const WithSystemCalls taken{{.recv = [&](int, void *, std::size_t, int) {
            return ++calls == 2 ? ssize_t{0} : ssize_t{support::kPassThrough};
        }}};
        hmiconn_process_one_request(&own.session);
    }
    EXPECT_GE(own.session.socket, 0);
    EXPECT_EQ(own.session.lineFill, 0U);
    EXPECT_EQ(own.answers(), "pong\r\n");
}

TEST_F(Requests, that_are_read_partly_are_completed_later)
{
    own.sends("ping\n");
    {
        std::atomic<int> calls{0};
        const WithSystemCalls taken{{.recv = [&](int fd, void *bytes, std::size_t, int flags) {
            return ++calls == 2 ? recvfrom(fd, bytes, 2, flags, nullptr, nullptr) : ssize_t{support::kPassThrough};
        }}};
        hmiconn_process_one_request(&own.session);
    }
    EXPECT_EQ(own.session.lineFill, 2U);
    EXPECT_EQ(own.answers(), "pong\r\n");
}

TEST_F(Requests, in_pieces_do_not_keep_the_processor_busy)
{
    own.sends("p");
    const auto start = std::chrono::steady_clock::now();
    hmiconn_process_one_request(&own.session);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 10ms);
    EXPECT_LE(std::chrono::steady_clock::now() - start, 3s);
}

TEST_F(Requests, detect_that_the_remote_side_is_gone)
{
    own.closeRemote();
    const MessagesOn messages;
    const int socket = own.session.socket;
    const SyslogCapture capture;
    hmiconn_process_one_request(&own.session);
    EXPECT_EQ(own.session.socket, -1);
    ASSERT_EQ(capture.lines().size(), 2U);
    EXPECT_EQ(capture.lines()[0].priority, LOG_INFO);
    EXPECT_THAT(capture.texts(),
                ElementsAre("In hmiconn_process_one_request: HWS connection to 127.0.0.1:3: connection closed by peer",
                            "KVO_HWS DLL - hmi_close_x - socket " + std::to_string(socket)));
}

/// The errno of the last failed call is not related to an end of file.
TEST_F(Requests, detect_that_the_remote_side_is_gone_despite_an_old_errno)
{
    for (const int before : {EINTR, EAGAIN}) {
        OwnSession lost;
        lost.closeRemote();
        const SyslogCapture capture;
        errno = before;
        hmiconn_process_one_request(&lost.session);
        EXPECT_EQ(lost.session.socket, -1) << before;
        EXPECT_EQ(capture.lines().size(), 1U);
    }
}

TEST_F(Requests, log_a_lost_connection_even_with_debug_messages_off)
{
    own.closeRemote();
    const SyslogCapture capture;
    hmiconn_process_one_request(&own.session);
    EXPECT_THAT(capture.texts(), testing::Contains(testing::HasSubstr("connection closed by peer")));
}

TEST_F(Requests, log_the_error_of_the_system)
{
    const std::string reason = std::strerror(ECONNRESET);
    const WithSystemCalls calls{{.recv = [](int, void *, std::size_t, int) {
        errno = ECONNRESET;
        return ssize_t{-1};
    }}};
    const SyslogCapture capture;
    hmiconn_process_one_request(&own.session);
    EXPECT_EQ(own.session.socket, -1);
    EXPECT_THAT(capture.texts(), ElementsAre("In hmiconn_process_one_request: HWS connection to 127.0.0.1:3: " + reason));
}

TEST_F(Requests, that_have_not_arrived_do_not_block_or_close_the_session)
{
    const SyslogCapture capture;
    hmiconn_process_one_request(&own.session);
    EXPECT_GE(own.session.socket, 0) << "nothing had arrived, and the call did not block";
    for (const int error : {EINTR, EAGAIN}) {
        const WithSystemCalls calls{{.recv = [error](int, void *, std::size_t, int) {
            errno = error;
            return ssize_t{-1};
        }}};
        hmiconn_process_one_request(&own.session);
        EXPECT_GE(own.session.socket, 0);
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_EQ(own.answersTo("ping\n"), "pong\r\n");
}

TEST(Session, is_closed_once)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    OwnSession own;
    const int socket = own.session.socket;
    hmi_close_x(&own.session);
    EXPECT_EQ(own.session.socket, -1);
    hmi_close_x(&own.session);
    EXPECT_THAT(capture.texts(), ElementsAre("KVO_HWS DLL - hmi_close_x - socket " + std::to_string(socket),
                                             "KVO_HWS DLL - hmi_close_x - socket -1"));
}

}  // namespace
