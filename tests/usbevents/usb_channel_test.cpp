// Messages to a USB event server, and the step that stops one.
#include <kvo_hws/platform.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "support/alarms.h"
#include "support/failing_allocations.h"
#include "support/no_descriptors.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <semaphore>
#include <string>
#include <syslog.h>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using support::kUsbSocket;
using support::LogLine;
using support::MessagesOn;
using support::NoDescriptors;
using support::onOwnThread;
using support::ScriptedService;
using support::SyslogCapture;
using testing::AllOf;
using testing::AnyOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;
using testing::StartsWith;

struct Timed {
    int result;
    std::chrono::milliseconds taken;
    uint32_t thread;
};

/// A call on a thread of its own, with the number that the thread's log lines carry.
template <class Call>
Timed timed(Call call)
{
    return onOwnThread([call] {
        const auto start = std::chrono::steady_clock::now();
        const int result = call();
        return Timed{result, std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start),
                     static_cast<uint32_t>(GetCurrentThreadId())};
    });
}

Timed sendCommand(const std::string &command)
{
    return timed([command] { return FuncSendCommand2DLL(strdup(command.c_str())); });
}

Timed sendUsbMessage(const std::string &message)
{
    return timed([message] { return SendUsbMsg2DLL(message.c_str()); });
}

std::string hex(uint32_t thread)
{
    char text[16];
    std::snprintf(text, sizeof text, "%08X", thread);
    return text;
}

LogLine info(const std::string &text) { return {"", LOG_INFO, text}; }

class UsbChannel : public testing::Test {
protected:
    // Level 1 shows what LOG lets through and leaves the readers' own lines out.
    void SetUp() override { SetDebugLevel(1); }
    void TearDown() override
    {
        SetDebugLevel(0);
        ServerPipeThreadSyncState = 0;
        std::filesystem::remove(kUsbSocket);
    }
};

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

TEST_F(UsbChannel, an_event_text_is_one_line_and_is_logged_by_its_first_12_characters)
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

TEST_F(UsbChannel, closing_the_socket_is_told_at_level_2)
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

TEST_F(UsbChannel, senders_come_back_detached)
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

TEST_F(UsbChannel, a_command_of_1022_characters_goes_out_and_one_of_1023_does_not)
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

TEST_F(UsbChannel, a_lost_answer_does_not_fail_a_delivery)
{
    const ScriptedService server({support::closesAfterRequest()}, kUsbSocket);
    const SyslogCapture capture;
    const Timed sent = sendCommand("suicide");
    EXPECT_EQ(sent.result, 1);
    EXPECT_EQ(capture.lines().back(), info("reply from DLL \"\" [thread 0x" + hex(sent.thread) + "]"));
}

