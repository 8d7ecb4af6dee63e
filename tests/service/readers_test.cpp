// The three line readers, each against a socket pair whose other end does as it likes.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "service/connection.h"
#include "support/alarms.h"
#include "support/failing_allocations.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

using service_test::DynLine;
using service_test::Pair;
using support::LogLine;
using support::SyslogCapture;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;

constexpr char kPattern = '\x5A';

/// A line from ReadSocket, in a buffer of the least size with guard bytes behind.
struct FixedLine {
    explicit FixedLine(int fd) : bytes(1025 + 16, kPattern)
    {
        result = ReadSocket(fd, bytes.data());
        EXPECT_EQ(bytes.substr(1025), std::string(16, kPattern)) << "written behind the buffer";
    }
    [[nodiscard]] std::string text() const { return bytes.c_str(); }

    int result;
    std::string bytes;
};

/// A line from ReadSocketCache.
struct CachedLine {
    CachedLine(int fd, SocketCache &cache, unsigned timeout = 1000) : bytes(1025 + 16, kPattern)
    {
        result = ReadSocketCache(fd, bytes.data(), &cache, timeout);
        EXPECT_EQ(bytes.substr(1025), std::string(16, kPattern)) << "written behind the line";
    }
    [[nodiscard]] std::string text() const { return bytes.c_str(); }

    int result;
    std::string bytes;
};

template <class Work>
std::chrono::milliseconds timeOf(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

class Readers : public testing::Test {
protected:
    void SetUp() override { SetDebugLevel(2); }
    void TearDown() override { SetDebugLevel(0); }
};

// ---- What all three do ----

TEST_F(Readers, take_a_carriage_return_off_with_the_line_feed)
{
    Pair pair;
    pair.write("ok\r\nok\r\nok\r\n");
    EXPECT_EQ(FixedLine(pair.fd()).text(), "ok");
    const DynLine dyn(pair.fd());
    EXPECT_EQ(dyn.text(), "ok");
    EXPECT_EQ(dyn.reply.uiLength, 4U);
    SocketCache cache{};
    EXPECT_EQ(CachedLine(pair.fd(), cache).text(), "ok");
}

TEST_F(Readers, leave_what_is_behind_the_line_feed)
{
    Pair fixed;
    fixed.write("ok\n\nrest");
    EXPECT_EQ(FixedLine(fixed.fd()).text(), "ok");
    EXPECT_EQ(fixed.rest(), "\nrest");

    Pair dyn;
    dyn.write("ok\n\nrest");
    EXPECT_EQ(DynLine(dyn.fd()).text(), "ok");
    EXPECT_EQ(dyn.rest(), "\nrest");

    Pair cached;
    cached.write("ok\n\nrest");
    SocketCache cache{};
    EXPECT_EQ(CachedLine(cached.fd(), cache).text(), "ok");
    EXPECT_EQ(std::string(cache.acData), "\nrest");
    EXPECT_EQ(cache.uiFill, 5U);
    const CachedLine next(cached.fd(), cache);
    EXPECT_EQ(next.result, 1);
    EXPECT_EQ(next.text(), "");
    EXPECT_EQ(std::string(cache.acData), "rest");
}

TEST_F(Readers, report_a_peer_that_closes_without_a_word)
{
    Pair pair;
    pair.hangUp();
    EXPECT_EQ(FixedLine(pair.fd()).result, -3);
    const DynLine dyn(pair.fd());
    EXPECT_EQ(dyn.result, -3);
    EXPECT_EQ(dyn.reply.pcData, nullptr);
    EXPECT_EQ(dyn.reply.uiLength, 0U);
    SocketCache cache{};
    EXPECT_EQ(CachedLine(pair.fd(), cache).result, -3);
}

TEST_F(Readers, report_a_peer_that_closes_inside_a_line)
{
    Pair fixed;
    fixed.write("half a l").hangUp();
    EXPECT_EQ(FixedLine(fixed.fd()).result, -3);
    Pair dyn;
    dyn.write("half a l").hangUp();
    const DynLine line(dyn.fd());
    EXPECT_EQ(line.result, -3);
    EXPECT_EQ(line.reply.pcData, nullptr);
    Pair cached;
    cached.write("half a l").hangUp();
    SocketCache cache{};
    EXPECT_EQ(CachedLine(cached.fd(), cache).result, -3);
}

TEST_F(Readers, keep_nul_bytes_before_the_line_feed)
{
    const std::string bytes("a\0b\0c\n", 6);
    Pair fixed;
    const FixedLine line((fixed.write(bytes), fixed.fd()));
    EXPECT_EQ(line.result, 1);
    EXPECT_EQ(line.bytes.substr(0, 6), std::string("a\0b\0c\0", 6));
    EXPECT_EQ(fixed.rest(), "");

    Pair dyn;
    const DynLine text((dyn.write(bytes), dyn.fd()));
    EXPECT_EQ(text.result, 1);
    EXPECT_EQ(text.reply.uiLength, 6U);
    EXPECT_EQ(std::string(text.reply.pcData, 6), std::string("a\0b\0c\0", 6));

    Pair cached;
    SocketCache cache{};
    const CachedLine cachedLine((cached.write(bytes), cached.fd()), cache);
    EXPECT_EQ(cachedLine.result, 1);
    EXPECT_EQ(cachedLine.bytes.substr(0, 6), std::string("a\0b\0c\0", 6));
}

TEST_F(Readers, go_on_after_signals)
{
    const support::Alarms alarms(5ms, 5ms);
    Pair pair;
    std::thread late([&pair] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        for (int line = 0; line < 3; ++line) {
            std::this_thread::sleep_for(60ms);
            pair.write("late\n");
        }
    });
    EXPECT_EQ(FixedLine(pair.fd()).text(), "late");
    EXPECT_EQ(DynLine(pair.fd()).text(), "late");
    SocketCache cache{};
    EXPECT_EQ(CachedLine(pair.fd(), cache).text(), "late");
    late.join();
}

