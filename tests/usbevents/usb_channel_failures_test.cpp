// Messages to a USB event server that fail: what is logged, and after how long.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "support/alarms.h"
#include "support/no_descriptors.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "usbevents/usb_channel_fixture.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <gmock/gmock.h>
#include <string>
#include <syslog.h>

using namespace std::chrono_literals;

namespace {

using support::kUsbSocket;
using support::LogLine;
using support::NoDescriptors;
using support::onOwnThread;
using support::ScriptedService;
using support::SyslogCapture;
using testing::AllOf;
using testing::AnyOf;
using testing::ElementsAre;
using testing::Ge;
using testing::Lt;
using testing::StartsWith;
using usbevents_test::hex;
using usbevents_test::info;
using usbevents_test::sendCommand;
using usbevents_test::sendUsbMessage;
using usbevents_test::Timed;
using usbevents_test::timed;
using usbevents_test::UsbChannel;

TEST_F(UsbChannel, a_lost_answer_does_not_fail_a_delivery)
{
    const ScriptedService server({support::closesAfterRequest()}, kUsbSocket);
    const SyslogCapture capture;
    const Timed sent = sendCommand("suicide");
    EXPECT_EQ(sent.result, 1);
    EXPECT_EQ(capture.lines().back(), info("reply from DLL \"\" [thread 0x" + hex(sent.thread) + "]"));
}

TEST_F(UsbChannel, a_missing_server_is_logged_as_an_error_except_for_suicide)
{
    const SyslogCapture capture;
    const Timed command = sendCommand("other");
    const Timed suicide = sendCommand("suicide");
    const Timed message = sendUsbMessage("message");
    const Timed spelt = sendUsbMessage("suicide");
    for (const Timed &sent : {command, suicide, message, spelt}) {
        EXPECT_EQ(sent.result, 3);
        // Five attempts with 10 ms after each, including the last.
        EXPECT_THAT(sent.taken, AllOf(Ge(50ms), Lt(3s)));
    }
    const std::string end = "thRet=3 errno=2 (No such file or directory)";
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 8U);
    EXPECT_EQ(
        lines[1],
        (LogLine{"", LOG_ERR, "FuncSendCommand2DLL: connect error (--> DLL) [thread 0x" + hex(command.thread) + "] " + end}));
    EXPECT_EQ(lines[3],
              info("FuncSendCommand2DLL: can not connect to running DLL (command \"suicide\") - probably no other server "
                   "running [thread 0x" +
                   hex(suicide.thread) + "] " + end));
    EXPECT_EQ(lines[5],
              (LogLine{"", LOG_ERR, "SendUsbMsg2DLL: [" + hex(message.thread) + "] " + end + " 'connect error (--> DLL)'"}));
    EXPECT_EQ(lines[7], info("SendUsbMsg2DLL: [" + hex(spelt.thread) + "] " + end +
                             " 'can not connect to running DLL (command 'suicide') - probably no other server running'"));
}

TEST_F(UsbChannel, a_write_error_after_a_repeated_connect_is_logged_as_info_for_suicide)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const auto sendOnce = [](const std::string &command) {
        const support::WithSystemCalls calls({.connect =
                                                  [count = 0](int, const sockaddr *, socklen_t) mutable {
                                                      errno = ECONNREFUSED;
                                                      return count++ == 0 ? -1 : support::kPassThrough;
                                                  },
                                              .send =
                                                  [](int, const void *, std::size_t, int) {
                                                      errno = EPIPE;
                                                      return ssize_t{-1};
                                                  }});
        return sendCommand(command);
    };
    for (const auto &[command, priority] : {std::pair{"suicide", LOG_INFO}, std::pair{"other", LOG_ERR}}) {
        const SyslogCapture capture;
        const Timed sent = sendOnce(command);
        EXPECT_EQ(sent.result, 4);
        EXPECT_EQ(capture.lines().back(), (LogLine{"", priority,
                                                   "FuncSendCommand2DLL: write error (--> DLL) [thread 0x" + hex(sent.thread) +
                                                       "] thRet=4 errno=32 (Broken pipe)"}));
    }
}

TEST_F(UsbChannel, a_short_write_is_a_write_error_without_an_error_number)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const support::WithSystemCalls calls({.send = [](int, const void *, std::size_t, int) { return ssize_t{3}; }});
    const SyslogCapture capture;
    const Timed sent = sendUsbMessage("state");
    EXPECT_EQ(sent.result, 4);
    EXPECT_EQ(
        capture.lines().back(),
        (LogLine{"", LOG_ERR, "SendUsbMsg2DLL: [" + hex(sent.thread) + "] thRet=4 errno=0 (Success) 'write error (--> DLL)'"}));
}

TEST_F(UsbChannel, signals_do_not_prolong_the_wait_for_a_full_queue)
{
    const support::FullQueue server(kUsbSocket);
    const Timed sent = timed([] {
        const support::Alarms alarms(900ms, 900ms);
        return FuncSendCommand2DLL(strdup("suicide"));
    });
    EXPECT_EQ(sent.result, 3);
    EXPECT_THAT(sent.taken, AllOf(Ge(3900ms), Lt(6s)));
}

