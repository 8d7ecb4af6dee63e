// A tap of one program: only that program's requests pass through it, and the program finds the service as outside.
#include "tools/common/tap/running_tap.h"
#include "tools/common/tap/service.h"
#include "tools/kvosim/support/run_kvosim.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <sys/wait.h>

namespace tap_test {

namespace {

using kvosim_test::contentsOf;
using kvosim_test::Program;
using kvosim_test::TemporaryDirectory;
using testing::ElementsAre;
using testing::HasSubstr;
using tools::recording::Kind;

const std::string kKvoctl = KVOCTL_PROGRAM;

/// A tapped program.
class Tapped {
public:
    Tapped(RunningTap &tap, const std::string &command) : process_(tap.start(command, out_)) {}
    Tapped(const Tapped &) = delete;
    Tapped &operator=(const Tapped &) = delete;
    ~Tapped()
    {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
    }

    void signal(int number) const { kill(process_, number); }
    /// Returns the exit status.
    int wait()
    {
        int status = 0;
        waitpid(std::exchange(process_, 0), &status, 0);
        return WEXITSTATUS(status);
    }
    [[nodiscard]] std::string out() const { return contentsOf(out_); }
    [[nodiscard]] bool hasWritten(const std::string &text) const
    {
        return support::eventually([&] { return out().find(text) != std::string::npos; });
    }

private:
    TemporaryDirectory directory_;
    std::string out_ = directory_ / "out";
    pid_t process_;
};

TEST(ProgramTap, sees_one_program_only)
{
    Service service;
    RunningTap tap(RunningTap::Of::oneProgram);
    Tapped program(tap, kKvoctl + " ready");
    EXPECT_EQ(program.wait(), 0) << program.out();
    EXPECT_TRUE(answers());
    tap.exchanges(1);
    EXPECT_THAT(shownOf(tap.reports(), Kind::ask), ElementsAre(HasSubstr("isInitComplete\n-> yes\n")));
}

TEST(ProgramTap, shows_no_service_where_there_is_none)
{
    RunningTap tap(RunningTap::Of::oneProgram);
    Tapped first(tap, kKvoctl + " ready");
    EXPECT_NE(first.wait(), 0);
    EXPECT_THAT(first.out(), HasSubstr("no service"));
    Service service;
    Tapped second(tap, "until " + kKvoctl + " ready; do sleep 0.05; done");
    EXPECT_EQ(second.wait(), 0);
    service.kill();
    Tapped third(tap, "while " + kKvoctl + " ready; do sleep 0.05; done");
    EXPECT_EQ(third.wait(), 0);
}

TEST(ProgramTap, passes_usb_events_to_the_program)
{
    if (const char *const reason = noUsbWatch()) {
        GTEST_SKIP() << reason;
    }
    Service service;
    RunningTap tap(RunningTap::Of::oneProgram);
    const Tapped program(tap, kKvoctl + " usb watch");
    ASSERT_TRUE(program.hasWritten("activated")) << program.out();
    EXPECT_EQ(kvosim_test::runKvosim({"usb", "plug", "10.0.0.5"}).status, 0);
    EXPECT_TRUE(program.hasWritten("new code"));
    EXPECT_TRUE(support::eventually([&] { return shownOf(tap.reports(), Kind::usb).size() == 1; }));
}

TEST(ProgramTap, takes_usb_events_over_from_a_program_outside)
{
    if (const char *const reason = noUsbWatch()) {
        GTEST_SKIP() << reason;
    }
    Service service;
    Program outside({KVOCTL_PROGRAM, "usb", "watch"});
    ASSERT_TRUE(outside.hasWritten("activated"));
    RunningTap tap(RunningTap::Of::oneProgram);
    Tapped program(tap, kKvoctl + " usb watch");
    ASSERT_TRUE(program.hasWritten("activated")) << program.out();
    outside.wait();
    EXPECT_THAT(outside.out(), HasSubstr("deactivated"));
    EXPECT_EQ(kvosim_test::runKvosim({"usb", "plug", "10.0.0.5"}).status, 0);
    EXPECT_TRUE(program.hasWritten("new code"));
    // And back.
    const Program again({KVOCTL_PROGRAM, "usb", "watch"});
    ASSERT_TRUE(again.hasWritten("activated"));
    program.wait();
    EXPECT_THAT(program.out(), HasSubstr("deactivated"));
    EXPECT_EQ(kvosim_test::runKvosim({"usb", "plug", "10.0.0.6"}).status, 0);
    EXPECT_TRUE(again.hasWritten("10.0.0.6"));
}

TEST(ProgramTap, leaves_no_usb_socket_when_the_program_closes_the_events)
{
    if (const char *const reason = noUsbWatch()) {
        GTEST_SKIP() << reason;
    }
    Service service;
    RunningTap tap(RunningTap::Of::oneProgram);
    Tapped program(tap, "exec " + kKvoctl + " usb watch");
    ASSERT_TRUE(program.hasWritten("activated")) << program.out();
    ASSERT_EQ(connectError(tools::kUsbEventSocket), 0);
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait(), 0);
    EXPECT_TRUE(support::eventually([] { return !std::filesystem::exists(tools::kUsbEventSocket); }));
}

TEST(ProgramTap, passes_embedded_events_to_the_program)
{
    Service service;
    RunningTap tap(RunningTap::Of::oneProgram);
    const Tapped program(tap, "exec " + kKvoctl + " events watch");
    EXPECT_TRUE(support::eventually([&] {
        kvosim_test::runKvosim({"event", "key, F1"});
        return program.out().find("F1") != std::string::npos;
    }));
    EXPECT_THAT(shownOf(tap.reports(), Kind::event), testing::Contains(HasSubstr("F1")));
}

TEST(ProgramTap, reports_when_a_program_begins_to_listen_to_embedded_events)
{
    Service service;
    RunningTap tap(RunningTap::Of::oneProgram);
    const Tapped program(tap, "exec " + kKvoctl + " events watch");
    ASSERT_TRUE(support::eventually([&] { return !shownOf(tap.reports(), Kind::event).empty(); }));
    const auto first = tap.reports().exchanges().front();
    EXPECT_EQ(first.exchange.kind, Kind::event);
    EXPECT_TRUE(first.exchange.request.empty());
    EXPECT_EQ(first.peer.name, "kvoctl");
    const std::string line = format(tools::recording::Line(first.exchange));
    EXPECT_THAT(line, testing::EndsWith(" event 0 > <"));
}

TEST(ProgramTap, stays_when_the_program_puts_something_else_in_the_place_of_a_socket)
{
    Service service;
    RunningTap tap(RunningTap::Of::oneProgram);
    Tapped program(tap, "cd /tmp/kvo_hws && rm cmd_sock && mkdir cmd_sock && sleep 2 && rmdir cmd_sock\nuntil " + kKvoctl +
                            " ready; do sleep 0.1; done");
    EXPECT_EQ(program.wait(), 0) << program.out();
}

TEST(ProgramTap, removes_its_folder)
{
    const TemporaryDirectory temporary;
    setenv("TMPDIR", temporary.path().c_str(), 1);
    std::filesystem::path folder;
    {
        RunningTap tap(RunningTap::Of::oneProgram);
        for (const auto &entry : std::filesystem::directory_iterator(std::filesystem::temp_directory_path())) {
            if (entry.path().filename().string().starts_with("kvo_trace.")) {
                folder = entry.path();
            }
        }
        EXPECT_FALSE(folder.empty());
    }
    EXPECT_FALSE(std::filesystem::exists(folder));
    unsetenv("TMPDIR");
}

}  // namespace

}  // namespace tap_test
