// A report with --trace, while programs ask the service.
#include "tools/kvoctl/report/report.h"
#include "tools/kvoctl/support/watching.h"
#include "tools/kvoctl/trace/traced_service.h"

#include "common/recording/recording.h"

#include <chrono>
#include <csignal>

namespace kvoctl_test {

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using tools::recording::Recording;

class ReportWithTrace : public Reporting {
protected:
    /// A report whose trace is now attached.
    struct Running {
        Watching report;

        explicit Running(const Arguments &arguments) : report(arguments, {"report"})
        {
            EXPECT_TRUE(support::eventually([] { return !filesOfTaps().empty() && listener() == "kvoctl"; })) << report.err();
        }
    };
};

TEST_F(ReportWithTrace, has_the_requests_of_programs_and_the_plant)
{
    const Service service;
    Running running({path(), "--trace", "2", "--json"});
    EXPECT_TRUE(answers());
    EXPECT_EQ(running.report.wait(), 0) << running.report.err();
    expectServiceInItsPlace();
    const auto files = unpacked();
    const Recording recording = Recording::read(files.at("trace.rec"), "trace.rec");
    EXPECT_GE(recording.size(), 1U);
    EXPECT_THAT(files.at("trace.rec"), HasSubstr("isInitComplete"));
    EXPECT_THAT(files.at("trace.txt"), HasSubstr("> isInitComplete < yes\n"));
    EXPECT_THAT(files.at("trace.txt"), HasSubstr("\nCOMMAND "));
    EXPECT_THAT(files.at("plant.toml"), HasSubstr("Milling centre 1"));
    EXPECT_THAT(names(), testing::ElementsAre("fault.tar.gz"));
}

TEST_F(ReportWithTrace, of_a_silent_service_shows_that_programs_get_no_reply)
{
    const Service service;
    ASSERT_EQ(kvosim_test::Program({KVOSIM_PROGRAM, "fault", "add", "silent"}).wait(), 0);
    Running running({path(), "--trace", "6"});
    EXPECT_NE(kvoctl({"ready"}).status, 0);
    EXPECT_EQ(running.report.wait(), 0) << running.report.err();
    EXPECT_THAT(unpacked().at("trace.txt"), HasSubstr("> isInitComplete (no reply)"));
}

TEST_F(ReportWithTrace, that_is_ended_early_has_the_trace_so_far)
{
    const Service service;
    Running running({path(), "--trace", "1000"});
    EXPECT_TRUE(answers());
    EXPECT_EQ(running.report.stop(SIGINT), 0) << running.report.err();
    expectServiceInItsPlace();
    EXPECT_THAT(running.report.out(), HasSubstr("trace.rec, trace.txt\n    incomplete: it was ended early\n"));
    const auto files = unpacked();
    EXPECT_THAT(files.at("trace.txt"), HasSubstr("> isInitComplete < yes\n"));
    EXPECT_THAT(files.at("INDEX.txt"), HasSubstr("The user ended the report early."));
}

TEST_F(ReportWithTrace, that_is_ended_twice_leaves_no_file_and_no_tap)
{
    const Service service;
    Running running({path(), "--trace", "1000"});
    const kvosim_test::Client open;  // an exchange in progress, which the trace completes
    open.send("isInit");
    ASSERT_TRUE(support::eventually([&] { return listener() == "kvoctl"; }));
    running.report.signal(SIGINT);
    std::this_thread::sleep_for(100ms);
    running.report.signal(SIGINT);
    EXPECT_EQ(running.report.wait(), 5);
    EXPECT_EQ(running.report.err(), "kvoctl: ended before the report was complete; no file was written\n");
    EXPECT_THAT(names(), testing::IsEmpty());
    expectServiceInItsPlace();
}

TEST_F(ReportWithTrace, that_is_killed_gives_the_service_its_place_back)
{
    const Service service;
    Running running({path(), "--trace", "1000"});
    EXPECT_EQ(running.report.stop(SIGKILL), -SIGKILL);
    expectServiceInItsPlace();
}

TEST_F(ReportWithTrace, has_the_reason_if_another_trace_runs)
{
    const Service service;
    Tracing other;
    ASSERT_TRUE(other.isAttached());
    const Ended ended = run({"--trace", "1", "--json"});
    EXPECT_EQ(ended.status, 0);
    const Json part = partOf(ended.document(), "trace.rec, trace.txt");
    EXPECT_EQ(part["state"], "missing");
    EXPECT_THAT(part["reasons"][0].get<std::string>(), HasSubstr("another tap is running"));
    EXPECT_THAT(unpacked().at("sockets.txt"), HasSubstr("A trace is running; all requests pass through it."));
    EXPECT_EQ(other.end(), 0);
}

TEST_F(ReportWithTrace, has_the_reason_without_a_service)
{
    const Json part = partOf(run({"--trace", "1", "--json"}).document(), "trace.rec, trace.txt");
    EXPECT_EQ(part["state"], "missing");
    EXPECT_THAT(part["reasons"][0].get<std::string>(), HasSubstr("start"));
}

}  // namespace

}  // namespace kvoctl_test
