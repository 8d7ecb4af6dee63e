// kvosim run: the command and its environment, exit statuses, signals, and that all files are removed.
#include "tools/kvosim/program/commands.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/program.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using kvosim_test::exchange;
using kvosim_test::kReady;
using kvosim_test::kSocket;
using kvosim_test::kvosim;
using kvosim_test::Program;
using kvosim_test::serve;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

std::vector<std::string> runShell(const std::string &script, std::vector<std::string> options = {})
{
    options.insert(options.begin(), {"run", "--usb-lock-address", "none"});
    options.insert(options.end(), {"--", "sh", "-c", script});
    return kvosim(std::move(options));
}

struct ExitRow : kvosim_test::NamedRow {
    std::vector<std::string> command;
    int status;
    std::string message;
};

class RunExitStatus : public testing::TestWithParam<ExitRow> {};

TEST_P(RunExitStatus, is_that_of_the_command)
{
    std::vector<std::string> arguments{"run", "--usb-lock-address", "none", "--"};
    arguments.insert(arguments.end(), GetParam().command.begin(), GetParam().command.end());
    Program run(kvosim(arguments));
    EXPECT_EQ(run.wait(), GetParam().status);
    EXPECT_EQ(run.err(), GetParam().message);
    EXPECT_EQ(run.out(), "");
    EXPECT_THAT(run.temporaryFiles(), IsEmpty());
}

const std::vector<ExitRow> kEndings = {
    {"success", {"true"}, 0, ""},
    {"failure", {"false"}, 1, ""},
    {"status", {"sh", "-c", "exit 42"}, 42, ""},
    {"killed", {"sh", "-c", "kill -KILL $$"}, 137, ""},
    {"terminated", {"sh", "-c", "kill -TERM $$"}, 143, ""},
    {"without_a_reader", {"sh", "-c", "kill -PIPE $$"}, 141, ""},
    {"not_found", {"no-such-command-here"}, 127, "kvosim: no-such-command-here: No such file or directory\n"},
    {"not_found_path", {"/no/such/command"}, 127, "kvosim: /no/such/command: No such file or directory\n"},
    {"not_executable", {"/etc/passwd"}, 126, "kvosim: /etc/passwd: Permission denied\n"},
    {"directory", {"/tmp"}, 126, "kvosim: /tmp: Permission denied\n"},
    {"arguments_unchanged",
     {"sh", "-c", "test $# = 4 && test \"$1\" = --help && test \"$2\" = -- && test \"$3\" = '[a,b]'", "sh", "--help", "--",
      "[a,b]", ""},
     0,
     ""}};

INSTANTIATE_TEST_SUITE_P(Table, RunExitStatus, testing::ValuesIn(kEndings), kvosim_test::kNameOfRow);

TEST(Run, goes_on_without_a_reader_of_its_messages)
{
    const std::string script = "sleep 0.3; " ASK_PROGRAM " getVersion >&3; " ASK_PROGRAM " getDebugLevel >&3; exit 7";
    Program shell({"sh", "-c",
                   "{ { " KVOSIM_PROGRAM " run --verbose --usb-lock-address none -- sh -c '" + script +
                       "' 2>&4; echo \"status $?\" >&3; } 4>&1 | true; } 3>&1"});
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_THAT(shell.out(), testing::StrEq("V01.00.00.00\nDEBUG_LEVEL_NONE\nstatus 7\n"));
    EXPECT_THAT(shell.temporaryFiles(), IsEmpty());
}

Program runByName(const std::filesystem::path &directory)
{
    return Program({"sh", "-c",
                    "PATH=" + directory.string() +
                        ":\"$PATH\" exec " KVOSIM_PROGRAM " run --usb-lock-address none -- kvosim-test-command"});
}

TEST(Run, reports_a_command_that_cannot_be_executed)
{
    const kvosim_test::TemporaryDirectory directory;
    std::ofstream(directory / "kvosim-test-command") << "no program";
    Program run = runByName(directory.path());
    EXPECT_EQ(run.wait(), 126);
    EXPECT_EQ(run.err(), "kvosim: kvosim-test-command: Permission denied\n");
}

TEST(Run, does_not_find_a_command_in_an_unreadable_directory)
{
    if (geteuid() == 0) {
        GTEST_SKIP() << "root can read every directory";
    }
    const kvosim_test::TemporaryDirectory directory;
    std::filesystem::create_directory(directory / "closed");
    std::filesystem::permissions(directory / "closed", std::filesystem::perms::none);
    Program run = runByName(directory / "closed");
    EXPECT_EQ(run.wait(), 127);
    std::filesystem::permissions(directory / "closed", std::filesystem::perms::owner_all);
    EXPECT_EQ(run.err(), "kvosim: kvosim-test-command: No such file or directory\n");
}

TEST(Run, serves_only_its_command)
{
    Program run(runShell("ls /tmp/kvo_hws"));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.out(), "cmd_sock\nevent_sock\nkvosim_ctl\n");
    EXPECT_FALSE(std::filesystem::exists(kSocket)) << "other programs must not see the service";
}

TEST(Run, does_not_disturb_a_service_outside)
{
    const Program outside(serve());
    ASSERT_TRUE(outside.hasWritten(kReady)) << outside.err();
    Program run(runShell("ls /tmp/kvo_hws"));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(exchange("getCountElemDL\n"), "30\n");
}

TEST(Run, passes_its_standard_streams_to_the_command)
{
    Program run(runShell("echo to-out; echo to-err >&2"));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.out(), "to-out\n");
    EXPECT_EQ(run.err(), "to-err\n");
}

TEST(Run, starts_the_command_with_default_signals)
{
    Program run(runShell("grep SigBlk /proc/self/status"));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.out(), "SigBlk:\t0000000000000000\n");
}