TEST_F(Readers, wait_on_descriptors_above_1023)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    rlimit raised = limit;
    raised.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    Pair pair;
    const int high = fcntl(pair.fd(), F_DUPFD_CLOEXEC, 2000);
    ASSERT_GE(high, 2000) << "the machine allows fewer descriptors";
    pair.write("one\ntwo\nthree\n");
    EXPECT_EQ(FixedLine(high).text(), "one");
    EXPECT_EQ(DynLine(high).text(), "two");
    SocketCache cache{};
    EXPECT_EQ(CachedLine(high, cache).text(), "three");
    close(high);
    setrlimit(RLIMIT_NOFILE, &limit);
}

// ---- ReadSocket ----

TEST_F(Readers, fixed_logs_a_complete_line)
{
    Pair pair;
    pair.write("hello\n");
    const SyslogCapture capture;
    EXPECT_EQ(FixedLine(pair.fd()).result, 1);
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_DEBUG,
                                    "ReadSocket: command/reply complete 'hello' (socket " + std::to_string(pair.fd()) + ")"}));
}

TEST_F(Readers, fixed_says_nothing_at_level_0)
{
    SetDebugLevel(0);
    Pair pair;
    pair.write("hello\n").hangUp();
    const SyslogCapture capture;
    EXPECT_EQ(FixedLine(pair.fd()).result, 1);
    EXPECT_EQ(FixedLine(pair.fd()).result, -3);
    EXPECT_EQ(FixedLine(-1).result, -3);
    EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST_F(Readers, fixed_gives_an_empty_text_for_a_lone_line_end)
{
    Pair pair;
    pair.write("\r\n\n");
    const FixedLine first(pair.fd());
    EXPECT_EQ(first.result, 1);
    EXPECT_EQ(first.text(), "");
    const FixedLine second(pair.fd());
    EXPECT_EQ(second.result, 1);
    EXPECT_EQ(second.text(), "");
}

TEST_F(Readers, fixed_takes_1023_characters_and_gives_up_at_1024)
{
    Pair longest;
    longest.write(std::string(1023, 'x') + "\n");
    const FixedLine line(longest.fd());
    EXPECT_EQ(line.result, 1);
    EXPECT_EQ(line.text(), std::string(1023, 'x'));

    Pair over;
    over.write(std::string(1024, 'x') + "\nrest");
    const SyslogCapture capture;
    EXPECT_EQ(FixedLine(over.fd()).result, -3);
    EXPECT_EQ(over.rest(), "\nrest");
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_INFO, "ReadSocket: return -3 (socket " + std::to_string(over.fd()) + ")"}));
}

