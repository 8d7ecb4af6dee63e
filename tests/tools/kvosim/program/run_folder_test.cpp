// The folder /tmp/kvo_hws of the whole machine before, during and after "kvosim run": who makes it, and who removes it.
#include "support/eventually.h"
#include "tools/kvosim/support/private_tmp.h"
#include "tools/kvosim/support/program.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <signal.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using kvosim_test::Program;
using support::eventually;
using namespace std::chrono_literals;

constexpr const char *kFolder = "/tmp/kvo_hws";
constexpr uid_t kOtherUser = 65534;
constexpr int kInNameOnly = 0;

bool isThere(const std::string &path) { return std::filesystem::exists(std::filesystem::symlink_status(path)); }

bool goes(const std::string &path)
{
    return eventually([&] { return !isThere(path); });
}

struct stat statusOf(const std::string &path)
{
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

void makeFolder(mode_t mode, uid_t owner = 0)
{
    ASSERT_EQ(mkdir(kFolder, mode), 0);
    ASSERT_EQ(chmod(kFolder, mode), 0);
    ASSERT_EQ(chown(kFolder, owner, owner), 0);
}

using Words = std::vector<std::string>;

Words run(const std::string &script, const Words &options = {})
{
    Words words{KVOSIM_PROGRAM, "run", "--usb-lock-address", "none"};
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {"--", "sh", "-c", script});
    return words;
}

Words runShared(const std::string &script) { return run(script, {"--shared"}); }

Words serve()
{
    std::ofstream("/tmp/plant.toml") << "[[station]]\naddress = \"10.0.0.5\"\nname = \"Lathe\"\n";
    return {KVOSIM_PROGRAM, "serve", "--plant", "/tmp/plant.toml", "--usb-lock-address", "none"};
}