TEST_F(UsbChannel, a_full_queue_counts_as_no_connection_after_4_s)
{
    const support::FullQueue server(kUsbSocket);
    const Timed sent = sendCommand("suicide");
    EXPECT_EQ(sent.result, 3);
    EXPECT_THAT(sent.taken, AllOf(Ge(3900ms), Lt(7s)));
}

TEST_F(UsbChannel, a_peer_that_closes_at_once_is_a_write_error_or_a_lost_answer)
{
    const ScriptedService server({support::closesAtOnce()}, kUsbSocket);
    for (int round = 0; round < 20; ++round) {
        const SyslogCapture capture;
        const Timed sent = sendCommand("other");
        EXPECT_THAT(sent.result, AnyOf(1, 4));
        if (sent.result == 4) {
            EXPECT_EQ(capture.lines().back(), (LogLine{"", LOG_ERR,
                                                       "FuncSendCommand2DLL: write error (--> DLL) [thread 0x" +
                                                           hex(sent.thread) + "] thRet=4 errno=32 (Broken pipe)"}));
        }
    }
}

TEST_F(UsbChannel, having_no_free_descriptor_is_a_socket_error)
{
    const SyslogCapture capture;
    const Timed command = timed([] {
        const NoDescriptors none;
        return FuncSendCommand2DLL(strdup("suicide"));
    });
    const Timed message = timed([] {
        const NoDescriptors none;
        return SendUsbMsg2DLL("state");
    });
    EXPECT_EQ(command.result, 2);
    EXPECT_EQ(message.result, 2);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[1], (LogLine{"", LOG_ERR,
                                 "FuncSendCommand2DLL: socket error (--> DLL) [thread 0x" + hex(command.thread) +
                                     "] thRet=2 errno=24 (Too many open files)"}));
    EXPECT_EQ(lines[3], (LogLine{"", LOG_ERR,
                                 "SendUsbMsg2DLL: [" + hex(message.thread) +
                                     "] thRet=2 errno=24 (Too many open files) 'socket error (--> DLL)'"}));
}

TEST_F(UsbChannel, closing_the_socket_is_logged_before_the_failure_if_it_was_open)
{
    using testing::MatchesRegex;
    SetDebugLevel(2);
    const auto texts = [](const auto &send) {
        const SyslogCapture capture;
        send();
        return capture.texts();
    };
    EXPECT_THAT(texts([] { sendCommand("x"); }),
                ElementsAre(StartsWith("sending request"), MatchesRegex("FuncSendCommand2DLL: closesocket [0-9]+"),
                            StartsWith("FuncSendCommand2DLL: connect error")));
    EXPECT_THAT(texts([] { sendUsbMessage("x"); }),
                ElementsAre(StartsWith("SendUsbMsg2DLL: ["), MatchesRegex("SendUsbMsg2DLL: closesocket [0-9]+"),
                            StartsWith("SendUsbMsg2DLL: [")));
    {
        const ScriptedService server({support::replies("ok")}, kUsbSocket);
        const support::WithSystemCalls calls({.send = [](int, const void *, std::size_t, int) {
            errno = EPIPE;
            return ssize_t{-1};
        }});
        EXPECT_THAT(texts([] { sendCommand("x"); }),
                    ElementsAre(StartsWith("sending request"), MatchesRegex("FuncSendCommand2DLL: closesocket [0-9]+"),
                                StartsWith("FuncSendCommand2DLL: write error")));
    }
    const auto withoutDescriptors = [] {
        onOwnThread([] {
            const NoDescriptors none;
            return FuncSendCommand2DLL(strdup("x"));
        });
    };
    EXPECT_THAT(texts(withoutDescriptors),
                ElementsAre(StartsWith("sending request"), StartsWith("FuncSendCommand2DLL: socket error")));
}

TEST_F(UsbChannel, a_short_write_does_not_report_the_error_of_an_earlier_connect)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const support::WithSystemCalls calls({.connect =
                                              [](int, const sockaddr *, socklen_t) {
                                                  errno = ENOENT;  // left over from an earlier call
                                                  return support::kPassThrough;
                                              },
                                          .send = [](int, const void *, std::size_t, int) { return ssize_t{3}; }});
    const SyslogCapture capture;
    EXPECT_EQ(sendCommand("x").result, 4);
    EXPECT_THAT(capture.texts().back(), testing::EndsWith("thRet=4 errno=0 (Success)"));
}

TEST_F(UsbChannel, a_signal_does_not_restart_the_wait_for_a_full_queue)
{
    const support::FullQueue server(kUsbSocket);
    const Timed sent = timed([] {
        const support::Alarms alarm(3500ms);
        return FuncSendCommand2DLL(strdup("suicide"));
    });
    EXPECT_EQ(sent.result, 3);
    EXPECT_THAT(sent.taken, AllOf(Ge(3900ms), Lt(6s)));
}

}  // namespace
