// The console, sysfs-style files and the viewer's error texts.
#include <kvo_hws/agent.h>

#include "support/failing_allocations.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/vt.h>
#include <memory>
#include <string>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

namespace {

using support::LogLine;
using support::SyslogCapture;
using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;

class SysfsFile : public testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories(root_); }
    void TearDown() override { std::filesystem::remove_all(root_); }

    void put(const std::string &file, const std::string &content) const
    {
        std::filesystem::create_directories(std::filesystem::path(root_ + "/" + file).parent_path());
        std::ofstream(root_ + "/" + file) << content;
    }
    [[nodiscard]] std::string read(const std::string &sub, const std::string &file) const
    {
        const std::unique_ptr<char, void (*)(void *)> line(sysfsfile(root_.c_str(), sub.c_str(), file.c_str()), std::free);
        return line != nullptr ? line.get() : "(null)";
    }

    std::string root_ = testing::TempDir() + "sysfs." + std::to_string(getpid());
};

TEST_F(SysfsFile, is_read_up_to_its_first_line_end)
{
    put("panel/name", "first\nsecond\n");
    put("panel/bare", "no line end");
    put("panel/empty", "");
    put("panel/long", std::string(300, 'x') + "\n");
    EXPECT_EQ(read("panel", "name"), "first");
    EXPECT_EQ(read("panel", "bare"), "no line end");
    EXPECT_EQ(read("panel", "empty"), "");
    EXPECT_EQ(read("panel", "long"), std::string(127, 'x'));
    EXPECT_EQ(read("panel", "missing"), "(null)");
    EXPECT_EQ(read("missing", "name"), "(null)");
}

TEST_F(SysfsFile, may_be_below_any_directory_entry)
{
    put("device0/name", "found");
    EXPECT_EQ(read("*", "name"), "found");
    put("device0/sub/one/two", "deeper");
    EXPECT_EQ(read("device0/sub/*", "two"), "deeper");
}

TEST_F(SysfsFile, substitutes_only_the_first_placeholder)
{
    put("device0/sub/name", "found");
    EXPECT_EQ(read("*/*", "name"), "(null)");
    put("device0/*/name", "literal");
    EXPECT_EQ(read("*/*", "name"), "literal");
}

TEST_F(SysfsFile, treats_a_star_within_a_name_literally)
{
    put("device0/name", "found");
    EXPECT_EQ(read("dev*", "name"), "(null)");
    EXPECT_EQ(read("*0", "name"), "(null)");
    put("dev*/name", "literal");
    EXPECT_EQ(read("dev*", "name"), "literal");
    put("disk*/only/name", "found");
    EXPECT_EQ(read("disk*/*", "name"), "(null)") << "only the first star is checked";
}

TEST_F(SysfsFile, treats_a_star_at_the_beginning_of_the_path_literally)
{
    put("device0/name", "found");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(root_);
    EXPECT_EQ(sysfsfile("*", ".", "name"), nullptr);
    std::filesystem::current_path(before);
}

TEST_F(SysfsFile, in_an_empty_folder_is_searched_literally) { EXPECT_EQ(read("*", "name"), "(null)"); }

TEST_F(SysfsFile, may_end_with_a_placeholder)
{
    put("folder/only", "the one");
    EXPECT_EQ(read("folder", "*"), "the one");
}

TEST_F(SysfsFile, without_memory_for_the_line_ends_the_process)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    put("panel/name", "first\n");
    EXPECT_EXIT(
        {
            const support::FailingAllocations failing;
            sysfsfile(root_.c_str(), "panel", "name");
        },
        testing::ExitedWithCode(1), "");
}

