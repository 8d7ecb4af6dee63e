// The file of a report is complete or does not exist, and only its owner can read it.
#include "tools/common/tap/service.h"
#include "tools/kvoctl/report/report.h"
#include "tools/kvoctl/support/watching.h"

#include "support/eventually.h"
#include "support/scripted_service.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sys/mount.h>
#include <sys/stat.h>

namespace kvoctl_test {

namespace {

using namespace std::chrono_literals;
using kvosim_test::contentsOf;
using support::ScriptedService;
using testing::HasSubstr;
using testing::StartsWith;

class ReportFile : public Reporting {};

TEST_F(ReportFile, is_readable_only_for_its_owner)
{
    umask(0);
    ASSERT_EQ(run().status, 0);
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_THAT(names(), testing::ElementsAre("fault.tar.gz"));
}

TEST_F(ReportFile, has_entries_without_the_names_of_users)
{
    ASSERT_EQ(run().status, 0);
    ASSERT_EQ(std::system(("tar --numeric-owner -tvzf " + path() + " > " + path("list")).c_str()), 0);
    const std::vector<std::string> entries = lines(contentsOf(path("list")));
    EXPECT_THAT(entries.front(), testing::MatchesRegex("drwx------ 0/0 .* fault/"));
    EXPECT_THAT(entries[1], testing::MatchesRegex("-rw------- 0/0 .* fault/INDEX.txt"));
    for (const std::string &entry : entries) {
        EXPECT_THAT(entry, HasSubstr(" 0/0 "));
    }
}

TEST_F(ReportFile, replaces_another_one_only_with_force)
{
    std::ofstream(path()) << "old";
    const Ended refused = run();
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(refused.err,
                StartsWith("kvoctl: report: \"" + path() + "\" exists; choose another name, or replace it with --force\n"));
    EXPECT_EQ(contentsOf(path()), "old");
    EXPECT_EQ(run({"--force"}).status, 0);
    EXPECT_EQ(unpacked().count("INDEX.txt"), 1U);
}

TEST_F(ReportFile, is_refused_before_anything_is_asked)
{
    const ScriptedService service({support::replies("yes")});
    for (const std::string &file :
         {path("none/fault.tar.gz"), folder_.path().string(), std::string("/dev/full"), std::string()}) {
        const Ended refused = kvoctl({"report", file, "--force", "--json"});
        EXPECT_EQ(refused.status, 2) << file;
        EXPECT_THAT(refused.document()["error"]["meaning"], testing::ContainsRegex("^cannot create|is not a file"));
    }
    EXPECT_TRUE(service.requests().empty());
}

TEST_F(ReportFile, is_not_created_in_a_folder_that_is_only_readable)
{
    if (mount("tmpfs", folder_.path().c_str(), "tmpfs", MS_RDONLY, nullptr) != 0) {
        GTEST_SKIP() << "skipped: no tmpfs: " << std::strerror(errno);
    }
    const Ended refused = run();
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("cannot create \"" + path() + "\": Read-only file system"));
    umount2(folder_.path().c_str(), MNT_DETACH);
}

TEST_F(ReportFile, does_not_exist_if_the_disk_is_full)
{
    if (mount("tmpfs", folder_.path().c_str(), "tmpfs", 0, "size=4k") != 0) {
        GTEST_SKIP() << "skipped: no tmpfs: " << std::strerror(errno);
    }
    std::ofstream(path("filler")) << std::string(4096, 'x');
    const Ended failed = run();
    EXPECT_EQ(failed.status, 5);
    EXPECT_EQ(failed.err, "kvoctl: cannot write \"" + path() + "\": No space left on device\n");
    EXPECT_THAT(names(), testing::ElementsAre("filler"));
    umount2(folder_.path().c_str(), MNT_DETACH);
}

TEST_F(ReportFile, needs_no_home)
{
    EXPECT_EQ(run({}, {.environment = {"HOME=/nonexistent", "TMPDIR=/nonexistent"}}).status, 0);
}

TEST_F(ReportFile, needs_no_rights)
{
    const Arguments asNobody{"setpriv", "--reuid=65534", "--clear-groups"};
    const auto run = [&](Arguments more) {
        more.insert(more.begin(), asNobody.begin(), asNobody.end());
        return std::make_unique<kvosim_test::Program>(more);
    };
    if (run({KVOCTL_PROGRAM, "--version"})->wait() != 0) {
        GTEST_SKIP() << "skipped: setpriv cannot run kvoctl as another user";
    }
    const tap_test::Service service;  // of root: its sockets have the mode 0700
    ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
    const auto report = run({KVOCTL_PROGRAM, "report", path(), "--trace", "1"});
    EXPECT_EQ(report->wait(), 0) << report->err();
    const auto files = unpacked();
    EXPECT_THAT(files.at("INDEX.txt"), HasSubstr("Start with doctor.txt: This user may not write to the socket."));
    EXPECT_THAT(files.at("INDEX.txt"), HasSubstr("MISSING: this user may not connect to /tmp/kvo_hws/cmd_sock"));
    EXPECT_THAT(files.at("sockets.txt"), HasSubstr("unknown: Permission denied"));
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 65534U);
}

TEST_F(ReportFile, is_complete_when_the_report_is_ended_early)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        const ScriptedService service({support::staysSilent(60s)});
        Watching report({path(), "--force"}, {"report"});
        ASSERT_TRUE(support::eventually([&] { return !service.requests().empty(); }));
        EXPECT_EQ(report.stop(number), 0) << report.err();
        EXPECT_THAT(report.out(), HasSubstr("; it was ended early\n"));
        const auto files = unpacked();
        EXPECT_THAT(files.at("INDEX.txt"), HasSubstr("The user ended the report early."));
        EXPECT_THAT(files.at("INDEX.txt"), HasSubstr("MISSING: the report was ended while this part was made"));
        EXPECT_THAT(files.at("INDEX.txt"), HasSubstr("MISSING: the report was ended before this part was made"));
        EXPECT_THAT(names(), testing::ElementsAre("fault.tar.gz"));
    }
}

TEST_F(ReportFile, is_not_left_half_when_kvoctl_is_killed)
{
    const ScriptedService service({support::staysSilent(60s)});
    Watching report({path()}, {"report"});
    ASSERT_TRUE(support::eventually([&] { return !service.requests().empty(); }));
    EXPECT_EQ(report.stop(SIGKILL), -SIGKILL);
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(ReportFile, is_not_written_if_the_list_cannot_be_printed)
{
    const Ended failed = run({}, {.outputFile = "/dev/full"});
    EXPECT_EQ(failed.status, 5);
    EXPECT_THAT(names(), testing::IsEmpty());
}

}  // namespace

}  // namespace kvoctl_test
