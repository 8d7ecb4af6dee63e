// Lines that ReadSocketDyn reads in several rounds: how much it peeks at, what it reads, and when it pauses.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "service/connection.h"
#include "support/failing_allocations.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"

#include <algorithm>
#include <cerrno>
#include <gmock/gmock.h>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using service_test::DynLine;
using service_test::Pair;
using support::SyslogCapture;
using support::SystemCalls;
using support::WithSystemCalls;
using testing::Each;
using testing::ElementsAre;
using testing::Le;

/// @p count characters, each different from its neighbours, within a round and from one round to the next.
std::string characters(std::size_t count)
{
    std::string text(count, '\0');
    for (std::size_t at = 0; at < count; ++at) {
        text[at] = static_cast<char>('!' + (at + at / 1021) % 89);
    }
    return text;
}

/// The receives of one line: the sizes of the peeks and of the reads, and the number of pauses between them.
class Rounds {
public:
    [[nodiscard]] const std::vector<std::size_t> &peeks() const { return peeks_; }
    [[nodiscard]] const std::vector<std::size_t> &takes() const { return takes_; }
    [[nodiscard]] int pauses() const { return pauses_; }

    /// Counts the calls and lets each of them through.
    [[nodiscard]] SystemCalls counting()
    {
        return {.recv =
                    [this](int, void *, std::size_t length, int flags) {
                        ((flags & MSG_PEEK) != 0 ? peeks_ : takes_).push_back(length);
                        return ssize_t{support::kPassThrough};
                    },
                .clockNanosleep =
                    [this](const timespec *) {
                        ++pauses_;
                        return int{support::kPassThrough};
                    }};
    }

private:
    std::vector<std::size_t> peeks_;
    std::vector<std::size_t> takes_;
    int pauses_ = 0;
};

class LongLines : public testing::Test {
protected:
    void SetUp() override { SetDebugLevel(2); }
    void TearDown() override { SetDebugLevel(0); }
};