TEST_F(Readers, fixed_puts_a_line_together_from_pieces)
{
    Pair pair;
    pair.write("first ");
    std::thread late([&pair] {
        std::this_thread::sleep_for(50ms);
        pair.write("second\n");
    });
    EXPECT_EQ(FixedLine(pair.fd()).text(), "first second");
    late.join();
}

TEST_F(Readers, pause_10_ms_after_a_read_that_took_all_there_was)
{
    for (const auto &read : {+[](int fd) { return FixedLine(fd).text(); }, +[](int fd) { return DynLine(fd).text(); }}) {
        Pair pair;
        pair.write("slow");
        // The second piece is sent with the wait after the first, so that nothing but the pause takes time.
        int receives = 0;
        const support::WithSystemCalls calls({.recv = [&](int, void *, std::size_t, int) {
            if (++receives == 2) {
                pair.write(" writer\n");
            }
            return ssize_t{support::kPass};
        }});
        std::string text;
        EXPECT_THAT(timeOf([&] { text = read(pair.fd()); }), AllOf(Ge(10ms), Lt(1000ms)));
        EXPECT_EQ(text, "slow writer");
    }
}

TEST_F(Readers, begin_their_round_again_after_an_interrupted_receive)
{
    const auto interruptedOnce = [](int whichReceive) {
        return support::SystemCalls{.recv = [whichReceive, count = 0](int, void *, std::size_t, int) mutable {
            errno = EINTR;
            return ssize_t{count++ == whichReceive ? -1 : support::kPass};
        }};
    };
    for (const int whichReceive : {0, 1}) {
        Pair pair;
        pair.write("one\ntwo\nthree\n");
        {
            const support::WithSystemCalls calls(interruptedOnce(whichReceive));
            EXPECT_EQ(FixedLine(pair.fd()).text(), "one");
        }
        {
            const support::WithSystemCalls calls(interruptedOnce(whichReceive));
            EXPECT_EQ(DynLine(pair.fd()).text(), "two");
        }
        const support::WithSystemCalls calls(interruptedOnce(0));
        SocketCache cache{};
        EXPECT_EQ(CachedLine(pair.fd(), cache).text(), "three");
    }
}

TEST_F(Readers, end_by_themselves_in_a_thread_that_is_cancelled)
{
    // A cancellation inside would pass functions that let nothing out, and end the process.
    for (const auto &read : {+[](int fd) { return FixedLine(fd).result; }, +[](int fd) { return DynLine(fd).result; },
                             +[](int fd) {
                                 SocketCache cache{};
                                 return CachedLine(fd, cache).result;
                             }}) {
        Pair pair;
        struct Job {
            int fd;
            int (*read)(int);
            std::atomic<int> result{0};
        } job{pair.fd(), read};
        pthread_t thread{};
        ASSERT_EQ(pthread_create(
                      &thread, nullptr,
                      [](void *argument) -> void * {
                          auto *const work = static_cast<Job *>(argument);
                          work->result = work->read(work->fd);
                          return nullptr;
                      },
                      &job),
                  0);
        std::this_thread::sleep_for(50ms);
        pthread_cancel(thread);
        std::this_thread::sleep_for(50ms);
        pair.write("line\n");
        pthread_join(thread, nullptr);
        EXPECT_EQ(job.result, 1);
    }
}

