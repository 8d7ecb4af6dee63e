// Messages to a USB event server: what is sent and logged, synchronously or in the background.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "support/no_descriptors.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "usbevents/usb_channel_fixture.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <future>
#include <gmock/gmock.h>
#include <memory>
#include <semaphore>
#include <string>
#include <syslog.h>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using support::kUsbSocket;
using support::LogLine;
using support::NoDescriptors;
using support::onOwnThread;
using support::ScriptedService;
using support::SyslogCapture;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using usbevents_test::hex;
using usbevents_test::info;
using usbevents_test::sendCommand;
using usbevents_test::sendUsbMessage;
using usbevents_test::Timed;
using usbevents_test::timed;
using usbevents_test::UsbChannel;

TEST_F(UsbChannel, a_command_is_one_line_and_its_answer_is_logged)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const SyslogCapture capture;
    const Timed sent = sendCommand("suicide");
    EXPECT_EQ(sent.result, 1);
    EXPECT_THAT(server.requests(), ElementsAre("suicide\n"));
    EXPECT_THAT(capture.lines(), ElementsAre(info("sending request to DLL \"suicide\" [thread 0x" + hex(sent.thread) + "]"),
                                             info("reply from DLL \"ok\" [thread 0x" + hex(sent.thread) + "]")));
}

TEST_F(UsbChannel, an_event_text_is_one_line_and_its_first_12_characters_are_logged)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const SyslogCapture capture;
    const Timed sent = sendUsbMessage("new device: a stick");
    EXPECT_EQ(sent.result, 1);
    EXPECT_THAT(server.requests(), ElementsAre("new device: a stick\n"));
    EXPECT_THAT(capture.lines(),
                ElementsAre(info("SendUsbMsg2DLL: [" + hex(sent.thread) + "] sending request to DLL iLength=20 'new device: '"),
                            info("SendUsbMsg2DLL: reply from DLL \"ok\" [thread 0x" + hex(sent.thread) + "]")));
}

TEST_F(UsbChannel, a_short_event_text_is_padded_in_the_log)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const SyslogCapture capture;
    const Timed sent = sendUsbMessage("state");
    EXPECT_EQ(capture.lines().at(0),
              info("SendUsbMsg2DLL: [" + hex(sent.thread) + "] sending request to DLL iLength=6 '       state'"));
}

TEST_F(UsbChannel, closing_the_socket_is_logged_at_level_2)
{
    SetDebugLevel(2);
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    {
        const SyslogCapture capture;
        sendCommand("suicide");
        EXPECT_THAT(capture.texts(),
                    ElementsAre(StartsWith("sending request"), StartsWith("ReadSocket: command/reply complete 'ok'"),
                                testing::MatchesRegex("FuncSendCommand2DLL: closesocket [0-9]+"),
                                StartsWith("reply from DLL")));
    }
    const SyslogCapture capture;
    sendUsbMessage("state");
    EXPECT_THAT(capture.texts(),
                ElementsAre(StartsWith("SendUsbMsg2DLL: ["), StartsWith("ReadSocket: command/reply complete 'ok'"),
                            testing::MatchesRegex("SendUsbMsg2DLL: closesocket [0-9]+"),
                            StartsWith("SendUsbMsg2DLL: reply from DLL")));
}

TEST_F(UsbChannel, sending_detaches_the_calling_thread)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    EXPECT_EQ(onOwnThread([] {
                  FuncSendCommand2DLL(strdup("suicide"));
                  return kvo_hws_detach_thread();
              }),
              -1);
    EXPECT_EQ(onOwnThread([] {
                  SendUsbMsg2DLL("state");
                  return kvo_hws_detach_thread();
              }),
              -1);
}

TEST_F(UsbChannel, a_command_of_1022_characters_is_sent_and_one_of_1023_is_not)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    EXPECT_EQ(sendCommand(std::string(1022, 'c')).result, 1);
    EXPECT_EQ(sendUsbMessage(std::string(1022, 'm')).result, 1);
    EXPECT_THAT(server.requests(), ElementsAre(std::string(1022, 'c') + "\n", std::string(1022, 'm') + "\n"));

    const SyslogCapture capture;
    const Timed command = sendCommand(std::string(1023, 'c'));
    const Timed message = sendUsbMessage(std::string(1023, 'm'));
    EXPECT_EQ(command.result, 5);
    EXPECT_EQ(message.result, 5);
    EXPECT_EQ(server.requests().size(), 2U);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[1], (LogLine{"", LOG_ERR,
                                 "FuncSendCommand2DLL: buffer size error (--> DLL) [thread 0x" + hex(command.thread) +
                                     "] thRet=5 errno=0 (Success)"}));
    EXPECT_EQ(lines[3], (LogLine{"", LOG_ERR,
                                 "SendUsbMsg2DLL: [" + hex(message.thread) +
                                     "] thRet=5 errno=0 (Success) 'buffer size error (--> DLL)'"}));
}

