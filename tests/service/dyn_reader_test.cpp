// ReadSocketDyn, which reads a line of any length into newly allocated memory.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "service/connection.h"
#include "service/readers_fixture.h"
#include "support/counted_pauses.h"
#include "support/failing_allocations.h"
#include "support/syslog_capture.h"
#include "support/time_of.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <string>
#include <syslog.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

using service_test::DynLine;
using service_test::Pair;
using DynReader = service_test::Readers;
using support::LogLine;
using support::SyslogCapture;
using support::timeOf;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;

TEST_F(DynReader, refuses_a_null_reply_silently)
{
    Pair pair;
    pair.write("ok\n");
    const SyslogCapture capture;
    EXPECT_EQ(ReadSocketDyn(pair.fd(), nullptr), -1);
    EXPECT_THAT(capture.lines(), IsEmpty());
    EXPECT_EQ(pair.rest(), "ok\n");
}

TEST_F(DynReader, logs_a_complete_line)
{
    Pair pair;
    pair.write("hello\n");
    const SyslogCapture capture;
    EXPECT_EQ(DynLine(pair.fd()).result, 1);
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"", LOG_DEBUG,
                                                     "ReadSocketDyn: command/reply complete 'hello' (socket " +
                                                         std::to_string(pair.fd()) + ")"}));
}

TEST_F(DynReader, removes_all_line_ends_at_the_end_of_the_line)
{
    Pair pair;
    pair.write("a\rb\r\r\n");
    const DynLine line(pair.fd());
    EXPECT_EQ(line.text(), "a\rb");
    EXPECT_EQ(line.reply.uiLength, 6U);
}

TEST_F(DynReader, returns_an_empty_text_for_a_single_line_feed)
{
    Pair pair;
    pair.write("\n");
    const DynLine line(pair.fd());
    EXPECT_EQ(line.result, 1);
    EXPECT_EQ(line.text(), "");
    EXPECT_EQ(line.reply.uiLength, 1U);
}

TEST_F(DynReader, reads_a_10_mb_line_quickly)
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

TEST_F(DynReader, continues_where_fixed_gives_up)
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

TEST_F(DynReader, does_not_pause_while_bytes_are_left)
{
    Pair pair;
    pair.write(std::string(20 * 1024, 'x') + "\n");
    const support::CountedPauses pauses;
    EXPECT_EQ(DynLine(pair.fd()).text().size(), 20U * 1024);
    EXPECT_LE(pauses.count(), 1) << "in twenty rounds";
}

TEST_F(DynReader, waits_4_s_for_data)
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

TEST_F(DynReader, has_its_own_result_for_a_failed_wait)
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

TEST_F(DynReader, reports_that_memory_runs_out_and_leaves_the_line)
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

TEST_F(DynReader, frees_what_it_has_read_when_memory_runs_out)
{
    if (const char *reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    Pair pair;
    pair.write("first\n");
    DynBuffer first{};
    ASSERT_EQ(ReadSocketDyn(pair.fd(), &first), 1) << "one-time allocations happen now";
    std::free(first.pcData);
    pair.write(std::string(1024, 'x') + std::string(1024, 'y') + "\n");
    DynBuffer reply{const_cast<char *>("stale"), 77};
    int result = 0;
    {
        const support::FailingAllocations noMoreMemory(1);
        result = ReadSocketDyn(pair.fd(), &reply);
    }
    EXPECT_EQ(result, -8);
    EXPECT_EQ(pair.rest(), std::string(1024, 'y') + "\n") << "the second round was not read";
    EXPECT_EQ(reply.pcData, nullptr);
    EXPECT_EQ(reply.uiLength, 0U);
}

}  // namespace
