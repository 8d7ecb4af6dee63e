// The traced allocators and their file; a replacement of open() redirects it to a file of the test.
#include <kvo_hws/runtime.h>

#include "support/failing_allocations.h"
#include "support/resource_usage.h"
#include "support/system_calls.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <mutex>
#include <regex>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::SizeIs;

constexpr std::string_view kTraceFile = "/user/traceIt.log";

class TraceFile {
public:
    TraceFile() { std::filesystem::remove(path_); }
    TraceFile(const TraceFile &) = delete;
    TraceFile &operator=(const TraceFile &) = delete;
    ~TraceFile() { std::filesystem::remove(path_); }

    [[nodiscard]] std::string content() const
    {
        std::stringstream content;
        content << std::ifstream(path_, std::ios::binary).rdbuf();
        return content.str();
    }

    /// The lines, without their timestamps.
    [[nodiscard]] std::vector<std::string> texts() const
    {
        static const std::regex kStamp("^[0-9]{2}\\.[0-9]{2}\\.[0-9]{4}/[0-9]{2}:[0-9]{2}:[0-9]{2}   ");
        std::vector<std::string> texts;
        std::istringstream lines(content());
        for (std::string line; std::getline(lines, line);) {
            texts.push_back(std::regex_replace(line, kStamp, ""));
            EXPECT_EQ(texts.back().size(), line.size() - 22) << line;
        }
        return texts;
    }

    [[nodiscard]] std::vector<int> flags() const { return flags_; }
    [[nodiscard]] mode_t mode() const { return mode_; }

    /// Called whenever the file is opened.
    std::function<void()> onOpen{};

private:
    int open(const char *path, int flags, mode_t mode)
    {
        if (path != kTraceFile) {
            return support::kPassThrough;
        }
        const support::WorkingAllocations forTheTest;
        const std::lock_guard lock(lock_);
        flags_.push_back(flags);
        mode_ = mode;
        if (onOpen) {
            onOpen();
        }
        return openat(AT_FDCWD, path_.c_str(), flags, 0600);
    }

    std::string path_ = testing::TempDir() + "trace." + std::to_string(getpid());
    std::mutex lock_;
    std::vector<int> flags_;
    mode_t mode_ = 0;
    support::WithSystemCalls calls_{
        {.open = [this](const char *path, int flags, mode_t mode) { return open(path, flags, mode); }}};
};

std::string printed(const void *pointer)
{
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

TEST(Trace, writes_a_line_with_a_timestamp)
{
    const TraceFile file;
    traceIt("%d stations at %s", 3, "10.0.0.5");
    EXPECT_THAT(file.texts(), ElementsAre("3 stations at 10.0.0.5"));
    EXPECT_THAT(file.content(), EndsWith("\n"));
}

TEST(Trace, appends_and_closes_the_file_each_time)
{
    const TraceFile file;
    traceIt("first");
    traceIt("second");
    EXPECT_THAT(file.texts(), ElementsAre("first", "second"));
    ASSERT_THAT(file.flags(), SizeIs(2));
    EXPECT_NE(file.flags().front() & O_APPEND, 0);
    EXPECT_NE(file.flags().front() & O_CLOEXEC, 0);
    EXPECT_EQ(file.mode(), 0666U) << "for all users, as far as the umask allows it";
}

TEST(Trace, keeps_no_descriptor_open)
{
    const TraceFile file;
    traceIt("first");
    const std::size_t before = support::descriptorsOpen();
    traceIt("second");
    EXPECT_EQ(support::descriptorsOpen(), before);
}

TEST(Trace, writes_nothing_if_the_text_cannot_be_formatted)
{
    const TraceFile file;
    // The C locale has no such character.
    traceIt("%lc", static_cast<wint_t>(0x20AC));
    EXPECT_EQ(file.content(), "");
}

TEST(Trace, writes_nothing_without_memory_for_the_line)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    const TraceFile file;
    {
        const support::FailingAllocations failing;
        traceIt("%s", "a line");
    }
    EXPECT_EQ(file.content(), "");
    EXPECT_EQ(file.flags().size(), 1U);
}

TEST(Trace, uses_local_time)
{
    const char *const zone = std::getenv("TZ");
    setenv("TZ", "UTC-13", 1);
    tzset();
    const TraceFile file;
    const auto hour = [](time_t now) { return static_cast<int>((now / 3600 + 13) % 24); };
    const int before = hour(time(nullptr));
    traceIt("x");
    const int after = hour(time(nullptr));
    EXPECT_THAT(std::stoi(file.content().substr(11, 2)), testing::AnyOf(before, after));
    zone != nullptr ? setenv("TZ", zone, 1) : unsetenv("TZ");
    tzset();
}

