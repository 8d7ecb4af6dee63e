// One exchange with the hardware service, and every way in which the service can spoil it.
#include <kvo_hws/kvo_hws.h>

#include "support/alarms.h"
#include "support/no_descriptors.h"
#include "support/no_standard_input.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

using support::MessagesOn;
using support::ScriptedService;
using support::SyslogCapture;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;

/// One exchange and what came of it.
struct Exchange {
    explicit Exchange(const char *command)
    {
        const auto start = std::chrono::steady_clock::now();
        result = SendCommand2ServiceDyn(command, &reply);
        taken = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    }
    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;
    ~Exchange() { free(reply.pcData); }
    [[nodiscard]] std::string text() const { return reply.pcData == nullptr ? "(null)" : reply.pcData; }

    DynBuffer reply{nullptr, 0};
    int result;
    std::chrono::milliseconds taken{};
};

std::size_t openDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

TEST(CommandChannel, sends_the_command_and_a_line_feed_and_nothing_else)
{
    const ScriptedService service({support::replies("ok")});
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, 1);
    EXPECT_EQ(exchange.text(), "ok");
    EXPECT_EQ(exchange.reply.uiLength, 3U);
    EXPECT_THAT(service.requests(), ElementsAre("getVersion\n"));
}

TEST(CommandChannel, may_be_descriptor_0)
{
    const ScriptedService service({support::replies("ok")});
    std::vector<int> sockets;
    const support::WithSystemCalls calls({.connect = [&](int fd, const sockaddr *, socklen_t) {
        sockets.push_back(fd);
        return support::kPass;
    }});
    const support::NoStandardInput noStandardInput;
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, 1);
    EXPECT_EQ(exchange.text(), "ok");
    EXPECT_THAT(sockets, ElementsAre(0));
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "closed again";
}

TEST(CommandChannel, connects_by_family_and_path_alone_and_writes_once)
{
    const ScriptedService service({support::replies("ok")});
    std::vector<socklen_t> lengths;
    std::vector<std::string> writes;
    const pthread_t own = pthread_self();
    const support::WithSystemCalls calls({.connect =
                                              [&](int, const sockaddr *, socklen_t length) {
                                                  lengths.push_back(length);
                                                  return support::kPass;
                                              },
                                          .send =
                                              [&](int, const void *bytes, std::size_t length, int) {
                                                  if (pthread_equal(pthread_self(), own)) {
                                                      writes.emplace_back(static_cast<const char *>(bytes), length);
                                                  }
                                                  return ssize_t{support::kPass};
                                              }});
    EXPECT_EQ(Exchange("getVersion").result, 1);
    EXPECT_THAT(lengths, ElementsAre(23U)) << "2 bytes of family and 21 of path, without a terminator";
    EXPECT_THAT(writes, ElementsAre("getVersion\n"));
}

TEST(CommandChannel, does_not_wait_for_the_exchange_when_it_has_no_socket)
{
    DynBuffer reply{nullptr, 0};
    int result = 0;
    kvo_hws_EnterCriticalSection(&sGCriticalSectionCmdPipe);
    {
        const support::NoDescriptors none;
        result = SendCommand2ServiceDyn("getVersion", &reply);  // on this very thread: it would wait for itself
    }
    kvo_hws_LeaveCriticalSection(&sGCriticalSectionCmdPipe);
    EXPECT_EQ(result, -1);
}

TEST(CommandChannel, a_signal_late_in_a_wait_for_a_full_queue_does_not_start_it_anew)
{
    const support::FullQueue service;
    const support::Alarms once(3500ms);
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, -2);
    EXPECT_THAT(exchange.taken, AllOf(Ge(3900ms), Lt(5500ms)));
}

TEST(CommandChannel, signals_in_every_attempt_to_connect_end_it_after_4_s)
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

TEST(CommandChannel, tells_a_failure_after_the_lock_is_left_and_the_socket_closed)
{
    const ScriptedService service({support::closesAfterRequest()});
    const MessagesOn messages;
    const std::size_t descriptors = openDescriptors();
    bool lockFree = false;
    std::size_t descriptorsThen = 0;
    const SyslogCapture capture([&] {
        lockFree = pthread_mutex_trylock(&sGCriticalSectionCmdPipe) == 0;
        if (lockFree) {
            pthread_mutex_unlock(&sGCriticalSectionCmdPipe);
        }
        descriptorsThen = openDescriptors();
    });
    EXPECT_EQ(Exchange("getVersion").result, -1);
    EXPECT_TRUE(lockFree);
    EXPECT_LE(descriptorsThen, descriptors + 1) << "the service's own end may still be open";
}

