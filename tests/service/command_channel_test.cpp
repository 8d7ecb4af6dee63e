// The exchange with the hardware service: what is sent and read, and how threads wait for each other.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "service/exchange.h"
#include "support/alarms.h"
#include "support/no_descriptors.h"
#include "support/no_standard_input.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using service_test::Exchange;
using support::MessagesOn;
using support::ScriptedService;
using support::SyslogCapture;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;

TEST(CommandChannel, sends_only_the_command_and_a_line_feed)
{
    const ScriptedService service({support::replies("ok")});
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, 1);
    EXPECT_EQ(exchange.text(), "ok");
    EXPECT_EQ(exchange.reply.uiLength, 3U);
    EXPECT_THAT(service.requests(), ElementsAre("getVersion\n"));
}

TEST(CommandChannel, works_on_descriptor_0)
{
    const ScriptedService service({support::replies("ok")});
    std::vector<int> sockets;
    const support::WithSystemCalls calls({.connect = [&](int fd, const sockaddr *, socklen_t) {
        sockets.push_back(fd);
        return support::kPassThrough;
    }});
    const support::NoStandardInput noStandardInput;
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, 1);
    EXPECT_EQ(exchange.text(), "ok");
    EXPECT_THAT(sockets, ElementsAre(0));
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "closed again";
}

TEST(CommandChannel, connects_with_the_exact_path_length_and_writes_once)
{
    const ScriptedService service({support::replies("ok")});
    std::vector<socklen_t> lengths;
    std::vector<std::string> writes;
    const pthread_t own = pthread_self();
    const support::WithSystemCalls calls({.connect =
                                              [&](int, const sockaddr *, socklen_t length) {
                                                  lengths.push_back(length);
                                                  return support::kPassThrough;
                                              },
                                          .send =
                                              [&](int, const void *bytes, std::size_t length, int) {
                                                  if (pthread_equal(pthread_self(), own)) {
                                                      writes.emplace_back(static_cast<const char *>(bytes), length);
                                                  }
                                                  return ssize_t{support::kPassThrough};
                                              }});
    EXPECT_EQ(Exchange("getVersion").result, 1);
    EXPECT_THAT(lengths, ElementsAre(23U)) << "2 bytes of family and 21 of path, without a terminator";
    EXPECT_THAT(writes, ElementsAre("getVersion\n"));
}

TEST(CommandChannel, fails_without_waiting_for_the_lock_if_it_gets_no_socket)
{
    DynBuffer reply{nullptr, 0};
    int result = 0;
    kvo_hws_EnterCriticalSection(&sGCriticalSectionCmdPipe);
    {
        const support::NoDescriptors none;
        result = SendCommand2ServiceDyn("getVersion", &reply);  // this thread holds the lock: it would wait for itself
    }
    kvo_hws_LeaveCriticalSection(&sGCriticalSectionCmdPipe);
    EXPECT_EQ(result, -1);
}

TEST(CommandChannel, a_late_signal_does_not_restart_the_wait_for_a_full_queue)
{
    const support::FullQueue service;
    const support::Alarms once(3500ms);
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, -2);
    EXPECT_THAT(exchange.taken, AllOf(Ge(3900ms), Lt(5500ms)));
}

TEST(CommandChannel, gives_up_after_4_s_if_signals_interrupt_every_connect)
{
    const support::WithSystemCalls calls{{.connect = [](int, const sockaddr *, socklen_t) {
        std::this_thread::sleep_for(500ms);
        errno = EINTR;
        return -1;
    }}};
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, -2);
    EXPECT_THAT(exchange.taken, AllOf(Ge(3900ms), Lt(5500ms)));
}

TEST(CommandChannel, has_no_length_limit_for_a_command)
{
    const std::string command(100'000, 'c');
    const ScriptedService service({support::replies("ok")});
    EXPECT_EQ(Exchange(command.c_str()).result, 1);
    EXPECT_THAT(service.requests(), ElementsAre(command + "\n"));
}

TEST(CommandChannel, refuses_a_null_or_empty_command_without_a_message)
{
    const ScriptedService service({support::replies("ok")});
    const MessagesOn messages(2);
    const SyslogCapture capture;
    EXPECT_EQ(Exchange(nullptr).result, -1);
    EXPECT_EQ(Exchange("").result, -1);
    EXPECT_THAT(capture.lines(), IsEmpty());
    EXPECT_THAT(service.requests(), IsEmpty());
}

TEST(CommandChannel, assembles_a_reply_from_single_bytes)
{
    const ScriptedService service({support::dribbles("DEBUG_LEVEL_II\r\n", 3ms)});
    const Exchange exchange("getDebugLevel");
    EXPECT_EQ(exchange.result, 1);
    EXPECT_EQ(exchange.text(), "DEBUG_LEVEL_II");
}

TEST(CommandChannel, reads_a_10_mb_reply)
{
    const std::string line(10'000'000, 'x');
    const ScriptedService service({support::replies(line)});
    const Exchange exchange("getDLV2 1");
    EXPECT_EQ(exchange.result, 1);
    EXPECT_TRUE(exchange.text() == line);
    EXPECT_LT(exchange.taken, 30s);
}

TEST(CommandChannel, waits_for_the_thread_that_has_the_lock)
{
    const ScriptedService service({support::replies("ok")});
    std::atomic<bool> done{false};
    kvo_hws_EnterCriticalSection(&sGCriticalSectionCmdPipe);
    std::thread requester([&done] {
        EXPECT_EQ(Exchange("getVersion").result, 1);
        done = true;
    });
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(done);
    EXPECT_THAT(service.requests(), IsEmpty());
    kvo_hws_LeaveCriticalSection(&sGCriticalSectionCmdPipe);
    requester.join();
    EXPECT_TRUE(done);
}

TEST(CommandChannel, separates_the_exchanges_of_many_threads)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 50;
    const ScriptedService service({support::replies("ok")});
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread] {
            for (int round = 0; round < kRounds; ++round) {
                EXPECT_EQ(Exchange(("thread" + std::to_string(thread)).c_str()).text(), "ok");
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    const auto requests = service.requests();
    EXPECT_EQ(requests.size(), static_cast<std::size_t>(kThreads * kRounds));
    EXPECT_THAT(requests, Each(testing::MatchesRegex("thread[0-7]\n")));
}

TEST(CommandChannel, descriptors_do_not_survive_an_exec)
{
    // The test inspects the client's descriptors during the exchange.
    const ScriptedService service({support::staysSilent(300ms)});
    std::thread requester([] { Exchange("getVersion"); });
    std::this_thread::sleep_for(100ms);
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        std::error_code error;
        const auto target = std::filesystem::read_symlink(entry.path(), error);
        if (!error && target.string().starts_with("socket:")) {
            EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << "descriptor " << fd;
        }
    }
    requester.join();
}

}  // namespace
