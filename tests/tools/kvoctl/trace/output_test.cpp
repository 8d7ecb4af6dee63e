// The queue and the thread that writes lines: a slow reader and a closed pipe delay no program, and nothing is lost without a count.
#include "observed.h"

#include "kvoctl/trace/trace_output.h"

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace kvoctl_test {

namespace {

using kvoctl::Note;
using kvoctl::Observed;
using kvoctl::ObservedExchange;
using kvoctl::ObservedQueue;
using kvoctl::TraceOutput;
using std::chrono::steady_clock;
using tools::Descriptor;

std::string requestOf(const Observed &item) { return joined(std::get<ObservedExchange>(item).exchange.request); }

// ---- The queue ----

TEST(ObservedQueue, keeps_the_order)
{
    ObservedQueue queue(kLarge);
    EXPECT_FALSE(isReadable(queue.descriptor()));
    queue.put(observed("a"));
    queue.put(Note{1s, "b"});
    EXPECT_TRUE(isReadable(queue.descriptor()));
    EXPECT_EQ(requestOf(*queue.take()), "a");
    EXPECT_TRUE(isReadable(queue.descriptor()));
    EXPECT_EQ(std::get<Note>(*queue.take()).text, "b");
    EXPECT_FALSE(isReadable(queue.descriptor()));
    EXPECT_EQ(queue.take(), std::nullopt);
}

TEST(ObservedQueue, drops_and_counts_exchanges_but_no_notes_when_it_is_full)
{
    ObservedQueue queue(10'000);
    for (int i = 0; i < 5; ++i) {
        queue.put(observed(std::string(4000, static_cast<char>('a' + i))));
    }
    queue.put(Note{1s, "note"});
    EXPECT_EQ(queue.dropped(), 3U);
    EXPECT_EQ(requestOf(*queue.take()).front(), 'a');
    queue.put(observed(std::string(4000, 'x')));
    EXPECT_EQ(queue.dropped(), 3U);
    EXPECT_EQ(requestOf(*queue.take()).front(), 'b');
    EXPECT_EQ(std::get<Note>(*queue.take()).text, "note");
    EXPECT_EQ(requestOf(*queue.take()).front(), 'x');
}

TEST(ObservedQueue, takes_one_exchange_that_is_longer_than_its_limit)
{
    ObservedQueue queue(100);
    queue.put(observed("a", std::string(5000, 'x')));
    queue.put(observed("b"));
    EXPECT_EQ(requestOf(*queue.take()), "a");
    EXPECT_EQ(queue.dropped(), 1U);
}

TEST(ObservedQueue, counts_the_memory_of_small_pieces)
{
    constexpr std::size_t kBytes = 10'000;
    const auto piecewise = [] {
        ObservedExchange item = observed("a");
        item.exchange.reply.assign(kBytes, {0us, "x"});
        return item;
    };
    ObservedQueue queue(20 * kBytes);
    queue.put(piecewise());
    queue.put(piecewise());
    EXPECT_EQ(queue.dropped(), 1U);
    // What was taken makes room again.
    queue.take();
    queue.put(piecewise());
    EXPECT_EQ(queue.dropped(), 1U);
}

TEST(ObservedQueue, leaves_out_a_note_that_repeats_the_last_one_within_10_seconds)
{
    ObservedQueue queue(kLarge);
    for (const auto &[at, text] : {std::pair{1s, "a"}, {2s, "a"}, {10s, "a"}, {11s, "a"}, {12s, "b"}, {13s, "a"}}) {
        queue.put(Note{at, text});
        queue.put(observed("between"));
    }
    std::string texts;
    while (const std::optional<Observed> item = queue.take()) {
        if (const auto *note = std::get_if<Note>(&*item)) {
            texts += note->text;
        }
    }
    EXPECT_EQ(texts, "aaba");
    EXPECT_EQ(queue.droppedNotes(), 0U);
}

TEST(ObservedQueue, drops_and_counts_notes_that_would_fill_the_memory)
{
    ObservedQueue queue(1000);
    constexpr uint64_t kCount = 50;
    for (uint64_t i = 0; i < kCount; ++i) {
        queue.put(Note{1s, std::string(100'000, 'x') + std::to_string(i)});
    }
    uint64_t kept = 0;
    while (queue.take()) {
        ++kept;
    }
    EXPECT_GT(kept, 2U);
    EXPECT_LE(kept, 11U);
    EXPECT_EQ(queue.droppedNotes(), kCount - kept);
}

TEST(ObservedQueue, is_finished_when_it_is_closed_and_empty)
{
    ObservedQueue queue(kLarge);
    queue.put(observed("a"));
    queue.close();
    EXPECT_FALSE(queue.isFinished());
    queue.take();
    EXPECT_TRUE(queue.isFinished());
    EXPECT_TRUE(isReadable(queue.descriptor()));
}

TEST(ObservedQueue, takes_nothing_after_it_was_discarded)
{
    ObservedQueue queue(kLarge);
    queue.put(observed("a"));
    queue.put(Note{1s, "note"});
    EXPECT_EQ(queue.discard(), 1U);
    queue.put(observed("b"));
    EXPECT_EQ(queue.take(), std::nullopt);
    EXPECT_EQ(queue.dropped(), 0U);
}

// ---- The thread ----

sigset_t signalMask()
{
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

TEST(WorkerThread, leaves_all_signals_to_the_main_thread)
{
    sigset_t inside;
    sigemptyset(&inside);
    kvoctl::WorkerThread thread([&](int /*abort*/) { inside = signalMask(); });
    thread.finish({});
    const sigset_t outside = signalMask();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        EXPECT_EQ(sigismember(&inside, signal), 1) << signal;
        EXPECT_EQ(sigismember(&outside, signal), 0) << signal;
    }
}

TEST(WorkerThread, can_be_aborted)
{
    kvoctl::WorkerThread thread([](int abort) { isReadable(abort, 60s); });
    EXPECT_FALSE(isReadable(thread.endedDescriptor()));
    const auto begin = steady_clock::now();
    thread.finish(50ms);
    EXPECT_LT(steady_clock::now() - begin, 10s);
    EXPECT_TRUE(isReadable(thread.endedDescriptor()));
}

// ---- The lines of a trace ----

/// Standard output is another file while this object lives.
class StandardOutput {
public:
    explicit StandardOutput(int target) : before_(dup(STDOUT_FILENO))
    {
        std::fflush(stdout);
        dup2(target, STDOUT_FILENO);
    }
    StandardOutput(const StandardOutput &) = delete;
    StandardOutput &operator=(const StandardOutput &) = delete;
    ~StandardOutput() { dup2(before_.get(), STDOUT_FILENO); }

private:
    Descriptor before_;
};

struct Pipe {
    Pipe()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        reader = Descriptor(ends[0]);
        writer = Descriptor(ends[1]);
    }
    Descriptor reader;
    Descriptor writer;
};

std::string readAll(int descriptor)
{
    std::string all;
    std::array<char, 65536> bytes{};
    while (isReadable(descriptor)) {
        const ssize_t count = read(descriptor, bytes.data(), bytes.size());
        if (count <= 0) {
            break;
        }
        all.append(bytes.data(), static_cast<std::size_t>(count));
    }
    return all;
}

std::optional<std::string> format(const Observed &item)
{
    return std::holds_alternative<Note>(item) ? std::nullopt : std::optional(requestOf(item));
}

TEST(TraceOutput, writes_everything_before_it_finishes)
{
    const Pipe pipe;
    const StandardOutput redirected(pipe.writer.get());
    ObservedQueue queue(kLarge);
    TraceOutput output(queue, format);
    queue.put(observed("a"));
    queue.put(Note{1s, "not a line"});
    queue.put(observed("b"));
    EXPECT_EQ(output.finish("the end"), 0U);
    EXPECT_EQ(readAll(pipe.reader.get()), "a\nb\nthe end\n");
    EXPECT_NO_THROW(output.check());
}

TEST(TraceOutput, writes_each_line_at_once)
{
    const Pipe pipe;
    const StandardOutput redirected(pipe.writer.get());
    ObservedQueue queue(kLarge);
    TraceOutput output(queue, format);
    queue.put(observed("a"));
    ASSERT_TRUE(isReadable(pipe.reader.get(), 10s));
    EXPECT_EQ(readAll(pipe.reader.get()), "a\n");
    EXPECT_FALSE(isReadable(output.endedDescriptor()));
}

TEST(TraceOutput, writes_lines_that_are_longer_than_a_pipe)
{
    const Pipe pipe;
    const StandardOutput redirected(pipe.writer.get());
    ObservedQueue queue(kLarge);
    TraceOutput output(queue, format);
    std::string text;
    for (int i = 0; text.size() < 1'000'000; ++i) {
        text += std::to_string(i) + ' ';
    }
    queue.put(observed(text));
    std::string all;
    while (all.size() <= text.size() && isReadable(pipe.reader.get(), 10s)) {
        all += readAll(pipe.reader.get());
    }
    EXPECT_EQ(all, text + "\n");
    EXPECT_EQ(output.finish(), 0U);
}

TEST(TraceOutput, counts_what_a_reader_that_stopped_did_not_get)
{
    const Pipe pipe;
    const int size = fcntl(pipe.writer.get(), F_GETPIPE_SZ);
    const StandardOutput redirected(pipe.writer.get());
    ObservedQueue queue(500'000);
    TraceOutput output(queue, format);
    constexpr int kCount = 1000;
    const auto begin = steady_clock::now();
    for (int i = 0; i < kCount; ++i) {
        queue.put(observed(std::string(999, 'x')));
    }
    EXPECT_LT(steady_clock::now() - begin, 1s) << "put() waited for the reader";
    const uint64_t lost = output.finish();
    EXPECT_LT(steady_clock::now() - begin, 5s);
    const std::string shown = readAll(pipe.reader.get());
    EXPECT_LE(shown.size(), static_cast<std::size_t>(size));
    EXPECT_EQ(lost + shown.size() / 1000, static_cast<uint64_t>(kCount));
    EXPECT_GT(queue.dropped(), 0U);
    EXPECT_GT(lost, queue.dropped());
}

TEST(TraceOutput, ends_when_the_reader_closes_even_without_a_line)
{
    Pipe pipe;
    const StandardOutput redirected(pipe.writer.get());
    ObservedQueue queue(kLarge);
    TraceOutput output(queue, format);
    EXPECT_FALSE(isReadable(output.endedDescriptor(), 50ms));
    pipe.reader = Descriptor();
    EXPECT_TRUE(isReadable(output.endedDescriptor(), 10s));
    queue.put(observed("nobody reads this"));
    EXPECT_EQ(output.finish(), 0U);
    EXPECT_NO_THROW(output.check());
}

TEST(TraceOutput, reports_a_full_disk)
{
    const Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    const StandardOutput redirected(full.get());
    ObservedQueue queue(kLarge);
    TraceOutput output(queue, format);
    queue.put(observed("a"));
    EXPECT_TRUE(isReadable(output.endedDescriptor(), 10s));
    output.finish();
    EXPECT_THROW(
        {
            try {
                output.check();
            } catch (const std::runtime_error &error) {
                EXPECT_STREQ(error.what(), "cannot write to standard output: No space left on device");
                throw;
            }
        },
        std::runtime_error);
}

}  // namespace

}  // namespace kvoctl_test