class RunForwards : public testing::TestWithParam<int> {};

TEST_P(RunForwards, signal_to_its_command)
{
    Program run(runShell(
        "trap 'echo got-TERM; exit 7' TERM; trap 'echo got-INT; exit 7' INT; echo ready; while :; do sleep 0.01; done"));
    ASSERT_TRUE(run.hasWritten("ready\n"));
    run.signal(GetParam());
    EXPECT_EQ(run.wait(), 7);
    EXPECT_EQ(run.out(), GetParam() == SIGTERM ? "ready\ngot-TERM\n" : "ready\ngot-INT\n");
    EXPECT_THAT(run.temporaryFiles(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Signals, RunForwards, testing::Values(SIGTERM, SIGINT),
                         [](const auto &row) { return row.param == SIGTERM ? "term" : "int"; });

TEST(Run, ends_processes_that_the_command_leaves_running)
{
    // One process that ends on SIGTERM, and one that must be killed.
    Program run(runShell(
        "sleep 1000 & echo $!; sh -c 'trap \"\" TERM; echo $$; touch \"$TMPDIR/trapped\"; while :; do sleep 0.05; done' &"
        " until [ -e \"$TMPDIR/trapped\" ]; do sleep 0.02; done"));
    EXPECT_EQ(run.wait(), 0);
    std::istringstream processes(run.out());
    int found = 0;
    for (pid_t process = 0; processes >> process; ++found) {
        EXPECT_NE(kill(process, 0), 0) << process << " is still running";
    }
    EXPECT_EQ(found, 2);
}

TEST(Run, ends_its_command_when_it_is_killed)
{
    pid_t command = 0;
    {
        const Program run(runShell("echo $$; exec sleep 1000"));
        ASSERT_TRUE(run.hasWritten("\n"));
        command = std::stoi(run.out());
        ASSERT_EQ(kill(command, 0), 0);
    }
    bool gone = false;
    for (int i = 0; i < 500 && !gone; ++i) {
        // An orphan remains a zombie if no process reaps it.
        const std::string status = kvosim_test::contentsOf("/proc/" + std::to_string(command) + "/stat");
        gone = kill(command, 0) != 0 || status.find(") Z ") != std::string::npos;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(gone);
}

TEST(Run, serves_the_given_plant_and_logs_when_verbose)
{
    Program run(runShell(ASK_PROGRAM " getCountElemDL killDaemon && ! " ASK_PROGRAM " getVersion && exit 5",
                         {"--plant", EXAMPLE_PLANT, "--verbose"}));
    EXPECT_EQ(run.wait(), 5) << "the command continues after it has ended the service";
    EXPECT_EQ(run.out(), "30\nok\n");
    EXPECT_THAT(run.err(), HasSubstr(" getCountElemDL -> 30\n"));
    EXPECT_THAT(run.temporaryFiles(), IsEmpty());
}

TEST(Run, reports_that_the_kernel_refuses_a_namespace)
{
    Program run(runShell("echo started"), true);
    EXPECT_EQ(run.wait(), 1);
    EXPECT_EQ(run.out(), "");
    const std::string missing =
        geteuid() == 0
            ? "although this process has CAP_SYS_ADMIN: a system call filter, such as a container's, forbids it)"
            : "only root may); new user namespace, in which it were permitted: Operation not permitted; the kernel or "
              "the container forbids them";
    EXPECT_THAT(run.err(), StartsWith("kvosim: no private /tmp/kvo_hws: new mount namespace: Operation not permitted (" +
                                      missing + ". \"kvosim run --shared\" needs no namespace"));
    EXPECT_THAT(run.temporaryFiles(), IsEmpty());
}

/// Whether this test runs in the namespace of the sandbox, so its mounts are not visible outside.
bool hasPrivateMounts()
{
    struct stat sockets {};
    struct stat parent {};
    return stat("/tmp/kvo_hws", &sockets) == 0 && stat("/tmp", &parent) == 0 && sockets.st_dev != parent.st_dev;
}

TEST(Run, refuses_a_symbolic_link_as_the_sockets_directory)
{
    // Uses a private /tmp, so no other process sees the link. The private /tmp may hide the program and its libraries.
    const std::string script = "exec 3<\"$0\" 4<\"${0%/bin/*}/lib\" && "
                               "mount -t tmpfs none /tmp && mkdir /tmp/target && ln -s target /tmp/kvo_hws && "
                               "LD_LIBRARY_PATH=/proc/self/fd/4 exec /proc/self/fd/3 run -- echo started";
    if (geteuid() != 0 || !hasPrivateMounts()) {
        GTEST_SKIP() << "only root can have a private /tmp, and not in a chroot below a shared mount";
    }
    // unshare cannot make the mounts private in a chroot whose root is not a mount point. The sandbox has already done it.
    Program run({"unshare", "--mount", "--propagation", "unchanged", "sh", "-c", script, KVOSIM_PROGRAM});
    EXPECT_EQ(run.wait(), 1);
    EXPECT_EQ(run.out(), "");
    EXPECT_THAT(run.err(), HasSubstr("/tmp/kvo_hws is not a usable directory (it belongs to root, number 0; it must be a "
                                     "directory, not a link); to remove it, type \"rm /tmp/kvo_hws\""));
}

TEST(Run, reports_a_mistake_in_the_plant_file_before_the_command_starts)
{
    Program run(runShell("echo started", {"--plant", "/no/such/plant.toml"}));
    EXPECT_EQ(run.wait(), 2);
    EXPECT_EQ(run.err(), "kvosim: /no/such/plant.toml: cannot be read; give the path of a plant file (docs/plant-file.md)\n");
    EXPECT_EQ(run.out(), "");
}

}  // namespace