TEST(CommandChannel, has_no_limit_for_a_command)
{
    const std::string command(100'000, 'c');
    const ScriptedService service({support::replies("ok")});
    EXPECT_EQ(Exchange(command.c_str()).result, 1);
    EXPECT_THAT(service.requests(), ElementsAre(command + "\n"));
}

TEST(CommandChannel, refuses_no_command_silently)
{
    const ScriptedService service({support::replies("ok")});
    const MessagesOn messages(2);
    const SyslogCapture capture;
    EXPECT_EQ(Exchange(nullptr).result, -1);
    EXPECT_EQ(Exchange("").result, -1);
    EXPECT_THAT(capture.lines(), IsEmpty());
    EXPECT_THAT(service.requests(), IsEmpty());
}

TEST(CommandChannel, tells_a_missing_service_after_one_attempt)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, -2);
    EXPECT_EQ(exchange.text(), "(null)");
    EXPECT_LT(exchange.taken, 1s);
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not connect to socket"));
}

TEST(CommandChannel, tells_a_socket_that_nobody_listens_at_any_more)
{
    support::leaveStaleSocket(support::kCommandSocket);
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(Exchange("getVersion").result, -2);
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not connect to socket"));
}

struct Fault {
    const char *name;
    support::Script script;
    const char *message;
};

class CommandChannelFault : public testing::TestWithParam<Fault> {};

TEST_P(CommandChannelFault, is_a_failure_with_its_message)
{
    const ScriptedService service({GetParam().script});
    const MessagesOn messages;
    const SyslogCapture capture;
    const std::size_t descriptors = openDescriptors();
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, -1);
    EXPECT_EQ(exchange.reply.pcData, nullptr);
    EXPECT_EQ(exchange.reply.uiLength, 0U);
    EXPECT_THAT(capture.texts(), ElementsAre(GetParam().message));
    EXPECT_LE(openDescriptors(), descriptors + 1) << "the service's own end may still be open";
}

INSTANTIATE_TEST_SUITE_P(Table, CommandChannelFault,
                         testing::Values(Fault{"closes_after_the_request", support::closesAfterRequest(),
                                               "command socket - can not read from socket"},
                                         Fault{"closes_inside_the_reply", support::closesInsideReply("half a re"),
                                               "command socket - can not read from socket"},
                                         Fault{"silent_for_4_s", support::staysSilent(6s),
                                               "command socket - can not read from socket"}),
                         [](const auto &row) { return row.param.name; });

TEST(CommandChannel, comes_through_a_peer_that_closes_before_the_request)
{
    // Whether the write or the read meets the closed end is a matter of timing; both are failures and neither a signal.
    const ScriptedService service({support::closesAtOnce()});
    const MessagesOn messages;
    for (int round = 0; round < 50; ++round) {
        const SyslogCapture capture;
        const Exchange exchange("getVersion");
        EXPECT_EQ(exchange.result, -1);
        EXPECT_THAT(capture.texts(), ElementsAre(testing::AnyOf("command socket - can not write to socket",
                                                                "command socket - can not read from socket")));
    }
}

TEST(CommandChannel, a_write_to_a_peer_that_has_gone_is_a_failure_and_no_signal)
{
    const ScriptedService service({support::closesAtOnce()});
    const MessagesOn messages;
    const SyslogCapture capture;
    // More than a socket holds, so that the write surely meets the closed end.
    const std::string command(5'000'000, 'c');
    EXPECT_EQ(Exchange(command.c_str()).result, -1);
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not write to socket"));
}

TEST(CommandChannel, a_peer_that_does_not_read_holds_a_write_up_for_4_s_at_most)
{
    const ScriptedService service({{{.kind = support::Step::Kind::pause, .pause = 20s}}});
    const MessagesOn messages;
    const SyslogCapture capture;
    const std::string command(5'000'000, 'c');
    const Exchange exchange(command.c_str());
    EXPECT_EQ(exchange.result, -1);
    EXPECT_THAT(exchange.taken, AllOf(Ge(3900ms), Lt(9s)));
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not write to socket"));
}

TEST(CommandChannel, a_full_queue_counts_as_no_connection_after_4_s)
{
    const support::FullQueue service;
    const MessagesOn messages;
    const SyslogCapture capture;
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, -2);
    EXPECT_THAT(exchange.taken, AllOf(Ge(3900ms), Lt(6s)));
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not connect to socket"));
}

TEST(CommandChannel, signals_do_not_cut_a_wait_for_a_full_queue_short_nor_make_it_endless)
{
    const support::FullQueue service;
    const support::Alarms alarms(20ms, 20ms);
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, -2);
    EXPECT_THAT(exchange.taken, AllOf(Ge(3900ms), Lt(5500ms)));
}

TEST(CommandChannel, tells_when_there_are_no_descriptors_left)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    DynBuffer reply{nullptr, 0};
    int result = 0;
    {
        const support::NoDescriptors none;
        result = SendCommand2ServiceDyn("getVersion", &reply);
    }
    EXPECT_EQ(result, -1);
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - error creating socket"));
}

TEST(CommandChannel, puts_a_reply_together_byte_by_byte)
{
    const ScriptedService service({support::dribbles("DEBUG_LEVEL_II\r\n", 3ms)});
    const Exchange exchange("getDebugLevel");
    EXPECT_EQ(exchange.result, 1);
    EXPECT_EQ(exchange.text(), "DEBUG_LEVEL_II");
}