TEST_F(Readers, fixed_waits_4_s_for_data_then_says_so)
{
    Pair pair;
    const SyslogCapture capture;
    int result = 0;
    const auto taken = timeOf([&] { result = FixedLine(pair.fd()).result; });
    EXPECT_EQ(result, -5);
    EXPECT_THAT(taken, AllOf(Ge(3950ms), Lt(6000ms)));
    const std::string socket = std::to_string(pair.fd());
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"", LOG_INFO, "ReadSocket: select(" + socket + ") timeout"},
                                             LogLine{"", LOG_INFO, "ReadSocket: return -5 (socket " + socket + ")"}));
}

TEST_F(Readers, fixed_goes_on_after_a_failed_wait_and_lets_the_receive_tell)
{
    const SyslogCapture capture;
    EXPECT_EQ(FixedLine(-1).result, -3);
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_INFO, "ReadSocket: select(-1) failed with 9 (Bad file descriptor)"},
                            LogLine{"", LOG_DEBUG, "ReadSocket peek: recv(-1) socket closed or socket invalid"},
                            LogLine{"", LOG_INFO, "ReadSocket: return -3 (socket -1)"}));
}

TEST_F(Readers, a_number_that_is_no_descriptor_counts_as_invalid_too)
{
    const int gone = dup(0);
    close(gone);
    EXPECT_EQ(FixedLine(gone).result, -3);
    EXPECT_EQ(DynLine(gone).result, -6);
    SocketCache cache{};
    EXPECT_EQ(CachedLine(gone, cache).result, -6);
}

TEST_F(Readers, what_is_no_socket_is_invalid)
{
    int pipeEnds[2];
    ASSERT_EQ(pipe2(pipeEnds, O_CLOEXEC), 0);
    ASSERT_EQ(write(pipeEnds[1], "x\n", 2), 2);
    const std::string fd = std::to_string(pipeEnds[0]);
    const SyslogCapture capture;
    EXPECT_EQ(FixedLine(pipeEnds[0]).result, -3);
    EXPECT_EQ(DynLine(pipeEnds[0]).result, -3);
    SocketCache cache{};
    EXPECT_EQ(CachedLine(pipeEnds[0], cache).result, -3);
    EXPECT_THAT(capture.texts(), ElementsAre("ReadSocket peek: recv(" + fd + ") socket closed or socket invalid",
                                             "ReadSocket: return -3 (socket " + fd + ")",
                                             "ReadSocketDyn: recv(" + fd + ") socket closed or socket invalid",
                                             "ReadSocketDyn: return -3 (socket " + fd + ")",
                                             "ReadSocketCache: recv(" + fd + ") socket closed or socket invalid",
                                             "ReadSocketCache: return -3 (socket " + fd + ")"));
    close(pipeEnds[0]);
    close(pipeEnds[1]);
}

TEST_F(Readers, a_socket_without_a_peer_is_invalid)
{
    const int unconnected = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(FixedLine(unconnected).result, -3);
    EXPECT_EQ(DynLine(unconnected).result, -3);
    SocketCache cache{};
    EXPECT_EQ(CachedLine(unconnected, cache).result, -3);
    close(unconnected);
}

TEST_F(Readers, a_refused_datagram_socket_is_invalid)
{
    // Sending to a port that nobody has bound comes back as a refused connection at the next receive.
    const int taken = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(taken, reinterpret_cast<const sockaddr *>(&address), length), 0);
    ASSERT_EQ(getsockname(taken, reinterpret_cast<sockaddr *>(&address), &length), 0);
    close(taken);
    const int refused = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(connect(refused, reinterpret_cast<const sockaddr *>(&address), length), 0);
    const std::string fd = std::to_string(refused);
    const SyslogCapture capture;
    for (const auto &read : {+[](int at) { return FixedLine(at).result; }, +[](int at) { return DynLine(at).result; }}) {
        ASSERT_EQ(send(refused, "x", 1, 0), 1);
        EXPECT_EQ(read(refused), -3);
    }
    EXPECT_THAT(capture.texts(), ElementsAre("ReadSocket peek: recv(" + fd + ") socket closed or socket invalid",
                                             "ReadSocket: return -3 (socket " + fd + ")",
                                             "ReadSocketDyn: recv(" + fd + ") socket closed or socket invalid",
                                             "ReadSocketDyn: return -3 (socket " + fd + ")"));
    close(refused);
}

