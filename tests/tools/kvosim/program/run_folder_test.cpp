// The folder of the sockets that private runs make: who removes it, and when.
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

using kvosim_test::goes;
using kvosim_test::isThere;
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

TEST_F(RunFolder, is_removed_by_the_run_that_made_it)
{
    Program first(run("true"));
    EXPECT_EQ(first.wait(), 0) << first.err();
    EXPECT_FALSE(isThere(kFolder)) << "it is removed before the run has ended";
}

TEST_F(RunFolder, is_removed_when_the_command_cannot_start)
{
    Program failing({KVOSIM_PROGRAM, "run", "--usb-lock-address", "none", "--", "/no/such/command"});
    EXPECT_EQ(failing.wait(), 127);
    EXPECT_FALSE(isThere(kFolder));
}

TEST_F(RunFolder, is_removed_when_the_kernel_refuses_a_namespace)
{
    Program refused(run("true"), true);
    EXPECT_EQ(refused.wait(), 1);
    EXPECT_FALSE(isThere(kFolder));
}

TEST_F(RunFolder, stays_where_it_was_there_before)
{
    makeFolder(0755);
    const ino_t before = statusOf(kFolder).st_ino;
    Program one(run("true"));
    EXPECT_EQ(one.wait(), 0) << one.err();
    EXPECT_EQ(statusOf(kFolder).st_ino, before);
    EXPECT_EQ(statusOf(kFolder).st_mode & 07777, mode_t{0755});
}

TEST_F(RunFolder, can_be_used_by_others_whatever_the_umask)
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
        EXPECT_TRUE(isThere(kFolder));
    }
    EXPECT_TRUE(goes(kFolder));
}

TEST_F(RunFolder, is_removed_after_ctrl_c)
{
    // A terminal signals the whole group of processes, of which the one that removes the folder is none.
    Words words{"setsid", "--wait"};
    for (const std::string &word : run("trap 'exit 5' INT; kill -INT 0; sleep 10")) {
        words.push_back(word);
    }
    Program interrupted(words);
    interrupted.wait();
    EXPECT_TRUE(goes(kFolder));
}

TEST_F(RunFolder, is_made_again_where_a_run_that_was_killed_with_its_guardian_has_left_it)
{
    makeFolder(01755);
    Program next(run("true"));
    EXPECT_EQ(next.wait(), 0) << next.err();
    EXPECT_FALSE(isThere(kFolder));
}

TEST_F(RunFolder, is_held_by_a_program_that_was_executed_in_place_of_the_one_that_made_it)
{
    ASSERT_EQ(mkfifo("/tmp/end", 0600), 0);
    Program sandboxed({SANDBOX_PROGRAM, "/bin/sh", "-c", "echo begun; read -r _ </tmp/end; ls -d /tmp/kvo_hws"});
    ASSERT_TRUE(sandboxed.hasWritten("begun\n")) << sandboxed.err();
    Program one(run("true"));
    EXPECT_EQ(one.wait(), 0) << one.err();
    EXPECT_TRUE(isThere(kFolder));
    std::ofstream("/tmp/end") << "\n";
    EXPECT_EQ(sandboxed.wait(), 0) << "it has lost its folder: " << sandboxed.err();
    EXPECT_TRUE(goes(kFolder));
}

class OneOfEightRunsEnds : public RunFolder, public testing::WithParamInterface<int> {};

TEST_P(OneOfEightRunsEnds, and_the_others_go_on)
{
    std::vector<std::unique_ptr<Program>> runs;
    for (int i = 0; i < 8; ++i) {
        // The first one has made the folder.
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
    // Longer than its guardian takes.
    std::this_thread::sleep_for(200ms);
    EXPECT_TRUE(isThere(kFolder));
    for (int i = 1; i < 8; ++i) {
        touch("/tmp/end" + std::to_string(i));
    }
    for (int i = 1; i < 8; ++i) {
        EXPECT_EQ(runs[i]->wait(), 0) << runs[i]->err();
        EXPECT_EQ(runs[i]->out(), "begun\n3\n") << "run " << i << " has lost its service";
    }
    EXPECT_TRUE(goes(kFolder));
}

INSTANTIATE_TEST_SUITE_P(Ways, OneOfEightRunsEnds, testing::Values(kInNameOnly, SIGTERM, SIGKILL), [](const auto &row) {
    return row.param == SIGKILL ? "killed" : row.param == SIGTERM ? "terminated" : "by_itself";
});

TEST_F(RunFolder, is_kept_by_runs_that_begin_while_others_end)
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
    EXPECT_TRUE(goes(kFolder));
}

// ---- Runs and services ----

TEST_F(RunFolder, lets_a_service_start_while_a_run_uses_it)
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
    EXPECT_FALSE(isThere(kFolder)) << "a run made it, and nothing is in it";
}

TEST_F(RunFolder, stays_with_the_files_that_are_in_it)
{
    makeFolder(01755);
    touch("/tmp/kvo_hws/precious");
    Program one(run("true"));
    EXPECT_EQ(one.wait(), 0) << one.err();
    EXPECT_TRUE(isThere("/tmp/kvo_hws/precious"));
}

}  // namespace
