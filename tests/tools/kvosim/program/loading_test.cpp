// The output of kvosim while it reads a slow plant file: a pipe, to which the test writes late.
#include "common/command_line/progress_line.h"
#include "support/terminal.h"
#include "tools/kvosim/support/program.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using kvosim_test::Program;
using support::Terminal;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kEmptyLine = "\r\x1B[K";

/// A plant file that is slow enough for kvosim to show its progress.
class SlowPlant {
public:
    SlowPlant() { mkfifo(path().c_str(), 0600); }

    [[nodiscard]] std::string path() const { return directory_ / "plant.toml"; }

    /// Waits for the reader. Returns false if none opens the pipe.
    [[nodiscard]] bool write(const std::string &text) const
    {
        const auto until = std::chrono::steady_clock::now() + 10s;
        int pipe = -1;
        while ((pipe = open(path().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) < 0 &&
               std::chrono::steady_clock::now() < until) {
            std::this_thread::sleep_for(2ms);
        }
        std::this_thread::sleep_for(tools::command_line::ProgressLine::kDelay);
        fcntl(pipe, F_SETFL, 0);  // a write that is larger than the pipe waits for the reader
        const ssize_t written = ::write(pipe, text.data(), text.size());
        close(pipe);
        return written == static_cast<ssize_t>(text.size());
    }

private:
    kvosim_test::TemporaryDirectory directory_;
};

std::string stations(int count)
{
    std::string text;
    for (int i = 1; i <= count; ++i) {
        const std::string number = std::to_string(i);
        text += "[[station]]\naddress = \"10.0." + std::to_string(i / 256) + '.' + std::to_string(i % 256) + "\"\nname = \"" +
                number + "\"\n";
    }
    return text;
}

std::vector<std::string> onTerminal(const Terminal &terminal, const std::string &kind, std::vector<std::string> words)
{
    words.insert(words.begin(), {"sh", "-c", "exec \"$@\" 2>" + terminal.path(), "sh", "env", "TERM=" + kind, KVOSIM_PROGRAM});
    return words;
}

std::vector<std::string> runWith(const SlowPlant &plant)
{
    return {"run", "--usb-lock-address", "none", "--plant", plant.path(), "--", "true"};
}

TEST(Loading, is_shown_on_a_terminal_until_it_ends)
{
    const Terminal terminal;
    const SlowPlant plant;
    Program run(onTerminal(terminal, "xterm", runWith(plant)));
    ASSERT_TRUE(plant.write(stations(1'000)));
    EXPECT_EQ(run.wait(), 0);
    const std::string shown = terminal.shown();
    EXPECT_THAT(shown, StartsWith(kEmptyLine + "kvosim: reading the plant: 1 of 1 000 stations" + kEmptyLine));
    EXPECT_THAT(shown, EndsWith(kEmptyLine));
}

TEST(Loading, is_replaced_by_the_message_of_a_mistake)
{
    const Terminal terminal;
    const SlowPlant plant;
    Program run(onTerminal(terminal, "xterm", {"serve", "--plant", plant.path()}));
    ASSERT_TRUE(plant.write(stations(2) + "nmae = \"x\"\n"));
    EXPECT_EQ(run.wait(), 2);
    const std::string shown = terminal.shown();
    EXPECT_THAT(shown, StartsWith(kEmptyLine + "kvosim: reading the plant: 1 of 2 stations" + kEmptyLine));
    EXPECT_THAT(shown, HasSubstr(kEmptyLine + "\x1B[1;31mkvosim:\x1B[0m " + plant.path() + ":7: station.nmae: unknown key"));
}

TEST(Loading, is_not_shown_on_a_terminal_that_cannot_rewrite_a_line)
{
    const Terminal terminal;
    const SlowPlant plant;
    Program run(onTerminal(terminal, "dumb", runWith(plant)));
    ASSERT_TRUE(plant.write(stations(3)));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(terminal.shown(), "");
}

TEST(Loading, is_not_written_to_a_file)
{
    const SlowPlant plant;
    std::vector<std::string> words = runWith(plant);
    words.insert(words.begin(), KVOSIM_PROGRAM);
    Program run(words);
    ASSERT_TRUE(plant.write(stations(3)));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.err(), "");
}

}  // namespace