TEST_F(Readers, any_other_receive_error_is_told_with_its_number)
{
    // A peer that closes with bytes unread resets the connection.
    int ends[2];
    const auto reset = [&ends] {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        ASSERT_EQ(send(ends[0], "unread", 6, MSG_NOSIGNAL), 6);
        close(ends[1]);
    };

    const SyslogCapture capture;
    reset();
    const std::string fd = std::to_string(ends[0]);
    EXPECT_EQ(FixedLine(ends[0]).result, -1);
    close(ends[0]);
    reset();
    const DynLine dyn(ends[0]);
    EXPECT_EQ(dyn.result, -1);
    EXPECT_EQ(dyn.reply.pcData, nullptr);
    close(ends[0]);
    reset();
    SocketCache cache{};
    EXPECT_EQ(CachedLine(ends[0], cache).result, -1);
    close(ends[0]);
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_DEBUG, "ReadSocket peek: recv(" + fd + ") errno=104 (Connection reset by peer)"},
                            LogLine{"", LOG_INFO, "ReadSocket: return -1 (socket " + fd + ")"},
                            LogLine{"", LOG_DEBUG, "ReadSocketDyn: recv(" + fd + ") errno=104 (Connection reset by peer)"},
                            LogLine{"", LOG_INFO, "ReadSocketDyn: return -1 (socket " + fd + ")"},
                            LogLine{"", LOG_DEBUG, "ReadSocketCache: recv(" + fd + ") errno=104 (Connection reset by peer)"},
                            LogLine{"", LOG_DEBUG, "ReadSocketCache: return -1 (socket " + fd + ")"}));
}

// ---- ReadSocketDyn ----

TEST_F(Readers, dyn_refuses_a_null_reply_silently)
{
    Pair pair;
    pair.write("ok\n");
    const SyslogCapture capture;
    EXPECT_EQ(ReadSocketDyn(pair.fd(), nullptr), -1);
    EXPECT_THAT(capture.lines(), IsEmpty());
    EXPECT_EQ(pair.rest(), "ok\n");
}

TEST_F(Readers, dyn_logs_a_complete_line)
{
    Pair pair;
    pair.write("hello\n");
    const SyslogCapture capture;
    EXPECT_EQ(DynLine(pair.fd()).result, 1);
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"", LOG_DEBUG,
                                                     "ReadSocketDyn: command/reply complete 'hello' (socket " +
                                                         std::to_string(pair.fd()) + ")"}));
}

TEST_F(Readers, dyn_takes_all_line_ends_off_the_end_of_the_line)
{
    Pair pair;
    pair.write("a\rb\r\r\n");
    const DynLine line(pair.fd());
    EXPECT_EQ(line.text(), "a\rb");
    EXPECT_EQ(line.reply.uiLength, 6U);
}

TEST_F(Readers, dyn_gives_an_empty_text_for_a_lone_line_feed)
{
    Pair pair;
    pair.write("\n");
    const DynLine line(pair.fd());
    EXPECT_EQ(line.result, 1);
    EXPECT_EQ(line.text(), "");
    EXPECT_EQ(line.reply.uiLength, 1U);
}

TEST_F(Readers, dyn_collects_a_10_mb_line_quickly)
{
    Pair pair;
    const std::string line(10'000'000, 'x');
    std::thread writer([&] { pair.write(line + "\nrest"); });
    std::string text;
    const auto taken = timeOf([&] {
        const DynLine read(pair.fd());
        text = read.text();
        EXPECT_EQ(read.reply.uiLength, 10'000'001U);
    });
    writer.join();
    EXPECT_TRUE(text == line);
    EXPECT_EQ(pair.rest(), "rest");
    // 10 000 rounds with a pause after each would take 100 s.
    EXPECT_LT(taken, 20s);
}