TEST_F(UsbChannel, connects_with_the_exact_path_length_and_writes_once)
{
    const ScriptedService server({support::closesAfterRequest()}, kUsbSocket);
    std::vector<socklen_t> lengths;
    std::vector<std::string> writes;
    const support::WithSystemCalls calls({.connect =
                                              [&](int, const sockaddr *, socklen_t length) {
                                                  lengths.push_back(length);
                                                  return support::kPassThrough;
                                              },
                                          .send =
                                              [&](int, const void *bytes, std::size_t length, int) {
                                                  writes.emplace_back(static_cast<const char *>(bytes), length);
                                                  return ssize_t{support::kPassThrough};
                                              }});
    EXPECT_EQ(sendCommand("suicide").result, 1);
    EXPECT_THAT(lengths, ElementsAre(23U)) << "2 bytes of family and 21 of path, without a terminator";
    EXPECT_THAT(writes, ElementsAre("suicide\n"));
}

TEST_F(UsbChannel, a_command_that_is_too_long_or_gets_no_socket_fails_without_the_lock)
{
    kvo_hws_EnterCriticalSection(&sGCriticalSectionCmdPipe2DLL);
    EXPECT_EQ(sendCommand(std::string(1023, 'c')).result, 5);
    EXPECT_EQ(timed([] {
                  const NoDescriptors none;
                  return FuncSendCommand2DLL(strdup("suicide"));
              }).result,
              2);
    kvo_hws_LeaveCriticalSection(&sGCriticalSectionCmdPipe2DLL);
}

TEST_F(UsbChannel, a_server_that_starts_meanwhile_is_reached)
{
    std::unique_ptr<ScriptedService> server;
    int attempts = 0;
    const support::WithSystemCalls calls({.connect = [&](int, const sockaddr *, socklen_t) {
        if (++attempts == 3) {
            server = std::make_unique<ScriptedService>(std::vector<support::Script>{support::replies("ok")}, kUsbSocket);
        }
        return support::kPassThrough;
    }});
    EXPECT_EQ(sendCommand("suicide").result, 1);
    EXPECT_EQ(attempts, 3);
}

TEST_F(UsbChannel, exchanges_wait_for_each_other_but_not_for_the_command_channel)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    kvo_hws_EnterCriticalSection(&sGCriticalSectionCmdPipe);
    EXPECT_EQ(sendCommand("suicide").result, 1);
    kvo_hws_LeaveCriticalSection(&sGCriticalSectionCmdPipe);

    kvo_hws_EnterCriticalSection(&sGCriticalSectionCmdPipe2DLL);
    auto waiting = std::async(std::launch::async, [] { return sendUsbMessage("state").result; });
    EXPECT_EQ(waiting.wait_for(100ms), std::future_status::timeout);
    kvo_hws_LeaveCriticalSection(&sGCriticalSectionCmdPipe2DLL);
    EXPECT_EQ(waiting.get(), 1);
}

TEST_F(UsbChannel, asynchronous_sending_always_returns_success)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    std::binary_semaphore ended(0);
    const SyslogCapture capture([&, lines = 0]() mutable {
        if (++lines == 2) {
            ended.release();  // the line with the answer is the sender's last line
        }
    });
    EXPECT_EQ(SendCommand2DLL(strdup("suicide"), 0), 1);
    EXPECT_TRUE(ended.try_acquire_for(5s));
    EXPECT_THAT(server.requests(), ElementsAre("suicide\n"));
}

TEST_F(UsbChannel, asynchronous_sending_returns_success_even_without_a_thread)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const support::WithSystemCalls calls({.pthreadCreate = [] { return EAGAIN; }});
    EXPECT_EQ(SendCommand2DLL(strdup("suicide"), 0), 1);  // and the text is freed; the address sanitizer would report a leak
    std::this_thread::sleep_for(100ms);
    EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(UsbChannel, synchronous_sending_returns_the_result)
{
    EXPECT_EQ(timed([] { return SendCommand2DLL(strdup("suicide"), 1); }).result, 3);
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    EXPECT_EQ(timed([] { return SendCommand2DLL(strdup("suicide"), 1); }).result, 1);
}

TEST_F(UsbChannel, the_thread_function_returns_null)
{
    EXPECT_EQ(onOwnThread([] { return ThreadSendCommand2DLL(strdup("suicide")); }), nullptr);
}

TEST_F(UsbChannel, only_the_complete_word_suicide_is_recognized)
{
    const SyslogCapture capture;
    const Timed sent = sendCommand("suicidex");
    EXPECT_EQ(capture.lines().back(), (LogLine{"", LOG_ERR,
                                               "FuncSendCommand2DLL: connect error (--> DLL) [thread 0x" + hex(sent.thread) +
                                                   "] thRet=3 errno=2 (No such file or directory)"}));
}

}  // namespace
