// One connection of the USB event server: the records that callbacks receive, how a line is read, and how its answer is sent.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/own_thread.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"
#include "usbevents/connection.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

using support::EventRecorder;
using support::MessagesOn;
using support::RecordedEvent;
using support::SyslogCapture;
using testing::ElementsAre;
using usbevents_test::answerTo;
using usbevents_test::Connection;
using usbevents_test::kNew;
using usbevents_test::kRefused;
using usbevents_test::kRemoved;
using usbevents_test::kState;

using Clock = std::chrono::steady_clock;

// ---- Records ----

class UsbConnection : public testing::Test {
protected:
    void TearDown() override { SetFunction_SendUSBEvent_NULL(); }
};

TEST_F(UsbConnection, fills_the_newer_callbacks_records)
{
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    for (const std::string &text : {kNew, kRemoved, kState, kRefused}) {
        EXPECT_EQ(answerTo(text), "ok\n");
    }
    const auto events = recorder.events();
    ASSERT_EQ(events.size(), 4U);
    UsbDeviceInfo device{};
    std::memcpy(&device, events[0].record.data(), events[0].record.size());
    EXPECT_STREQ(device.text7, "Cruzer");
    EXPECT_EQ(device.number2, 2U);
    EXPECT_EQ(device.flagBits, 1 | 2 << 1 | 1 << 3);
    UsbRemoveInfo removed{};
    ASSERT_EQ(events[1].record.size(), sizeof removed);
    std::memcpy(&removed, events[1].record.data(), sizeof removed);
    EXPECT_STREQ(removed.ident3, "1-1.4");
    UsbStateInfo state{};
    ASSERT_EQ(events[2].record.size(), sizeof state);
    std::memcpy(&state, events[2].record.data(), sizeof state);
    EXPECT_EQ(state.state, 7U);
    UsbDeviceInfo refused{};
    std::memcpy(&refused, events[3].record.data(), events[3].record.size());
    EXPECT_STREQ(refused.text8, "not here");
    EXPECT_EQ(refused.number3, 3);
}

TEST_F(UsbConnection, fills_the_older_callbacks_264_bytes)
{
    const EventRecorder recorder;
    sendUSBEvent = EventRecorder::older;
    EXPECT_EQ(answerTo(kNew), "ok\n");
    EXPECT_EQ(answerTo(kRemoved), "ok\n");
    const auto events = recorder.events();
    ASSERT_EQ(events.size(), 2U);
    UsbDeviceV1 device{};
    ASSERT_EQ(events[0].record.size(), 264U);
    std::memcpy(&device, events[0].record.data(), sizeof device);
    EXPECT_STREQ(device.text5, "8.02");
    EXPECT_EQ(device.id1, 1);
    EXPECT_EQ(device.bytes[0], 2) << "the low byte of id2";
    EXPECT_EQ(events[1].record.substr(sizeof(UsbRemoveInfo)), std::string(264 - sizeof(UsbRemoveInfo), '\0'));
}

TEST_F(UsbConnection, clears_each_record_first)
{
    const EventRecorder recorder;
    const std::string longText = "newUSBdevice*" + std::string(15, 'x') + "*" + std::string(31, 'x') + "*" +
                                 std::string(31, 'x') + "*" + std::string(20, 'x') + "*" + std::string(9, 'x') + "*" +
                                 std::string(39, 'x') + "*" + std::string(39, 'x') +
                                 "*FFFFFFFF*FFFFFFFF*FFFFFFFF*FFFF*FFFF*00 *";
    const std::string shortText = "newUSBdevice*a*b*c*d*e*f*g*0*0*0*0*0*00 *";
    const std::string shortRemoval = "removeUSBdevice*a*b*c*";
    for (const bool newer : {true, false}) {
        sendUSBEvent2 = newer ? EventRecorder::newer : nullptr;
        sendUSBEvent = newer ? nullptr : EventRecorder::older;
        for (const std::string &text : {longText, shortText, shortRemoval}) {
            EXPECT_EQ(answerTo(text), "ok\n");
        }
    }
    for (const RecordedEvent &event : recorder.events()) {
        if (event.record[0] == 'a') {
            EXPECT_EQ(event.record.find_first_not_of(std::string("abcdefg\0", 8)), std::string::npos) << event.code;
        }
    }
    EXPECT_EQ(recorder.events().size(), 6U);
}

