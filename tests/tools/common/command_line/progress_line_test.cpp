// The progress line on a terminal, with a clock that the test controls.
#include "common/command_line/progress_line.h"

#include "support/terminal.h"

#include <gmock/gmock.h>

#include <cstdio>

namespace {

using namespace std::chrono_literals;
using support::Terminal;
using tools::command_line::ProgressLine;

const std::string kEmptyLine = "\r\x1B[K";

class Progress : public testing::Test {
protected:
    Progress() { setenv("TERM", "xterm", 1); }

    /// Makes one step of the work, at the time @p after the previous step.
    static void step(ProgressLine &line, std::chrono::milliseconds after, const std::string &text)
    {
        now_ += after;
        if (line.isDue()) {
            line.write(text);
        }
    }

    static ProgressLine::Time now() { return now_; }

private:
    static inline ProgressLine::Time now_{};
};

TEST_F(Progress, is_not_shown_for_short_operations)
{
    const Terminal terminal;
    {
        ProgressLine line(terminal.descriptor(), now);
        step(line, 0ms, "a");
        step(line, 499ms, "b");
    }
    EXPECT_EQ(terminal.shown(), "");
}

TEST_F(Progress, is_rewritten_in_intervals_and_erased_at_the_end)
{
    const Terminal terminal;
    {
        ProgressLine line(terminal.descriptor(), now);
        step(line, 500ms, "500 ms");
        EXPECT_EQ(terminal.shown(), kEmptyLine + "500 ms");
        step(line, 99ms, "599 ms");
        EXPECT_EQ(terminal.shown(), "");
        step(line, 1ms, "600 ms");
        EXPECT_EQ(terminal.shown(), kEmptyLine + "600 ms");
        step(line, 250ms, "850 ms");
        EXPECT_EQ(terminal.shown(), kEmptyLine + "850 ms");
    }
    EXPECT_EQ(terminal.shown(), kEmptyLine);
}

TEST_F(Progress, leaves_the_last_column_free)
{
    const Terminal terminal(20);
    ProgressLine line(terminal.descriptor(), now);
    step(line, 1s, "1234567890123456789");
    EXPECT_EQ(terminal.shown(), kEmptyLine + "1234567890123456789");
    step(line, 1s, "12345678901234567890");
    EXPECT_EQ(terminal.shown(), kEmptyLine + "1234567890123456789");
}

TEST_F(Progress, assumes_80_columns_if_the_terminal_does_not_report_its_width)
{
    unsetenv("COLUMNS");
    const Terminal terminal(0);
    ProgressLine line(terminal.descriptor(), now);
    step(line, 1s, std::string(100, 'x'));
    EXPECT_EQ(terminal.shown(), kEmptyLine + std::string(79, 'x'));
}

TEST_F(Progress, is_not_shown_on_a_terminal_that_cannot_rewrite_a_line)
{
    setenv("TERM", "dumb", 1);
    const Terminal terminal;
    {
        ProgressLine line(terminal.descriptor(), now);
        step(line, 1s, "text");
    }
    EXPECT_EQ(terminal.shown(), "");
}

TEST_F(Progress, is_not_written_to_a_file)
{
    std::FILE *file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    {
        ProgressLine line(fileno(file), now);
        step(line, 1s, "text");
    }
    EXPECT_EQ(lseek(fileno(file), 0, SEEK_END), 0);
    std::fclose(file);
}

}  // namespace