/// Programs that read the file correct the month and the year themselves, so these must not change.
TEST(Trace, writes_the_month_from_0_and_the_year_from_1900)
{
    const TraceFile file;
    const time_t before = time(nullptr);
    traceIt("x");
    const time_t after = time(nullptr);
    std::vector<std::string> possible;
    for (time_t now = before; now <= after; ++now) {
        tm local{};
        localtime_r(&now, &local);
        char stamp[80];
        std::snprintf(stamp, sizeof stamp, "%02d.%02d.%04d/%02d:%02d:%02d   x\n", local.tm_mday, local.tm_mon, local.tm_year,
                      local.tm_hour, local.tm_min, local.tm_sec);
        possible.emplace_back(stamp);
    }
    EXPECT_THAT(possible, testing::Contains(file.content()));
}

TEST(Trace, has_no_length_limit)
{
    const TraceFile file;
    const std::string text(100'000, 'x');
    traceIt("%s", text.c_str());
    EXPECT_THAT(file.texts(), ElementsAre(text));
}

TEST(Trace, is_disabled_without_its_folder)
{
    const support::WithSystemCalls calls({.open = [](const char *path, int, mode_t) {
        errno = ENOENT;
        return path == kTraceFile ? -1 : support::kPassThrough;
    }});
    errno = EBUSY;
    traceIt("nowhere");
    EXPECT_EQ(errno, EBUSY) << "the caller still sees the errno of the traced call";
}

TEST(Trace, lines_of_several_threads_do_not_mix)
{
    const TraceFile file;
    const std::string text(5000, 'y');
    const auto write = [&text] {
        for (int line = 0; line < 50; ++line) {
            traceIt("%s", text.c_str());
        }
    };
    std::thread other(write);
    write();
    other.join();
    EXPECT_THAT(file.texts(), testing::AllOf(SizeIs(100), testing::Each(text)));
}

TEST(TracedAllocators, trace_their_calls)
{
    TraceFile file;
    void *block = traceXmalloc(16, "main.c", 42);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::string(static_cast<char *>(block), 16), std::string(16, '\0'));
    const std::string first = printed(block);
    std::memcpy(block, "0123456789abcdef", 16);
    block = traceRealloc(block, 1000, "main.c", 1043);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::string(static_cast<char *>(block), 16), "0123456789abcdef");
    const std::string second = printed(block);
    file.onOpen = [block] { EXPECT_EQ(std::string(static_cast<char *>(block), 16), "0123456789abcdef") << "not freed yet"; };
    traceFree(block, "a_long_file_name.c", 12345);
    EXPECT_THAT(file.texts(), ElementsAre("         main.c#  42 malloc(16) returns " + first,
                                          "         main.c#1043 realloc(" + first + ", 1000) returns " + second,
                                          "a_long_file_name.c#12345 free(" + second + ")"));
}

TEST(TracedAllocators, return_as_much_as_requested)
{
    constexpr unsigned kSize = 3000;
    auto *const block = static_cast<char *>(traceXmalloc(kSize, "main.c", 1));
    ASSERT_NE(block, nullptr);
    EXPECT_GE(malloc_usable_size(block), kSize);
    EXPECT_EQ(std::string_view(block, kSize).find_first_not_of('\0'), std::string_view::npos);
    auto *const larger = traceRealloc(block, 2 * kSize, "main.c", 2);
    EXPECT_GE(malloc_usable_size(larger), 2 * kSize);
    traceFree(larger, "main.c", 3);
}

TEST(TracedAllocators, return_null_without_memory_and_keep_errno)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    void *plain = &plain;
    void *traced = &traced;
    int error = 0;
    {
        const support::FailingAllocations failing;
        plain = xmalloc(8);
        traced = traceXmalloc(8, "main.c", 1);
        error = errno;
    }
    EXPECT_EQ(plain, nullptr);
    EXPECT_EQ(traced, nullptr);
    EXPECT_EQ(error, ENOMEM);
}

TEST(Xmalloc, returns_cleared_memory_and_logs_nothing)
{
    auto *const bytes = static_cast<unsigned char *>(xmalloc(1000));
    ASSERT_NE(bytes, nullptr);
    for (int byte = 0; byte < 1000; ++byte) {
        ASSERT_EQ(bytes[byte], 0);
    }
    std::free(bytes);
    std::free(xmalloc(0));
}

}  // namespace
