// The folder of the sockets, created by private runs: when it is removed, and by which process.
#include "tools/kvosim/program/run_folder.h"
#include "tools/kvosim/support/program.h"

#include <chrono>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <signal.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim_test::disappears;
using kvosim_test::exists;
using kvosim_test::kFolder;
using kvosim_test::makeFolder;
using kvosim_test::Program;
using kvosim_test::run;
using kvosim_test::RunFolder;
using kvosim_test::serve;
using kvosim_test::statusOf;
using kvosim_test::touch;
using kvosim_test::waitFor;
using kvosim_test::Words;

constexpr int kInNameOnly = 0;

// ---- Private runs ----

TEST_F(RunFolder, is_removed_by_the_run_that_created_it)
{
    Program first(run("true"));
    EXPECT_EQ(first.wait(), 0) << first.err();
    EXPECT_FALSE(exists(kFolder)) << "it is removed before the run has ended";
}

TEST_F(RunFolder, is_removed_when_the_command_cannot_start)
{
    Program failing({KVOSIM_PROGRAM, "run", "--usb-lock-address", "none", "--", "/no/such/command"});
    EXPECT_EQ(failing.wait(), 127);
    EXPECT_FALSE(exists(kFolder));
}

TEST_F(RunFolder, is_removed_when_the_kernel_refuses_a_namespace)
{
    Program refused(run("true"), true);
    EXPECT_EQ(refused.wait(), 1);
    EXPECT_FALSE(exists(kFolder));
}

TEST_F(RunFolder, is_kept_if_it_existed_before)
{
    makeFolder(0755);
    const ino_t before = statusOf(kFolder).st_ino;
    Program one(run("true"));
    EXPECT_EQ(one.wait(), 0) << one.err();
    EXPECT_EQ(statusOf(kFolder).st_ino, before);
    EXPECT_EQ(statusOf(kFolder).st_mode & 07777, mode_t{0755});
}

TEST_F(RunFolder, is_accessible_to_other_users_with_any_umask)
{
    umask(077);
    const Program one(run(waitFor("/tmp/end")));
    ASSERT_TRUE(one.hasWritten("begun\n")) << one.err();
    EXPECT_EQ(statusOf(kFolder).st_mode & 0777, mode_t{0755});
}

TEST_F(RunFolder, is_removed_after_a_run_that_is_killed)
{
    {
        const Program killed(run(waitFor("/tmp/end")));
        ASSERT_TRUE(killed.hasWritten("begun\n")) << killed.err();
        EXPECT_TRUE(exists(kFolder));
    }
    EXPECT_TRUE(disappears(kFolder));
}

TEST_F(RunFolder, is_removed_after_ctrl_c)
{
    // A terminal sends the signal to the whole process group. The process that removes the folder is not in it.
    Words words{"setsid", "--wait"};
    for (const std::string &word : run("trap 'exit 5' INT; kill -INT 0; sleep 10")) {
        words.push_back(word);
    }
    Program interrupted(words);
    interrupted.wait();
    EXPECT_TRUE(disappears(kFolder));
}

TEST_F(RunFolder, left_by_a_run_that_was_killed_with_its_guardian_is_removed_by_the_next_run)
{
    makeFolder(01755);
    Program next(run("true"));
    EXPECT_EQ(next.wait(), 0) << next.err();
    EXPECT_FALSE(exists(kFolder));
}

TEST_F(RunFolder, is_kept_while_a_program_runs_that_replaced_its_creator)
{
    ASSERT_EQ(mkfifo("/tmp/end", 0600), 0);
    Program sandboxed({SANDBOX_PROGRAM, "/bin/sh", "-c", "echo begun; read -r _ </tmp/end; ls -d /tmp/kvo_hws"});
    ASSERT_TRUE(sandboxed.hasWritten("begun\n")) << sandboxed.err();
    Program one(run("true"));
    EXPECT_EQ(one.wait(), 0) << one.err();
    EXPECT_TRUE(exists(kFolder));
    std::ofstream("/tmp/end") << "\n";
    EXPECT_EQ(sandboxed.wait(), 0) << "it has lost its folder: " << sandboxed.err();
    EXPECT_TRUE(disappears(kFolder));
}