Words asOther(const Words &words)
{
    // Its temporary files cannot lie in the test's folder.
    Words all{"env", "TMPDIR=/tmp", "setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

/// Says that it has begun, and asks the service once more before it ends: when the file @p end is there.
std::string waitFor(const std::string &end)
{
    return "echo begun; while [ ! -e " + end + " ]; do sleep 0.02; done; " ASK_PROGRAM " getCountElemDL";
}

void touch(const std::string &path) { std::ofstream(path) << ""; }

class RunFolder : public testing::Test {
protected:
    void SetUp() override
    {
        const std::string reason =
            kvosim_test::enterPrivateTmp(std::filesystem::path(KVOSIM_PROGRAM).parent_path().parent_path());
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
    }
};

/// With a second user who can start the program.
class RunFolderOfTwoUsers : public RunFolder {
protected:
    void SetUp() override
    {
        RunFolder::SetUp();
        if (!IsSkipped() && Program(asOther({KVOSIM_PROGRAM, "--version"})).wait() != 0) {
            GTEST_SKIP() << "user number 65534 cannot reach " KVOSIM_PROGRAM;
        }
    }

    /// Whether the other user may make namespaces, which it needs for a private run.
    static bool mayUnshare() { return Program(asOther({"unshare", "--user", "--mount", "true"})).wait() == 0; }
};

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

// ---- Two users ----

TEST_F(RunFolderOfTwoUsers, lets_another_user_serve_after_a_run_of_root)
{
    Program first(run("true"));
    ASSERT_EQ(first.wait(), 0) << first.err();
    serve();
    Program service(asOther(serve()));
    EXPECT_TRUE(service.hasWritten("kvosim: serving 1 stations")) << service.err();
}

TEST_F(RunFolderOfTwoUsers, is_removed_by_its_maker_once_the_other_user_is_done)
{
    if (!mayUnshare()) {
        GTEST_SKIP() << "the kernel forbids user namespaces to ordinary users";
    }
    Program roots(run(waitFor("/tmp/end1")));
    ASSERT_TRUE(roots.hasWritten("begun\n")) << roots.err();
    Program others(asOther(run(waitFor("/tmp/end2"))));
    ASSERT_TRUE(others.hasWritten("begun\n")) << others.err();
    touch("/tmp/end1");
    EXPECT_EQ(roots.wait(), 0) << "it does not wait for the other one";
    EXPECT_TRUE(isThere(kFolder));
    touch("/tmp/end2");
    EXPECT_EQ(others.wait(), 0) << others.err();
    EXPECT_EQ(others.out(), "begun\n3\n");
    EXPECT_TRUE(goes(kFolder));
}

TEST_F(RunFolderOfTwoUsers, is_replaced_by_root_where_it_is_empty)
{
    makeFolder(0755, kOtherUser);
    const ino_t before = statusOf(kFolder).st_ino;
    Program one(run(waitFor("/tmp/end")));
    ASSERT_TRUE(one.hasWritten("begun\n")) << one.err();
    EXPECT_EQ(statusOf(kFolder).st_uid, 0U);
    EXPECT_NE(statusOf(kFolder).st_ino, before) << "it is not given to root, but made";
    touch("/tmp/end");
    EXPECT_EQ(one.wait(), 0) << one.err();
    EXPECT_FALSE(isThere(kFolder));

    makeFolder(0755, kOtherUser);
    const Program service(serve());
    ASSERT_TRUE(service.hasWritten("kvosim: serving 1 stations")) << service.err();
    EXPECT_EQ(statusOf(kFolder).st_uid, 0U);
}

TEST_F(RunFolderOfTwoUsers, is_not_replaced_under_a_run)
{
    if (!mayUnshare()) {
        GTEST_SKIP() << "the kernel forbids user namespaces to ordinary users";
    }
    Program others(asOther(run(waitFor("/tmp/end"))));
    ASSERT_TRUE(others.hasWritten("begun\n")) << others.err();
    Program roots(run("true"));
    EXPECT_EQ(roots.wait(), 0) << roots.err();
    Program service(serve());
    EXPECT_EQ(service.wait(), 1);
    EXPECT_EQ(service.err(),
              "kvosim: /tmp/kvo_hws belongs to another user (nobody, number 65534), who has \"kvosim run\" at work "
              "there; wait for its end, or use \"kvosim run\"\n");
    touch("/tmp/end");
    EXPECT_EQ(others.wait(), 0) << others.err();
    EXPECT_EQ(others.out(), "begun\n3\n");
    EXPECT_TRUE(goes(kFolder));
}

TEST_F(RunFolderOfTwoUsers, of_another_one_is_refused_with_the_command_that_helps)
{
    makeFolder(0755);
    serve();
    Program others(asOther(serve()));
    EXPECT_EQ(others.wait(), 1);
    EXPECT_EQ(others.err(), "kvosim: /tmp/kvo_hws belongs to another user (root, number 0); to remove it, type "
                            "\"sudo rm -r /tmp/kvo_hws\", or start the service as that user: \"sudo -u root kvosim ...\"\n");
    ASSERT_EQ(chown(kFolder, kOtherUser, kOtherUser), 0);
    touch("/tmp/kvo_hws/precious");
    Program roots(serve());
    EXPECT_EQ(roots.wait(), 1);
    EXPECT_EQ(roots.err(), "kvosim: /tmp/kvo_hws belongs to another user (nobody, number 65534); to remove it, type "
                           "\"rm -r /tmp/kvo_hws\", or start the service as that user: \"runuser -u nobody -- kvosim ...\"\n");
    EXPECT_TRUE(isThere("/tmp/kvo_hws/precious"));
}

TEST_F(RunFolderOfTwoUsers, that_nobody_else_may_read_can_be_mounted_on)
{
    if (!mayUnshare()) {
        GTEST_SKIP() << "the kernel forbids user namespaces to ordinary users";
    }
    makeFolder(0700);
    Program others(asOther(run(ASK_PROGRAM " getCountElemDL")));
    EXPECT_EQ(others.wait(), 0) << others.err();
    EXPECT_EQ(others.out(), "3\n");
    EXPECT_TRUE(isThere(kFolder));
}

// ---- Shared runs ----

TEST_F(RunFolder, of_the_machine_is_used_by_a_shared_run_and_removed)
{
    Program shared(runShared(waitFor("/tmp/end")));
    ASSERT_TRUE(shared.hasWritten("begun\n")) << shared.err();
    Program outside({ASK_PROGRAM, "getCountElemDL"});
    EXPECT_EQ(outside.wait(), 0) << "every program of the machine meets the service";
    EXPECT_EQ(outside.out(), "3\n");
    touch("/tmp/end");
    EXPECT_EQ(shared.wait(), 0) << shared.err();
    EXPECT_EQ(shared.out(), "begun\n3\n");
    EXPECT_EQ(shared.err(), "");
    EXPECT_FALSE(isThere(kFolder));
}

TEST_F(RunFolder, that_was_there_before_stays_after_a_shared_run)
{
    makeFolder(0755);
    Program shared(runShared("true"));
    EXPECT_EQ(shared.wait(), 0) << shared.err();
    EXPECT_TRUE(std::filesystem::is_empty(kFolder));
}

TEST_F(RunFolder, is_removed_after_a_shared_run_that_is_killed)
{
    {
        const Program killed(runShared(waitFor("/tmp/end")));
        ASSERT_TRUE(killed.hasWritten("begun\n")) << killed.err();
    }
    EXPECT_TRUE(goes(kFolder)) << "its sockets go with it";
}

TEST_F(RunFolder, is_given_to_one_shared_run_after_the_other)
{
    Program first(runShared(waitFor("/tmp/end")));
    ASSERT_TRUE(first.hasWritten("begun\n")) << first.err();
    Program second(runShared("test -e /tmp/end && " ASK_PROGRAM " getCountElemDL"));
    EXPECT_TRUE(eventually([&] { return second.err().ends_with(" to end\n"); }));
    EXPECT_EQ(second.err(), "kvosim: waiting for another \"kvosim run --shared\" to end\n");
    touch("/tmp/end");
    EXPECT_EQ(first.wait(), 0) << first.err();
    EXPECT_EQ(second.wait(), 0) << second.err();
    EXPECT_EQ(second.out(), "3\n");
    EXPECT_EQ(second.err(), "kvosim: waiting for another \"kvosim run --shared\" to end\n") << "it says so once";
    EXPECT_FALSE(isThere(kFolder));
}

TEST_F(RunFolderOfTwoUsers, is_given_to_a_shared_run_after_that_of_another_user)
{
    Program first(runShared(waitFor("/tmp/end")));
    ASSERT_TRUE(first.hasWritten("begun\n")) << first.err();
    Program second(asOther(runShared("test -e /tmp/end && " ASK_PROGRAM " getCountElemDL")));
    EXPECT_TRUE(eventually([&] { return second.err().ends_with(" to end\n"); }));
    touch("/tmp/end");
    EXPECT_EQ(first.wait(), 0) << first.err();
    EXPECT_EQ(second.wait(), 0) << second.err();
    EXPECT_EQ(second.err(), "kvosim: waiting for \"kvosim run\" of another user (root, number 0) to end\n");
    EXPECT_EQ(second.out(), "3\n");
    EXPECT_TRUE(goes(kFolder));
}

TEST_F(RunFolder, of_a_live_service_is_refused_to_a_shared_run)
{
    const Program service(serve());
    ASSERT_TRUE(service.hasWritten("kvosim: serving 1 stations")) << service.err();
    Program shared(runShared("echo started"));
    EXPECT_EQ(shared.wait(), 1);
    EXPECT_EQ(shared.out(), "");
    EXPECT_EQ(shared.err(), "kvosim: a service is running at /tmp/kvo_hws/cmd_sock already; end it first, or start the command "
                            "without kvosim to use that service\n");
    Program question({ASK_PROGRAM, "getCountElemDL"});
    EXPECT_EQ(question.wait(), 0);
    EXPECT_EQ(question.out(), "1\n") << "the service goes on";
    EXPECT_FALSE(isThere("/tmp/kvo_hws/.kvosim_turn"));
}

TEST_F(RunFolder, is_common_to_private_and_shared_runs)
{
    Program shared(runShared(waitFor("/tmp/end1")));
    ASSERT_TRUE(shared.hasWritten("begun\n")) << shared.err();
    Program own(run(waitFor("/tmp/end2")));
    ASSERT_TRUE(own.hasWritten("begun\n")) << "a private run waits for none: " << own.err();
    touch("/tmp/end1");
    EXPECT_EQ(shared.wait(), 0) << shared.err();
    touch("/tmp/end2");
    EXPECT_EQ(own.wait(), 0) << own.err();
    EXPECT_EQ(own.out(), "begun\n3\n");
    EXPECT_TRUE(goes(kFolder));
}

}  // namespace