TEST_F(UsbChannel, no_server_is_an_error_but_for_suicide)
{
    const SyslogCapture capture;
    const Timed command = sendCommand("other");
    const Timed suicide = sendCommand("suicide");
    const Timed message = sendUsbMessage("message");
    const Timed spelt = sendUsbMessage("suicide");
    for (const Timed &sent : {command, suicide, message, spelt}) {
        EXPECT_EQ(sent.result, 3);
        // Five attempts with 10 ms after each, also after the last.
        EXPECT_THAT(sent.taken, AllOf(Ge(50ms), Lt(1s)));
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

TEST_F(UsbChannel, the_priority_of_a_failed_suicide_connect_stays_for_a_later_write_error)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const auto sendOnce = [](const std::string &command) {
        const support::WithSystemCalls calls({.connect =
                                                  [count = 0](int, const sockaddr *, socklen_t) mutable {
                                                      errno = ECONNREFUSED;
                                                      return count++ == 0 ? -1 : support::kPass;
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

TEST_F(UsbChannel, connects_by_family_and_path_alone_and_writes_once)
{
    const ScriptedService server({support::closesAfterRequest()}, kUsbSocket);
    std::vector<socklen_t> lengths;
    std::vector<std::string> writes;
    const support::WithSystemCalls calls({.connect =
                                              [&](int, const sockaddr *, socklen_t length) {
                                                  lengths.push_back(length);
                                                  return support::kPass;
                                              },
                                          .send =
                                              [&](int, const void *bytes, std::size_t length, int) {
                                                  writes.emplace_back(static_cast<const char *>(bytes), length);
                                                  return ssize_t{support::kPass};
                                              }});
    EXPECT_EQ(sendCommand("suicide").result, 1);
    EXPECT_THAT(lengths, ElementsAre(23U)) << "2 bytes of family and 21 of path, without a terminator";
    EXPECT_THAT(writes, ElementsAre("suicide\n"));
}

TEST_F(UsbChannel, no_socket_and_no_fitting_buffer_need_no_turn)
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

TEST_F(UsbChannel, signals_do_not_multiply_the_wait_for_a_full_queue)
{
    const support::FullQueue server(kUsbSocket);
    const Timed sent = timed([] {
        const support::Alarms alarms(900ms, 900ms);
        return FuncSendCommand2DLL(strdup("suicide"));
    });
    EXPECT_EQ(sent.result, 3);
    EXPECT_THAT(sent.taken, AllOf(Ge(3900ms), Lt(6s)));
}

TEST_F(UsbChannel, a_server_that_comes_up_meanwhile_is_reached)
{
    std::unique_ptr<ScriptedService> server;
    std::thread late([&server] {
        std::this_thread::sleep_for(25ms);
        server = std::make_unique<ScriptedService>(std::vector<support::Script>{support::replies("ok")}, kUsbSocket);
    });
    EXPECT_EQ(sendCommand("suicide").result, 1);
    late.join();
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

TEST_F(UsbChannel, no_descriptor_is_a_socket_error)
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

TEST_F(UsbChannel, exchanges_wait_for_one_another_but_not_for_the_command_channel)
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

TEST_F(UsbChannel, asynchronous_sending_always_counts_as_done)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    std::binary_semaphore ended(0);
    const SyslogCapture capture([&, lines = 0]() mutable {
        if (++lines == 2) {
            ended.release();  // the line with the answer is the sender's last
        }
    });
    EXPECT_EQ(SendCommand2DLL(strdup("suicide"), 0), 1);
    EXPECT_TRUE(ended.try_acquire_for(5s));
    EXPECT_THAT(server.requests(), ElementsAre("suicide\n"));
}

TEST_F(UsbChannel, asynchronous_sending_counts_as_done_even_without_a_thread)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const support::WithSystemCalls calls({.pthreadCreate = [] { return EAGAIN; }});
    EXPECT_EQ(SendCommand2DLL(strdup("suicide"), 0), 1);  // and the text is freed, as the address sanitizer would tell
    std::this_thread::sleep_for(100ms);
    EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(UsbChannel, synchronous_sending_passes_the_result_on)
{
    EXPECT_EQ(timed([] { return SendCommand2DLL(strdup("suicide"), 1); }).result, 3);
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    EXPECT_EQ(timed([] { return SendCommand2DLL(strdup("suicide"), 1); }).result, 1);
}

TEST_F(UsbChannel, the_thread_body_returns_null)
{
    EXPECT_EQ(onOwnThread([] { return ThreadSendCommand2DLL(strdup("suicide")); }), nullptr);
}

TEST_F(UsbChannel, only_the_whole_word_is_suicide)
{
    const SyslogCapture capture;
    const Timed sent = sendCommand("suicidex");
    EXPECT_EQ(capture.lines().back(), (LogLine{"", LOG_ERR,
                                               "FuncSendCommand2DLL: connect error (--> DLL) [thread 0x" + hex(sent.thread) +
                                                   "] thRet=3 errno=2 (No such file or directory)"}));
}

TEST_F(UsbChannel, closing_the_socket_is_told_before_a_failure_where_there_was_a_socket)
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

TEST_F(UsbChannel, a_short_write_has_no_error_number_of_an_earlier_connect)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const support::WithSystemCalls calls({.connect =
                                              [](int, const sockaddr *, socklen_t) {
                                                  errno = ENOENT;  // left by whatever was before
                                                  return support::kPass;
                                              },
                                          .send = [](int, const void *, std::size_t, int) { return ssize_t{3}; }});
    const SyslogCapture capture;
    EXPECT_EQ(sendCommand("x").result, 4);
    EXPECT_THAT(capture.texts().back(), testing::EndsWith("thRet=4 errno=0 (Success)"));
}

TEST_F(UsbChannel, a_signal_does_not_begin_the_wait_for_a_full_queue_anew)
{
    const support::FullQueue server(kUsbSocket);
    const Timed sent = timed([] {
        const support::Alarms alarm(3500ms);
        return FuncSendCommand2DLL(strdup("suicide"));
    });
    EXPECT_EQ(sent.result, 3);
    EXPECT_THAT(sent.taken, AllOf(Ge(3900ms), Lt(6s)));
}

// ---- Stopping a server ----

uint32_t serverState() { return __atomic_load_n(&ServerPipeThreadSyncState, __ATOMIC_SEQ_CST); }
void setServerState(uint32_t state) { __atomic_store_n(&ServerPipeThreadSyncState, state, __ATOMIC_SEQ_CST); }

TEST_F(UsbChannel, killing_tells_whichever_server_listens)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const Timed killed = timed(KillUsbServer);
    EXPECT_EQ(killed.result, 1);
    EXPECT_LT(killed.taken, 90ms) << "nothing of this process had to be waited for";
    EXPECT_THAT(server.requests(), ElementsAre("suicide\n"));
}

TEST_F(UsbChannel, killing_where_nobody_listens_is_minus_2)
{
    EXPECT_EQ(timed(KillUsbServer).result, -2);
    EXPECT_EQ(serverState(), 0U);
}

TEST_F(UsbChannel, killing_asks_the_own_server_and_waits_until_it_has_stopped)
{
    for (const uint32_t stopped : {0U, 2U}) {
        const ScriptedService other({support::replies("ok")}, kUsbSocket);
        setServerState(3);
        std::atomic<uint32_t> asked{0};
        std::thread ownServer([&] {
            std::this_thread::sleep_for(150ms);
            asked = serverState();
            setServerState(stopped);
        });
        const Timed killed = timed(KillUsbServer);
        ownServer.join();
        EXPECT_EQ(asked, 1U);
        EXPECT_EQ(killed.result, 1);
        EXPECT_THAT(killed.taken, AllOf(Ge(190ms), Lt(1s)));
        EXPECT_EQ(serverState(), 0U);
        EXPECT_THAT(other.requests(), ElementsAre("suicide\n"));
    }
}

TEST_F(UsbChannel, killing_a_server_that_never_ends_gives_up_after_2_s)
{
    const ScriptedService other({support::replies("ok")}, kUsbSocket);
    setServerState(3);
    const Timed killed = timed(KillUsbServer);
    EXPECT_EQ(killed.result, -1);
    EXPECT_THAT(killed.taken, AllOf(Ge(1990ms), Lt(3s)));
    EXPECT_EQ(serverState(), 0U);
    EXPECT_THAT(other.requests(), ElementsAre("suicide\n")) << "the message goes out all the same";
}

TEST_F(UsbChannel, killing_a_server_that_never_ends_where_nobody_listens_is_minus_2)
{
    setServerState(1);
    EXPECT_EQ(timed(KillUsbServer).result, -2);
    EXPECT_EQ(serverState(), 0U);
}

TEST_F(UsbChannel, killing_takes_a_server_that_has_stopped_already_as_stopped)
{
    const ScriptedService other({support::replies("ok")}, kUsbSocket);
    setServerState(2);
    EXPECT_EQ(timed(KillUsbServer).result, 1);
    EXPECT_EQ(serverState(), 0U);
}

TEST_F(UsbChannel, killing_without_memory_is_minus_2_and_sends_nothing)
{
    if (const char *reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    const ScriptedService other({support::replies("ok")}, kUsbSocket);
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(onOwnThread([] {
                  const support::FailingAllocations noMemory;
                  return KillUsbServer();
              }),
              -2);
    // The blank is missing in the text itself.
    EXPECT_THAT(capture.texts(), ElementsAre("kill servernot enough memory"));
    EXPECT_THAT(other.requests(), IsEmpty());
}

}  // namespace