/// Depending on the allocation that fails, the line cannot be stored, or the file cannot be read.
TEST_F(SysfsFile, ends_the_process_or_cannot_be_read_when_memory_runs_out)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    constexpr int kEnded = 1;
    constexpr int kNone = 2;
    constexpr int kRead = 3;
    constexpr int kEndedSilently = 4;
    static const SyslogCapture *capture = nullptr;
    static bool returned = false;
    put("panel/name", "first\n");
    std::vector<int> outcomes;
    do {
        const auto status = [&](int waited) {
            outcomes.push_back(WIFEXITED(waited) ? WEXITSTATUS(waited) : -1);
            return true;
        };
        EXPECT_EXIT(
            {
                const SyslogCapture ofThisProcess;
                capture = &ofThisProcess;
                std::atexit([] {
                    const support::WorkingAllocations toLook;
                    if (!returned && capture->lines() != std::vector{LogLine{"", LOG_CRIT, "out of memory"}}) {
                        _exit(kEndedSilently);
                    }
                });
                const support::FailingAllocations failing(static_cast<int>(outcomes.size()));
                const char *const line = sysfsfile(root_.c_str(), "panel", "name");
                returned = true;
                std::exit(line == nullptr ? kNone : kRead);
            },
            status, "");
    } while (outcomes.back() != kRead && outcomes.size() < 20);
    ASSERT_GE(outcomes.size(), 3U);
    EXPECT_EQ(outcomes.back(), kRead);
    outcomes.pop_back();
    EXPECT_EQ(outcomes.back(), kEnded) << "the memory of the line is allocated last";
    EXPECT_THAT(outcomes, Each(AnyOf(kEnded, kNone)));
}

TEST_F(SysfsFile, keeps_its_placeholder_when_memory_for_the_entry_runs_out)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    put("an entry with a name too long to be kept without memory", "");
    char path[600];
    std::strcpy(path, (root_ + "/*").c_str());
    const std::string before = path;
    for (int granted = 0; granted < 2; ++granted) {  // opening the folder takes one allocation
        {
            const support::FailingAllocations failing(granted);
            sysfssubst(path);
        }
        EXPECT_EQ(path, before);
    }
    sysfssubst(path);
    EXPECT_NE(path, before);
}

TEST_F(SysfsFile, has_its_placeholder_replaced_in_place)
{
    put("only/x", "");
    char path[600];
    std::strcpy(path, (root_ + "/*").c_str());
    sysfssubst(path);
    EXPECT_EQ(path, root_ + "/only");
    std::strcpy(path, (root_ + "/missing/*").c_str());
    sysfssubst(path);
    EXPECT_EQ(path, root_ + "/missing/*") << "no such folder";
    std::filesystem::create_directories(root_ + "/only/empty");
    std::strcpy(path, (root_ + "/only/empty/*").c_str());
    sysfssubst(path);
    EXPECT_EQ(path, root_ + "/only/empty/*") << "the folder is empty";
    path[0] = '\0';
    sysfssubst(path);
    EXPECT_STREQ(path, "");
}

// ---- The console: here standard input is not a console ----

class Console : public testing::Test {
protected:
    void SetUp() override
    {
        before_ = dup(STDIN_FILENO);
        const int none = open("/dev/null", O_RDONLY | O_CLOEXEC);
        dup2(none, STDIN_FILENO);
        close(none);
    }
    void TearDown() override
    {
        dup2(before_, STDIN_FILENO);
        close(before_);
    }

private:
    int before_ = -1;
};

TEST_F(Console, that_is_missing_is_logged_when_its_switching_is_changed)
{
    for (const int on : {0, 1}) {
        const SyslogCapture capture;
        enable_vt_control(on);
        EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"", LOG_ERR, "VT_GETMODE: Inappropriate ioctl for device"}));
    }
}

/// 6 is the sub-command of the ioctl, and also a valid state. Callers have never been able to distinguish them.
TEST_F(Console, that_is_missing_has_the_shift_state_6)
{
    const SyslogCapture capture;
    EXPECT_EQ(get_shiftstate(), 6);
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"", LOG_WARNING, "TIOCLINUX(6): Inappropriate ioctl for device"}));
}

