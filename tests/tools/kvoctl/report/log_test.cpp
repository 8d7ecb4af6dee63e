// The lines of the system log in a report.
#include "tools/common/tap/service.h"
#include "tools/kvoctl/report/report.h"
#include "tools/kvoctl/support/watching.h"

#include "support/eventually.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sys/mount.h>
#include <sys/stat.h>

namespace kvoctl_test {

namespace {

using namespace std::chrono_literals;
using kvosim_test::contentsOf;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

/// A machine with a log of its own. The lists of names may contain tests that run at the same time, because they use the library.
class ReportOfTheLog : public Reporting {
protected:
    void SetUp() override
    {
        Reporting::SetUp();
        if (!IsSkipped() && mount("tmpfs", "/var/log", "tmpfs", 0, nullptr) != 0) {
            GTEST_SKIP() << "skipped: no tmpfs at /var/log: " << std::strerror(errno);
        }
        std::filesystem::create_directory(path("bin"));
    }
    /// A journalctl that runs this script.
    void installJournal(const std::string &script) const
    {
        std::ofstream(path("bin/journalctl")) << "#!/bin/sh\n" << script << '\n';
        chmod(path("bin/journalctl").c_str(), 0755);
    }
    [[nodiscard]] std::vector<std::string> environment() const
    {
        // Without an own journalctl, no other one may be found.
        std::filesystem::create_symlink("/bin/sleep", path("bin/sleep"));
        return {"PATH=" + path("bin")};
    }
    [[nodiscard]] Json logPart(const Arguments &more = {}) const
    {
        Arguments arguments{"--json", "--force"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const Ended ended = run(arguments, {.environment = environment()});
        EXPECT_EQ(ended.status, 0) << ended.err;
        return partOf(ended.document(), "log.txt");
    }
};

TEST_F(ReportOfTheLog, comes_from_the_journal)
{
    const tap_test::Service service;
    installJournal("echo \"$@\"\necho '2026-11-22T14:00:00+0000 kvo_hws[12]: text'");
    EXPECT_EQ(logPart()["state"], "complete");
    const std::vector<std::string> all = lines(unpacked().at("log.txt"));
    ASSERT_EQ(all.size(), 3U);
    EXPECT_THAT(all[0], MatchesRegex("# The lines of .*kvo_hws, kvo_hws_dll.*, kvosim.* in the journal, at most 5000"));
    EXPECT_THAT(all[1], StartsWith("--no-pager --no-hostname --quiet --output=short-iso --lines 5000 --identifier "));
    EXPECT_THAT(all[1], AllOf(HasSubstr("--identifier kvo_hws "), HasSubstr("--identifier kvosim")));
    EXPECT_EQ(all[2], "2026-11-22T14:00:00+0000 kvo_hws[12]: text");
}

TEST_F(ReportOfTheLog, comes_from_a_file_without_a_journal)
{
    std::ofstream("/var/log/messages") << "Nov 22 14:03:22 panel7 kvo_hws[12]: one\n"
                                          "Nov 22 14:03:23 panel7 sshd[13]: kvo_hws[12]: no\n"
                                          "2026-11-22T14:03:24.5+01:00 panel7 kvo_hws_dll: two\n";
    EXPECT_EQ(logPart()["state"], "complete");
    const std::vector<std::string> all = lines(unpacked().at("log.txt"));
    ASSERT_EQ(all.size(), 3U);
    EXPECT_THAT(all[0], MatchesRegex("# The lines of .* in /var/log/messages, at most 5000"));
    EXPECT_EQ(all[1], "Nov 22 14:03:22 kvo_hws[12]: one");
    EXPECT_EQ(all[2], "2026-11-22T14:03:24.5+01:00 kvo_hws_dll: two");
}

TEST_F(ReportOfTheLog, has_only_the_last_lines)
{
    std::ofstream log("/var/log/syslog");
    for (int i = 0; i < 6000; ++i) {
        log << "Nov 22 14:03:22 panel7 kvo_hws[12]: line " << i << '\n';
    }
    log.close();
    EXPECT_EQ(logPart()["state"], "complete");
    const std::vector<std::string> all = lines(unpacked().at("log.txt"));
    ASSERT_EQ(all.size(), 5001U);
    EXPECT_THAT(all[1], testing::EndsWith(" line 1000"));
    EXPECT_THAT(all.back(), testing::EndsWith(" line 5999"));
}

TEST_F(ReportOfTheLog, says_where_it_has_looked)
{
    installJournal("exit 1");
    std::ofstream("/var/log/syslog") << "Nov 22 14:03:22 panel7 cron[12]: text\n";
    const Json log = logPart();
    EXPECT_EQ(log["state"], "missing");
    EXPECT_THAT(log["reasons"][0].get<std::string>(),
                MatchesRegex("no lines of .* in the system log: journalctl failed; /var/log/syslog has no such lines; "
                             "/var/log/messages: No such file or directory"));
}

TEST_F(ReportOfTheLog, without_any_log_names_the_missing_program)
{
    EXPECT_THAT(logPart()["reasons"][0].get<std::string>(), HasSubstr("journalctl is not installed; /var/log/syslog: No such"));
}

TEST_F(ReportOfTheLog, ends_a_journal_that_hangs)
{
    installJournal("echo $$ > " + path("id") + "\nexec sleep 1000");
    Watching report({path()}, {"report"});  // with the usual PATH
    report.stop(SIGKILL);
    const std::vector<std::string> inherited = environment();
    const std::string old = std::getenv("PATH");
    setenv("PATH", path("bin").c_str(), 1);
    Watching hanging({path(), "--force"}, {"report"});
    setenv("PATH", old.c_str(), 1);
    ASSERT_TRUE(support::eventually([&] { return std::filesystem::exists(path("id")); }));
    ASSERT_TRUE(support::eventually([&] { return contentsOf(path("id")).ends_with("\n"); }));
    EXPECT_EQ(hanging.stop(SIGINT), 0);
    const std::string process = "/proc/" + std::to_string(std::stoi(contentsOf(path("id"))));
    EXPECT_TRUE(support::eventually(
        [&] { return !std::filesystem::exists(process + "/maps") || contentsOf(process + "/maps").empty(); }));
    EXPECT_THAT(unpacked().at("INDEX.txt"), HasSubstr("MISSING: the report was ended while this part was made"));
}

TEST_F(ReportOfTheLog, has_nothing_of_the_plant_in_an_anonymized_report)
{
    const tap_test::Service service;
    std::ofstream("/var/log/syslog")
        << "Nov 22 14:03:22 panel7 kvo_hws[12]: connect to 10.0.0.5\n"
           "Nov 22 14:03:22 panel7 kvo_hws[12]: getExDescByIP 0A000005 (Milling centre 1)\n"
           "Nov 22 14:03:22 panel7 kvo_hws[12]: received text from client 'removeUSBdevice*10.0.0.5*Tom's stick*1*'\n"
           "Nov 22 14:03:22 panel7 kvo_hws[12]: connected to '/tmp/kvo_hws/event_sock'\n"
           "Nov 22 14:03:22 panel7 kvo_hws[12]: sending text to client 'ok'\n"
           "Nov 22 14:03:22 panel7 kvo_hws[12]: embKvoEventsThread: Got event: key, Tom\n"
           "Nov 22 14:03:22 panel7 kvosim[12]: Tom\n";
    const Json part = logPart({"--anonymize"});
    EXPECT_EQ(part["state"], "incomplete");
    EXPECT_EQ(part["reasons"][0], "the lines of the service and of programs are left out: they may contain any names");
    const std::string log = unpacked().at("log.txt");
    const std::vector<std::string> all = lines(log);
    ASSERT_EQ(all.size(), 7U) << log;
    EXPECT_THAT(all[1], MatchesRegex("Nov 22 14:03:22 kvo_hws.12.: connect to 192\\.0\\.2\\.[0-9]+"));
    EXPECT_THAT(all[2], MatchesRegex(".*: getExDescByIP C00002[0-9A-F]+ .name[0-9]+x+."));
    EXPECT_THAT(all[3], testing::EndsWith("received text from client '...'"));
    EXPECT_THAT(all[4], testing::EndsWith("connected to '/tmp/kvo_hws/event_sock'"));
    EXPECT_THAT(all[5], testing::EndsWith("sending text to client 'ok'"));
    EXPECT_THAT(all[6], MatchesRegex(".*Got event: key, te?x?t?[0-9]+x*"));
    EXPECT_THAT(log, testing::Not(HasSubstr("Tom")));
}

}  // namespace

}  // namespace kvoctl_test
