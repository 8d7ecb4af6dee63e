// Common behaviour of the three line readers.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "service/connection.h"
#include "service/readers_fixture.h"
#include "support/alarms.h"
#include "support/system_calls.h"
#include "support/time_of.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

using service_test::CachedLine;
using service_test::DynLine;
using service_test::FixedLine;
using service_test::Pair;
using service_test::Readers;
using support::timeOf;
using testing::AllOf;
using testing::Ge;
using testing::Lt;

TEST_F(Readers, remove_a_carriage_return_with_the_line_feed)
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

TEST_F(Readers, leave_the_bytes_after_the_line_feed)
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

TEST_F(Readers, report_a_peer_that_closes_without_data)
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

TEST_F(Readers, continue_after_signals)
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

TEST_F(Readers, pause_10_ms_after_a_read_that_emptied_the_socket)
{
    for (const auto &read : {+[](int fd) { return FixedLine(fd).text(); }, +[](int fd) { return DynLine(fd).text(); }}) {
        Pair pair;
        pair.write("slow");
        // The test sends the second piece during the wait after the first, so only the pause takes time.
        int receives = 0;
        const support::WithSystemCalls calls({.recv = [&](int, void *, std::size_t, int) {
            if (++receives == 2) {
                pair.write(" writer\n");
            }
            return ssize_t{support::kPassThrough};
        }});
        std::string text;
        EXPECT_THAT(timeOf([&] { text = read(pair.fd()); }), AllOf(Ge(10ms), Lt(1000ms)));
        EXPECT_EQ(text, "slow writer");
    }
}

TEST_F(Readers, repeat_a_round_after_an_interrupted_receive)
{
    const auto interruptedOnce = [](int whichReceive) {
        return support::SystemCalls{.recv = [whichReceive, count = 0](int, void *, std::size_t, int) mutable {
            errno = EINTR;
            return ssize_t{count++ == whichReceive ? -1 : support::kPassThrough};
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

TEST_F(Readers, complete_in_a_thread_that_is_cancelled)
{
    // A cancellation inside a reader would unwind through noexcept functions and end the process.
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

}  // namespace