TEST_F(LongLines, are_peeked_at_1024_bytes_first_and_then_in_growing_rounds_up_to_64_kib)
{
    Pair pair;
    pair.write(characters(150'000) + "\nrest");
    Rounds rounds;
    {
        const WithSystemCalls calls(rounds.counting());
        EXPECT_TRUE(DynLine(pair.fd()).text() == characters(150'000));
    }
    EXPECT_THAT(rounds.peeks(), ElementsAre(1024, 4096, 20480, 65536, 65536));
    EXPECT_THAT(rounds.takes(), ElementsAre(1024, 4096, 20480, 65536, 150'001 - 1024 - 4096 - 20480 - 65536));
    EXPECT_EQ(rounds.pauses(), 0);
    EXPECT_EQ(pair.rest(), "rest");
}

TEST_F(LongLines, are_never_peeked_at_more_than_64_kib_at_a_time)
{
    Pair pair;
    const std::string line = characters(3'000'000);
    std::thread writer([&] { pair.write(line + "\nrest"); });
    Rounds rounds;
    {
        const WithSystemCalls calls(rounds.counting());
        EXPECT_TRUE(DynLine(pair.fd()).text() == line);
    }
    writer.join();
    EXPECT_THAT(rounds.peeks(), Each(Le(65536U)));
    EXPECT_EQ(std::ranges::max(rounds.peeks()), 65536U);
    EXPECT_EQ(pair.rest(), "rest");
}

TEST_F(LongLines, are_peeked_at_1024_bytes_at_a_time_until_that_many_have_arrived)
{
    Pair pair;
    Rounds rounds;
    SystemCalls calls = rounds.counting();
    constexpr std::size_t kPiece = 300;
    std::size_t pieces = 0;
    calls.poll = [&](pollfd *, nfds_t, int) {
        if (++pieces <= 6) {
            pair.write(pieces < 6 ? characters(kPiece) : "\n");
        }
        return int{support::kPassThrough};
    };
    {
        const WithSystemCalls replaced(std::move(calls));
        EXPECT_EQ(DynLine(pair.fd()).text().size(), 5 * kPiece);
    }
    EXPECT_THAT(rounds.peeks(), ElementsAre(1024, 1024, 1024, 1024, 4 * 4 * kPiece, 4 * 5 * kPiece));
    EXPECT_EQ(rounds.pauses(), 5);
}

TEST_F(LongLines, cause_no_pause_after_a_round_of_1024_bytes)
{
    struct Case {
        std::size_t length;
        int pauses;
    };
    // The first round reads 1024 of them and the second one the rest; the line feed arrives when the socket is empty.
    for (const Case &row : {Case{1023, 1}, Case{1024, 0}, Case{1025, 1}, Case{2047, 1}, Case{2048, 0}, Case{4000, 0}}) {
        Pair pair;
        pair.write(characters(row.length));
        Rounds rounds;
        SystemCalls calls = rounds.counting();
        bool ended = false;
        calls.poll = [&](pollfd *waiting, nfds_t, int) {
            char next;
            if (!ended && recv(waiting->fd, &next, 1, MSG_PEEK | MSG_DONTWAIT) < 0) {
                pair.write("\n");
                ended = true;
            }
            return int{support::kPassThrough};
        };
        {
            const WithSystemCalls replaced(std::move(calls));
            EXPECT_EQ(DynLine(pair.fd()).text(), characters(row.length));
        }
        EXPECT_EQ(rounds.pauses(), row.pauses) << row.length;
    }
}

// ---- Line ends around each border between rounds, and around the powers of two ----

class LineOfLength : public testing::TestWithParam<std::size_t> {};

TEST_P(LineOfLength, is_read_completely_and_nothing_after_it)
{
    const std::size_t length = GetParam();  // with its line feed
    const std::string rest = characters(3000) + "\n";
    Pair pair;
    pair.write(characters(length - 1) + "\n" + rest);
    {
        const DynLine line(pair.fd());
        EXPECT_EQ(line.result, 1);
        EXPECT_EQ(line.reply.uiLength, length);
        EXPECT_TRUE(line.text() == characters(length - 1));
    }
    EXPECT_EQ(pair.rest(), rest);
}

TEST_P(LineOfLength, may_end_with_a_carriage_return)
{
    const std::size_t length = GetParam();
    Pair pair;
    pair.write(characters(length - 2) + "\r\nrest");
    {
        const DynLine line(pair.fd());
        EXPECT_EQ(line.reply.uiLength, length);
        EXPECT_TRUE(line.text() == characters(length - 2));
    }
    EXPECT_EQ(pair.rest(), "rest");
}

TEST_P(LineOfLength, without_an_end_is_a_closed_connection)
{
    Pair pair;
    pair.write(characters(GetParam())).hangUp();
    const DynLine line(pair.fd());
    EXPECT_EQ(line.result, -3);
    EXPECT_EQ(line.reply.pcData, nullptr);
    EXPECT_EQ(line.reply.uiLength, 0U);
}

std::vector<std::size_t> aroundEachBorder()
{
    std::vector<std::size_t> lengths;
    for (const std::size_t border : {1024U, 2048U, 4096U, 8192U, 16384U, 32768U, 65536U,  // powers of two
                                     1024U + 4096U, 1024U + 4096U + 20480U,               // where rounds end
                                     1024U + 4096U + 20480U + 65536U}) {
        lengths.insert(lengths.end(), {border - 1, border, border + 1});
    }
    return lengths;
}

INSTANTIATE_TEST_SUITE_P(Around, LineOfLength, testing::ValuesIn(aroundEachBorder()),
                         [](const auto &row) { return std::to_string(row.param) + "_bytes"; });

// ---- Failures in a large round ----

constexpr std::size_t kBegin = 1024 + 4096 + 5000;  // within the third round

TEST_F(LongLines, that_stop_arriving_time_out)
{
    Pair pair;
    pair.write(characters(kBegin));
    int waits = 0;
    const SyslogCapture capture;
    const WithSystemCalls calls({.poll = [&](pollfd *, nfds_t, int milliseconds) {
        EXPECT_EQ(milliseconds, 4000);
        return ++waits <= 3 ? int{support::kPassThrough} : 0;
    }});
    const DynLine line(pair.fd());
    EXPECT_EQ(line.result, -5);
    EXPECT_EQ(line.reply.pcData, nullptr);
    EXPECT_EQ(line.reply.uiLength, 0U);
    EXPECT_THAT(capture.texts(), ElementsAre("ReadSocketDyn: return -5 (socket " + std::to_string(pair.fd()) + ")"));
}

TEST_F(LongLines, report_a_failed_wait)
{
    Pair pair;
    pair.write(characters(kBegin));
    int waits = 0;
    const SyslogCapture capture;
    const WithSystemCalls calls({.poll = [&](pollfd *, nfds_t, int) {
        errno = ENOMEM;
        return ++waits <= 3 ? int{support::kPassThrough} : -1;
    }});
    EXPECT_EQ(DynLine(pair.fd()).result, -6);
    const std::string fd = std::to_string(pair.fd());
    EXPECT_THAT(capture.texts(),
                ElementsAre("ReadSocketDyn: select(" + fd + ") returns -1 errno:12 (Cannot allocate memory) serrno:12",
                            "ReadSocketDyn: return -6 (socket " + fd + ")"));
}

TEST_F(LongLines, report_a_failed_receive)
{
    for (const int failing : {4, 5}) {  // the third round's peek, and its read
        Pair pair;
        pair.write(characters(kBegin) + "\n");
        int receives = 0;
        const SyslogCapture capture;
        const WithSystemCalls calls({.recv = [&](int, void *, std::size_t, int) {
            errno = ECONNRESET;
            return ssize_t{receives++ == failing ? -1 : support::kPassThrough};
        }});
        EXPECT_EQ(DynLine(pair.fd()).result, -1);
        const std::string fd = std::to_string(pair.fd());
        EXPECT_THAT(capture.texts(), ElementsAre("ReadSocketDyn: recv(" + fd + ") errno=104 (Connection reset by peer)",
                                                 "ReadSocketDyn: return -1 (socket " + fd + ")"));
    }
}

TEST_F(LongLines, continue_after_an_interrupted_receive)
{
    for (const int interrupted : {2, 3, 4, 5}) {
        Pair pair;
        pair.write(characters(kBegin) + "\nrest");
        int receives = 0;
        {
            const WithSystemCalls calls({.recv = [&](int, void *, std::size_t, int) {
                errno = EINTR;
                return ssize_t{receives++ == interrupted ? -1 : support::kPassThrough};
            }});
            EXPECT_EQ(DynLine(pair.fd()).text(), characters(kBegin));
        }
        EXPECT_EQ(pair.rest(), "rest");
    }
}

TEST_F(LongLines, continue_when_less_is_read_than_was_seen)
{
    Pair pair;
    pair.write(characters(kBegin) + "\nrest");
    {
        const WithSystemCalls calls({.recv = [&](int fd, void *bytes, std::size_t length, int flags) {
            return (flags & MSG_PEEK) != 0 ? ssize_t{support::kPassThrough} : read(fd, bytes, (length + 1) / 2);
        }});
        EXPECT_EQ(DynLine(pair.fd()).text(), characters(kBegin));
    }
    EXPECT_EQ(pair.rest(), "rest");
}

class LongLinesWithoutMemory : public LongLines {
protected:
    void SetUp() override
    {
        LongLines::SetUp();
        if (const char *reason = support::FailingAllocations::unavailable()) {
            GTEST_SKIP() << reason;
        }
        // The first line makes the allocations that happen only once.
        Pair pair;
        pair.write("first\n");
        ASSERT_EQ(DynLine(pair.fd()).text(), "first");
    }

    /// Reads a line with only @p granted allocations.
    static int readWith(int granted, int fd, DynBuffer &reply)
    {
        const support::FailingAllocations noMoreMemory(granted);
        return ReadSocketDyn(fd, &reply);
    }
};

TEST_F(LongLinesWithoutMemory, leave_the_unread_rounds_in_the_socket)
{
    const std::string line = characters(30'000) + "\n";
    const std::size_t taken[] = {0, 1024, 1024 + 4096};
    for (int granted = 0; granted < 3; ++granted) {
        Pair pair;
        pair.write(line);
        DynBuffer reply{const_cast<char *>("stale"), 77};
        EXPECT_EQ(readWith(granted, pair.fd(), reply), -8);
        EXPECT_EQ(reply.pcData, nullptr);
        EXPECT_EQ(reply.uiLength, 0U);
        EXPECT_EQ(DynLine(pair.fd()).text() + "\n", line.substr(taken[granted])) << granted;
    }
}

TEST_F(LongLinesWithoutMemory, still_report_a_closed_connection)
{
    Pair pair;
    pair.write(characters(1024)).hangUp();
    DynBuffer reply{};
    EXPECT_EQ(readWith(1, pair.fd(), reply), -3);
}

TEST_F(LongLinesWithoutMemory, continue_in_small_rounds_until_memory_suffices_for_large_ones)
{
    Pair pair;
    pair.write(characters(kBegin) + "\nrest");
    std::vector<std::size_t> peeks;
    peeks.reserve(16);
    DynBuffer reply{};
    {
        // Memory is available again as soon as the reader peeks at the second round.
        std::optional<support::WorkingAllocations> memory;
        const WithSystemCalls calls({.recv = [&](int, void *, std::size_t length, int flags) {
            if ((flags & MSG_PEEK) != 0) {
                peeks.push_back(length);
                if (peeks.size() == 2) {
                    memory.emplace();
                }
            }
            return ssize_t{support::kPassThrough};
        }});
        const support::FailingAllocations noMoreMemory(1);
        EXPECT_EQ(ReadSocketDyn(pair.fd(), &reply), 1);
        memory.reset();
    }
    EXPECT_EQ(std::string(reply.pcData), characters(kBegin));
    std::free(reply.pcData);
    EXPECT_THAT(peeks, ElementsAre(1024, 1024, 4 * 2048));
    EXPECT_EQ(pair.rest(), "rest");
}

}  // namespace
