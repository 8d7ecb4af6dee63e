// The folder of the sockets with two users and with shared runs.
#include "support/eventually.h"
#include "tools/kvosim/program/run_folder.h"
#include "tools/kvosim/support/program.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

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
using support::eventually;

constexpr uid_t kOtherUser = 65534;

Words runShared(const std::string &script) { return run(script, {"--shared"}); }

Words asOther(const Words &words)
{
    // The other user cannot write to the test's temporary folder.
    Words all{"env", "TMPDIR=/tmp", "setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

/// A fixture with a second user who can execute the program.
class RunFolderOfTwoUsers : public RunFolder {
protected:
    void SetUp() override
    {
        RunFolder::SetUp();
        if (!IsSkipped() && Program(asOther({KVOSIM_PROGRAM, "--version"})).wait() != 0) {
            GTEST_SKIP() << "user number 65534 cannot reach " KVOSIM_PROGRAM;
        }
    }

    /// Whether the other user may create namespaces, which a private run needs.
    static bool mayUnshare() { return Program(asOther({"unshare", "--user", "--mount", "true"})).wait() == 0; }
};

// ---- Two users ----

TEST_F(RunFolderOfTwoUsers, allows_another_user_to_serve_after_a_run_of_root)
{
    Program first(run("true"));
    ASSERT_EQ(first.wait(), 0) << first.err();
    serve();
    Program service(asOther(serve()));
    EXPECT_TRUE(service.hasWritten("kvosim: serving 1 stations")) << service.err();
}

TEST_F(RunFolderOfTwoUsers, is_removed_by_its_creator_after_the_other_user_has_finished)
{
    if (!mayUnshare()) {
        GTEST_SKIP() << "the kernel forbids user namespaces to ordinary users";
    }
    Program roots(run(waitFor("/tmp/end1")));
    ASSERT_TRUE(roots.hasWritten("begun\n")) << roots.err();
    Program others(asOther(run(waitFor("/tmp/end2"))));
    ASSERT_TRUE(others.hasWritten("begun\n")) << others.err();
    touch("/tmp/end1");
    EXPECT_EQ(roots.wait(), 0) << "it does not wait for the other run";
    EXPECT_TRUE(exists(kFolder));
    touch("/tmp/end2");
    EXPECT_EQ(others.wait(), 0) << others.err();
    EXPECT_EQ(others.out(), "begun\n3\n");
    EXPECT_TRUE(disappears(kFolder));
}

TEST_F(RunFolderOfTwoUsers, is_replaced_by_root_if_it_is_empty)
{
    makeFolder(0755, kOtherUser);
    const ino_t before = statusOf(kFolder).st_ino;
    Program one(run(waitFor("/tmp/end")));
    ASSERT_TRUE(one.hasWritten("begun\n")) << one.err();
    EXPECT_EQ(statusOf(kFolder).st_uid, 0U);
    EXPECT_NE(statusOf(kFolder).st_ino, before) << "the folder is created again, not changed to root";
    touch("/tmp/end");
    EXPECT_EQ(one.wait(), 0) << one.err();
    EXPECT_FALSE(exists(kFolder));

    makeFolder(0755, kOtherUser);
    const Program service(serve());
    ASSERT_TRUE(service.hasWritten("kvosim: serving 1 stations")) << service.err();
    EXPECT_EQ(statusOf(kFolder).st_uid, 0U);
}

TEST_F(RunFolderOfTwoUsers, is_not_replaced_during_a_run)
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
              "kvosim: /tmp/kvo_hws belongs to another user (nobody, number 65534), whose \"kvosim run\" uses it; "
              "wait until that ends, or use \"kvosim run\"\n");
    touch("/tmp/end");
    EXPECT_EQ(others.wait(), 0) << others.err();
    EXPECT_EQ(others.out(), "begun\n3\n");
    EXPECT_TRUE(disappears(kFolder));
}

TEST_F(RunFolderOfTwoUsers, of_another_user_is_refused_with_a_command_that_helps)
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
    EXPECT_TRUE(exists("/tmp/kvo_hws/precious"));
}

TEST_F(RunFolderOfTwoUsers, that_only_its_owner_can_read_can_be_mounted_on)
{
    if (!mayUnshare()) {
        GTEST_SKIP() << "the kernel forbids user namespaces to ordinary users";
    }
    makeFolder(0700);
    Program others(asOther(run(ASK_PROGRAM " getCountElemDL")));
    EXPECT_EQ(others.wait(), 0) << others.err();
    EXPECT_EQ(others.out(), "3\n");
    EXPECT_TRUE(exists(kFolder));
}

// ---- Shared runs ----

TEST_F(RunFolder, of_the_machine_is_used_by_a_shared_run_and_removed)
{
    Program shared(runShared(waitFor("/tmp/end")));
    ASSERT_TRUE(shared.hasWritten("begun\n")) << shared.err();
    Program outside({ASK_PROGRAM, "getCountElemDL"});
    EXPECT_EQ(outside.wait(), 0) << "every program on the machine can reach the service";
    EXPECT_EQ(outside.out(), "3\n");
    touch("/tmp/end");
    EXPECT_EQ(shared.wait(), 0) << shared.err();
    EXPECT_EQ(shared.out(), "begun\n3\n");
    EXPECT_EQ(shared.err(), "");
    EXPECT_FALSE(exists(kFolder));
}

TEST_F(RunFolder, that_existed_before_is_kept_after_a_shared_run)
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
    EXPECT_TRUE(disappears(kFolder)) << "its sockets are removed too";
}

TEST_F(RunFolder, is_used_by_one_shared_run_at_a_time)
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
    EXPECT_EQ(second.err(), "kvosim: waiting for another \"kvosim run --shared\" to end\n") << "printed once";
    EXPECT_FALSE(exists(kFolder));
}

TEST_F(RunFolderOfTwoUsers, is_used_by_a_shared_run_after_that_of_another_user)
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
    EXPECT_TRUE(disappears(kFolder));
}

TEST_F(RunFolder, of_a_live_service_is_refused_to_a_shared_run)
{
    const Program service(serve());
    ASSERT_TRUE(service.hasWritten("kvosim: serving 1 stations")) << service.err();
    Program shared(runShared("echo started"));
    EXPECT_EQ(shared.wait(), 1);
    EXPECT_EQ(shared.out(), "");
    EXPECT_EQ(shared.err(), "kvosim: a service is already running at /tmp/kvo_hws/cmd_sock; end it first, or start the command "
                            "without kvosim to use that service\n");
    Program question({ASK_PROGRAM, "getCountElemDL"});
    EXPECT_EQ(question.wait(), 0);
    EXPECT_EQ(question.out(), "1\n") << "the service continues";
    EXPECT_FALSE(exists("/tmp/kvo_hws/.kvosim_turn"));
}

TEST_F(RunFolder, can_be_used_by_private_and_shared_runs_at_once)
{
    Program shared(runShared(waitFor("/tmp/end1")));
    ASSERT_TRUE(shared.hasWritten("begun\n")) << shared.err();
    Program own(run(waitFor("/tmp/end2")));
    ASSERT_TRUE(own.hasWritten("begun\n")) << "a private run does not wait: " << own.err();
    touch("/tmp/end1");
    EXPECT_EQ(shared.wait(), 0) << shared.err();
    touch("/tmp/end2");
    EXPECT_EQ(own.wait(), 0) << own.err();
    EXPECT_EQ(own.out(), "begun\n3\n");
    EXPECT_TRUE(disappears(kFolder));
}

}  // namespace