TEST_F(Readers, dyn_goes_on_collecting_where_fixed_gives_up)
{
    Pair pair;
    pair.write(std::string(1024, 'x'));
    std::thread late([&pair] {
        std::this_thread::sleep_for(50ms);
        pair.write("y\n");
    });
    EXPECT_EQ(DynLine(pair.fd()).text(), std::string(1024, 'x') + "y");
    late.join();

    Pair closing;
    closing.write(std::string(1024, 'x')).hangUp();
    EXPECT_EQ(DynLine(closing.fd()).result, -3);
}

TEST_F(Readers, dyn_does_not_pause_where_bytes_are_left)
{
    Pair pair;
    pair.write(std::string(20 * 1024, 'x') + "\n");
    // Twenty rounds with a pause each would take 200 ms.
    EXPECT_LT(timeOf([&] { EXPECT_EQ(DynLine(pair.fd()).text().size(), 20U * 1024); }), 150ms);
}

TEST_F(Readers, dyn_waits_4_s_for_data)
{
    Pair pair;
    pair.write(std::string(1024, 'x'));
    const SyslogCapture capture;
    int result = 0;
    const auto taken = timeOf([&] {
        const DynLine line(pair.fd());
        result = line.result;
        EXPECT_EQ(line.reply.pcData, nullptr);
        EXPECT_EQ(line.reply.uiLength, 0U);
    });
    EXPECT_EQ(result, -5);
    EXPECT_THAT(taken, AllOf(Ge(3950ms), Lt(6000ms)));
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_INFO, "ReadSocketDyn: return -5 (socket " + std::to_string(pair.fd()) + ")"}));
}

TEST_F(Readers, dyn_tells_a_failed_wait_apart)
{
    const SyslogCapture capture;
    const DynLine line(-1);
    EXPECT_EQ(line.result, -6);
    EXPECT_EQ(line.reply.pcData, nullptr);
    EXPECT_THAT(
        capture.lines(),
        ElementsAre(LogLine{"", LOG_DEBUG, "ReadSocketDyn: select(-1) returns -1 errno:9 (Bad file descriptor) serrno:9"},
                    LogLine{"", LOG_INFO, "ReadSocketDyn: return -6 (socket -1)"}));
}

TEST_F(Readers, dyn_tells_when_memory_runs_out_and_leaves_the_line)
{
    if (const char *reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    Pair pair;
    pair.write("hello\n");
    DynBuffer reply{const_cast<char *>("stale"), 77};
    int result = 0;
    {
        const support::FailingAllocations noMemory;
        result = ReadSocketDyn(pair.fd(), &reply);
    }
    EXPECT_EQ(result, -8);
    EXPECT_EQ(reply.pcData, nullptr);
    EXPECT_EQ(reply.uiLength, 0U);
    EXPECT_EQ(DynLine(pair.fd()).text(), "hello");
}

TEST_F(Readers, dyn_gives_back_what_it_had_collected_when_memory_runs_out)
{
    if (const char *reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    Pair pair;
    pair.write("first\n");
    DynBuffer first{};
    ASSERT_EQ(ReadSocketDyn(pair.fd(), &first), 1) << "what is allocated once for all is allocated now";
    std::free(first.pcData);
    pair.write(std::string(1024, 'x') + std::string(1024, 'y') + "\n");
    DynBuffer reply{const_cast<char *>("stale"), 77};
    int result = 0;
    {
        const support::FailingAllocations noMoreMemory(1);
        result = ReadSocketDyn(pair.fd(), &reply);
    }
    EXPECT_EQ(result, -8);
    EXPECT_EQ(pair.rest(), std::string(1024, 'y') + "\n") << "the second round was not taken";
    EXPECT_EQ(reply.pcData, nullptr);
    EXPECT_EQ(reply.uiLength, 0U);
}

// ---- ReadSocketCache ----

TEST_F(Readers, cache_keeps_a_carriage_return_that_stands_alone)
{
    Pair pair;
    pair.write("\r\n");
    SocketCache cache{};
    const CachedLine line(pair.fd(), cache);
    EXPECT_EQ(line.result, 1);
    EXPECT_EQ(line.text(), "\r");
}

TEST_F(Readers, cache_takes_a_tagged_pong_without_a_log_line)
{
    Pair pair;
    pair.write("001:pong\n001:pong \n");
    SocketCache cache{};
    const SyslogCapture capture;
    const CachedLine pong(pair.fd(), cache);
    EXPECT_EQ(pong.result, 1);
    EXPECT_EQ(pong.text(), "001:pong");
    EXPECT_THAT(capture.lines(), IsEmpty());
    EXPECT_EQ(CachedLine(pair.fd(), cache).text(), "001:pong ");
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"", LOG_DEBUG,
                                                     "ReadSocketCache: command/reply complete '001:pong ' (socket " +
                                                         std::to_string(pair.fd()) + ")"}));
}