TEST(CommandChannel, takes_a_10_mb_reply)
{
    const std::string line(10'000'000, 'x');
    const ScriptedService service({support::replies(line)});
    const Exchange exchange("getDLV2 1");
    EXPECT_EQ(exchange.result, 1);
    EXPECT_TRUE(exchange.text() == line);
    EXPECT_LT(exchange.taken, 30s);
}

TEST(CommandChannel, a_null_reply_record_is_a_read_failure)
{
    const ScriptedService service({support::replies("ok")});
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(SendCommand2ServiceDyn("getVersion", nullptr), -1);
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not read from socket"));
}

TEST(CommandChannel, leaves_the_lock_free_and_no_descriptor_behind_after_every_outcome)
{
    const auto inOrder = [] {
        EXPECT_EQ(pthread_mutex_trylock(&sGCriticalSectionCmdPipe), 0);
        pthread_mutex_unlock(&sGCriticalSectionCmdPipe);
    };
    const std::size_t descriptors = openDescriptors();
    EXPECT_EQ(Exchange("a").result, -2);
    inOrder();
    EXPECT_EQ(openDescriptors(), descriptors);
    {
        const ScriptedService service({support::closesAfterRequest(), support::closesAtOnce(), support::replies("ok")});
        EXPECT_EQ(Exchange("a").result, -1);
        inOrder();
        EXPECT_EQ(Exchange("a").result, -1);
        inOrder();
        EXPECT_EQ(Exchange("a").result, 1);
        inOrder();
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(CommandChannel, waits_for_whoever_holds_the_exchange)
{
    const ScriptedService service({support::replies("ok")});
    std::atomic<bool> done{false};
    kvo_hws_EnterCriticalSection(&sGCriticalSectionCmdPipe);
    std::thread asking([&done] {
        EXPECT_EQ(Exchange("getVersion").result, 1);
        done = true;
    });
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(done);
    EXPECT_THAT(service.requests(), IsEmpty());
    kvo_hws_LeaveCriticalSection(&sGCriticalSectionCmdPipe);
    asking.join();
    EXPECT_TRUE(done);
}

TEST(CommandChannel, keeps_the_exchanges_of_many_threads_apart)
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
    // The service looks at the client's descriptors while the exchange is on.
    const ScriptedService service({support::staysSilent(300ms)});
    std::thread asking([] { Exchange("getVersion"); });
    std::this_thread::sleep_for(100ms);
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        std::error_code error;
        const auto target = std::filesystem::read_symlink(entry.path(), error);
        if (!error && target.string().starts_with("socket:")) {
            EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << "descriptor " << fd;
        }
    }
    asking.join();
}

// ---- The thin socket functions ----

TEST(SendSocket, sends_all_or_tells_why)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    EXPECT_EQ(kvo_hws_send_socket(ends[0], "12345", 5, 0), 5);
    EXPECT_EQ(kvo_hws_send_socket(ends[0], "", 0, 0), 0);
    const std::string large(4'000'000, 'x');
    EXPECT_EQ(kvo_hws_send_socket(ends[0], large.data(), 4'000'000, MSG_DONTWAIT), -1) << "short";
    EXPECT_EQ(kvo_hws_send_socket(ends[0], large.data(), 4'000'000, MSG_DONTWAIT), -1) << "EAGAIN";
    close(ends[1]);
    EXPECT_EQ(kvo_hws_send_socket(ends[0], "12345", 5, MSG_NOSIGNAL), -2) << "EPIPE";
    close(ends[0]);
    const int unconnected = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(kvo_hws_send_socket(unconnected, "12345", 5, MSG_NOSIGNAL), -2) << "not connected";
    close(unconnected);
    EXPECT_EQ(kvo_hws_send_socket(-1, "12345", 5, MSG_NOSIGNAL), -1) << "no descriptor";
}

TEST(SendSocket, passes_the_callers_flags)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    close(ends[1]);
    static std::atomic<int> pipes{0};
    struct sigaction action {};
    action.sa_handler = [](int) { ++pipes; };
    struct sigaction before {};
    sigaction(SIGPIPE, &action, &before);
    EXPECT_EQ(kvo_hws_send_socket(ends[0], "x", 1, 0), -2);
    EXPECT_EQ(pipes, 1);
    EXPECT_EQ(kvo_hws_send_socket(ends[0], "x", 1, MSG_NOSIGNAL), -2);
    EXPECT_EQ(pipes, 1);
    sigaction(SIGPIPE, &before, nullptr);
    close(ends[0]);
}

TEST(SocketSupport, needs_no_set_up)
{
    int status = 77;
    EXPECT_EQ(kvo_hws_StartUpSockets(&status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(kvo_hws_StartUpSockets(nullptr), 0);
    EXPECT_EQ(kvo_hws_CleanUpSockets(), 0);
}

}  // namespace
