// The folder of the sockets between two users, and between shared runs.
#include "support/eventually.h"
#include "tools/kvosim/program/run_folder.h"
#include "tools/kvosim/support/program.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

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
using support::eventually;

constexpr uid_t kOtherUser = 65534;

Words runShared(const std::string &script) { return run(script, {"--shared"}); }

Words asOther(const Words &words)
{
    // Its temporary files cannot lie in the test's folder.
    Words all{"env", "TMPDIR=/tmp", "setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

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
              "kvosim: /tmp/kvo_hws belongs to another user (nobody, number 65534), whose \"kvosim run\" uses it; "
              "wait until that ends, or use \"kvosim run\"\n");
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
    EXPECT_EQ(shared.err(), "kvosim: a service is already running at /tmp/kvo_hws/cmd_sock; end it first, or start the command "
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