// ---- Reading a line and sending an answer ----

TEST_F(UsbConnection, accepts_a_carriage_return_before_the_line_feed)
{
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    EXPECT_EQ(answerTo(kRemoved + "\r"), "ok\n");
}

TEST_F(UsbConnection, answers_one_text_per_connection)
{
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    const Connection connection;
    connection.send(kRemoved + "\n" + kRemoved + "\n");
    EXPECT_TRUE(connection.readable(5s));
    EXPECT_EQ(recorder.events().size(), 1U);
}

TEST_F(UsbConnection, closes_100_ms_after_the_answer)
{
    const Connection connection;
    connection.send("hello\n");
    ASSERT_TRUE(connection.readable(5s));
    const auto answered = Clock::now();
    EXPECT_EQ(connection.answer(), "unknown request\n");
    EXPECT_GE(Clock::now() - answered, 90ms);
    EXPECT_LT(Clock::now() - answered, 2s);
}

TEST_F(UsbConnection, an_end_before_the_line_end_fails)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ASSERT_EQ(write(ends[0], "half", 4), 4);
    shutdown(ends[0], SHUT_WR);
    ASSERT_EQ(kvo_hws_CreateThread(ConInstThread, reinterpret_cast<void *>(intptr_t{ends[1]})), 1);
    char answer[16] = {};
    EXPECT_EQ(read(ends[0], answer, sizeof answer), 7);
    EXPECT_STREQ(answer, "failed\n");
    EXPECT_THAT(capture.texts(),
                ElementsAre("USB server - received text error", "USB server - sending text to client 'failed'"));
    EXPECT_EQ(read(ends[0], answer, 1), 0);
    close(ends[0]);
}

TEST_F(UsbConnection, a_receive_error_fails)
{
    const support::WithSystemCalls calls({.recv = [](int, void *, std::size_t, int) {
        errno = ECONNRESET;
        return ssize_t{-1};
    }});
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(answerTo("hello"), "failed\n");
    EXPECT_EQ(capture.texts().front(), "USB server - received text error");
}

TEST_F(UsbConnection, runs_detached)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    close(ends[0]);
    EXPECT_EQ(support::onOwnThread([end = ends[1]] {
                  ConInstThread(reinterpret_cast<void *>(intptr_t{end}));
                  return kvo_hws_detach_thread();
              }),
              -1);
}

TEST_F(UsbConnection, a_line_of_1024_bytes_without_an_end_fails)
{
    const Connection connection;
    connection.send(std::string(1024, 'x'));
    EXPECT_EQ(connection.answer(), "failed\n");
}

TEST_F(UsbConnection, silence_fails_after_4_s)
{
    const Connection silent;
    const Connection half;
    half.send("newUSBdevice*10.0.0.5*");
    const auto start = Clock::now();
    EXPECT_EQ(silent.answer(), "failed\n");
    EXPECT_EQ(half.answer(), "failed\n");
    EXPECT_GE(Clock::now() - start, 3900ms);
    EXPECT_LT(Clock::now() - start, 8s);
}

TEST_F(UsbConnection, a_client_that_does_not_wait_for_the_answer_causes_no_failure)
{
    const EventRecorder recorder([](const RecordedEvent &) {
        std::this_thread::sleep_for(50ms);
        return 0;
    });
    sendUSBEvent2 = EventRecorder::newer;
    {
        const Connection connection;
        connection.send(kRemoved + "\n");
        ASSERT_TRUE(recorder.waitFor(1));
    }
    std::this_thread::sleep_for(300ms);  // meanwhile the answer goes to a closed socket, which must not raise SIGPIPE
    EXPECT_EQ(answerTo(kRemoved), "ok\n");
}

TEST_F(UsbConnection, messages_are_cut_to_255_characters_and_not_used_as_formats)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    const std::string text = "%s%n%d" + std::string(600, 'x');
    EXPECT_EQ(answerTo(text), "unknown request\n");
    EXPECT_THAT(capture.texts().front(), ("USB server - received text from client '" + text).substr(0, 255));
}

}  // namespace