TEST_F(Readers, cache_with_a_beginning_gives_empty_lines_until_it_is_cleared)
{
    Pair pair;
    pair.write("ok\nbegin");
    SocketCache cache{};
    EXPECT_EQ(CachedLine(pair.fd(), cache).text(), "ok");
    pair.write("ning\n");
    for (int call = 0; call < 3; ++call) {
        const CachedLine line(pair.fd(), cache);
        EXPECT_EQ(line.result, 1);
        EXPECT_EQ(line.text(), "");
    }
    EXPECT_EQ(pair.rest(), "ning\n") << "the socket is not read meanwhile";
    cache = {};
    pair.write("fresh\n");
    EXPECT_EQ(CachedLine(pair.fd(), cache).text(), "fresh");
}

TEST_F(Readers, cache_puts_a_line_together_from_pieces)
{
    Pair pair;
    pair.write("first ");
    std::thread late([&pair] {
        std::this_thread::sleep_for(50ms);
        pair.write("second\nthird\n");
    });
    SocketCache cache{};
    EXPECT_EQ(CachedLine(pair.fd(), cache).text(), "first second");
    late.join();
    EXPECT_EQ(CachedLine(pair.fd(), cache).text(), "third");
    EXPECT_EQ(cache.uiFill, 0U);
}

TEST_F(Readers, cache_takes_1023_characters_and_counts_a_full_cache_as_a_closed_peer)
{
    Pair longest;
    longest.write(std::string(1023, 'x') + "\n");
    SocketCache cache{};
    EXPECT_EQ(CachedLine(longest.fd(), cache).text(), std::string(1023, 'x'));

    Pair over;
    over.write(std::string(1100, 'x') + "\n");
    SocketCache full{};
    const SyslogCapture capture;
    EXPECT_EQ(CachedLine(over.fd(), full).result, -3);
    EXPECT_EQ(full.uiFill, 1024U);
    EXPECT_EQ(full.acData[1024], '\0');
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_DEBUG, "ReadSocketCache: return -3 (socket " + std::to_string(over.fd()) + ")"}));
}

TEST_F(Readers, cache_times_out_silently_after_the_callers_time)
{
    Pair pair;
    SocketCache cache{};
    const SyslogCapture capture;
    int result = 0;
    EXPECT_THAT(timeOf([&] { result = CachedLine(pair.fd(), cache, 1200).result; }), AllOf(Ge(1190ms), Lt(3000ms)));
    EXPECT_EQ(result, -5);
    EXPECT_LT(timeOf([&] { result = CachedLine(pair.fd(), cache, 0).result; }), 500ms);
    EXPECT_EQ(result, -5);
    EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST_F(Readers, cache_tells_a_failed_wait_apart)
{
    SocketCache cache{};
    const SyslogCapture capture;
    EXPECT_EQ(CachedLine(-1, cache).result, -6);
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_DEBUG, "ReadSocketCache: select(-1) returns -1 errno:9 (Bad file descriptor)"},
                            LogLine{"", LOG_DEBUG, "ReadSocketCache: return -6 (socket -1)"}));
}

}  // namespace