class OneOfEightRunsEnds : public RunFolder, public testing::WithParamInterface<int> {};

TEST_P(OneOfEightRunsEnds, and_the_others_continue)
{
    std::vector<std::unique_ptr<Program>> runs;
    for (int i = 0; i < 8; ++i) {
        // The first run has created the folder.
        runs.push_back(std::make_unique<Program>(run(waitFor("/tmp/end" + std::to_string(i)))));
        ASSERT_TRUE(runs.back()->hasWritten("begun\n")) << runs.back()->err();
    }
    if (GetParam() == kInNameOnly) {
        touch("/tmp/end0");
        EXPECT_EQ(runs[0]->wait(), 0) << runs[0]->err();
    } else {
        runs[0]->signal(GetParam());
        runs[0]->wait();
    }
    // Longer than its guardian needs.
    std::this_thread::sleep_for(200ms);
    EXPECT_TRUE(exists(kFolder));
    for (int i = 1; i < 8; ++i) {
        touch("/tmp/end" + std::to_string(i));
    }
    for (int i = 1; i < 8; ++i) {
        EXPECT_EQ(runs[i]->wait(), 0) << runs[i]->err();
        EXPECT_EQ(runs[i]->out(), "begun\n3\n") << "run " << i << " has lost its service";
    }
    EXPECT_TRUE(disappears(kFolder));
}

INSTANTIATE_TEST_SUITE_P(Ways, OneOfEightRunsEnds, testing::Values(kInNameOnly, SIGTERM, SIGKILL), [](const auto &row) {
    return row.param == SIGKILL ? "killed" : row.param == SIGTERM ? "terminated" : "by_itself";
});

TEST_F(RunFolder, is_kept_if_runs_begin_while_others_end)
{
    const std::string loop = "for i in 1 2 3 4 5 6 7 8 9 10; do " KVOSIM_PROGRAM " run --usb-lock-address none -- " ASK_PROGRAM
                             " getCountElemDL || exit 1; done";
    std::vector<std::unique_ptr<Program>> loops;
    for (int i = 0; i < 4; ++i) {
        loops.push_back(std::make_unique<Program>(Words{"sh", "-c", loop}));
    }
    for (const auto &one : loops) {
        EXPECT_EQ(one->wait(), 0) << one->err();
        EXPECT_EQ(one->out(), "3\n3\n3\n3\n3\n3\n3\n3\n3\n3\n");
    }
    EXPECT_TRUE(disappears(kFolder));
}

// ---- Runs and services ----

TEST_F(RunFolder, allows_a_service_to_start_while_a_run_uses_it)
{
    Program one(run(waitFor("/tmp/end")));
    ASSERT_TRUE(one.hasWritten("begun\n")) << one.err();
    Program service(serve());
    ASSERT_TRUE(service.hasWritten("kvosim: serving 1 stations")) << service.err();
    touch("/tmp/end");
    EXPECT_EQ(one.wait(), 0) << one.err();
    EXPECT_EQ(one.out(), "begun\n3\n");
    Program question({ASK_PROGRAM, "getCountElemDL"});
    EXPECT_EQ(question.wait(), 0);
    EXPECT_EQ(question.out(), "1\n") << "the service has lost its folder";
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), 0);
    Program last(run("true"));
    EXPECT_EQ(last.wait(), 0);
    EXPECT_FALSE(exists(kFolder)) << "a run created it, and it is empty";
}

TEST_F(RunFolder, is_kept_if_it_contains_files)
{
    makeFolder(01755);
    touch("/tmp/kvo_hws/precious");
    Program one(run("true"));
    EXPECT_EQ(one.wait(), 0) << one.err();
    EXPECT_TRUE(exists("/tmp/kvo_hws/precious"));
}

}  // namespace