/// The state of a simulated console, and the last request to it.
struct ConsoleState {
    vt_mode mode{.mode = VT_AUTO, .waitv = 1, .relsig = 5, .acqsig = 6, .frsig = 7};
    char shiftState = 3;
    bool refusesMode = false;
    int shiftRequest = 0;
};

class SimulatedConsole : public testing::Test {
protected:
    void expectMode(char mode, short release, short acquire) const
    {
        EXPECT_EQ(console.mode.mode, mode);
        EXPECT_EQ(console.mode.relsig, release);
        EXPECT_EQ(console.mode.acqsig, acquire);
        EXPECT_EQ(console.mode.waitv, 1) << "unchanged";
        EXPECT_EQ(console.mode.frsig, 7) << "unchanged";
    }

    ConsoleState console;
    const SyslogCapture capture;

private:
    int answer(int fd, unsigned long request, void *argument)
    {
        if (fd != STDIN_FILENO) {
            return support::kPassThrough;
        }
        switch (request) {
        case VT_GETMODE: std::memcpy(argument, &console.mode, sizeof console.mode); return 0;
        case VT_SETMODE:
            if (console.refusesMode) {
                errno = EPERM;
                return -1;
            }
            std::memcpy(&console.mode, argument, sizeof console.mode);
            return 0;
        case TIOCLINUX:
            console.shiftRequest = *static_cast<char *>(argument);
            *static_cast<char *>(argument) = console.shiftState;
            return 0;
        default: errno = ENOTTY; return -1;
        }
    }

    const support::WithSystemCalls calls_{
        {.ioctl = [this](int fd, unsigned long request, void *argument) { return answer(fd, request, argument); }}};
};

TEST_F(SimulatedConsole, is_switched_by_signals_only_while_control_is_enabled)
{
    enable_vt_control(1);
    expectMode(VT_PROCESS, 10, 12);
    enable_vt_control(0);
    expectMode(VT_AUTO, 0, 0);
    EXPECT_THAT(capture.lines(), ElementsAre());
}

TEST_F(SimulatedConsole, that_refuses_a_mode_is_logged)
{
    console.refusesMode = true;
    enable_vt_control(1);
    expectMode(VT_AUTO, 5, 6);
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"", LOG_ERR, "VT_SETMODE: Operation not permitted"}));
}

TEST_F(SimulatedConsole, reports_its_shift_state)
{
    EXPECT_EQ(get_shiftstate(), 3);
    EXPECT_EQ(console.shiftRequest, 6);
    EXPECT_THAT(capture.lines(), ElementsAre());
}

// ---- The viewer's errors ----

TEST(ViewerErrors, have_their_texts)
{
    EXPECT_STREQ(vnc_strerror(246), "Scaling not possible (depth mismatch)");
    EXPECT_STREQ(vnc_strerror(247), "Viewer changes resolution");
    EXPECT_STREQ(vnc_strerror(248), "Viewer preempted");
    EXPECT_STREQ(vnc_strerror(249), "HMI timeout");
    EXPECT_STREQ(vnc_strerror(250), "Framebuffer initialization error");
    EXPECT_STREQ(vnc_strerror(251), "Server size too large (and no scaling)");
    EXPECT_STREQ(vnc_strerror(252), "Framebuffer unsupported pixel format");
    EXPECT_STREQ(vnc_strerror(253), "Format/encoding negotiation failed");
    EXPECT_STREQ(vnc_strerror(254), "Viewer aborted");
    EXPECT_STREQ(vnc_strerror(-1), "not a VNC server");
    EXPECT_STREQ(vnc_strerror(111), "no server on this port");
    for (const int code : {0, 2, 110, 112, 245, 255}) {
        const std::string ours = vnc_strerror(code);  // an unknown code's text is overwritten by the next one
        EXPECT_EQ(ours, std::strerror(code)) << code;
    }
    EXPECT_EQ(VNCERRNO, 0);
}

}  // namespace
