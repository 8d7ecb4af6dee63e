// ReadSocketCache, which keeps the beginning of a line for the next call.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "service/connection.h"
#include "service/readers_fixture.h"
#include "support/syslog_capture.h"
#include "support/time_of.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <gmock/gmock.h>
#include <string>
#include <syslog.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

using service_test::CachedLine;
using service_test::Pair;
using CacheReader = service_test::Readers;
using support::LogLine;
using support::SyslogCapture;
using support::timeOf;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;

TEST_F(CacheReader, keeps_a_single_carriage_return)
{
    Pair pair;
    pair.write("\r\n");
    SocketCache cache{};
    const CachedLine line(pair.fd(), cache);
    EXPECT_EQ(line.result, 1);
    EXPECT_EQ(line.text(), "\r");
}

TEST_F(CacheReader, accepts_a_tagged_pong_without_logging_it)
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

TEST_F(CacheReader, with_a_partial_line_returns_empty_lines_until_it_is_cleared)
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

TEST_F(CacheReader, assembles_a_line_from_pieces)
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

TEST_F(CacheReader, holds_1023_characters_and_reports_a_full_cache_as_a_closed_connection)
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

TEST_F(CacheReader, times_out_silently_after_the_callers_time)
{
    Pair pair;
    SocketCache cache{};
    const SyslogCapture capture;
    int result = 0;
    EXPECT_THAT(timeOf([&] { result = CachedLine(pair.fd(), cache, 1200).result; }), AllOf(Ge(1190ms), Lt(3000ms)));
    EXPECT_EQ(result, -5);
    EXPECT_LT(timeOf([&] { result = CachedLine(pair.fd(), cache, 0).result; }), 3s);
    EXPECT_EQ(result, -5);
    EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST_F(CacheReader, has_its_own_result_for_a_failed_wait)
{
    SocketCache cache{};
    const SyslogCapture capture;
    EXPECT_EQ(CachedLine(-1, cache).result, -6);
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_DEBUG, "ReadSocketCache: select(-1) returns -1 errno:9 (Bad file descriptor)"},
                            LogLine{"", LOG_DEBUG, "ReadSocketCache: return -6 (socket -1)"}));
}

}  // namespace
