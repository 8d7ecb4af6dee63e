// USB events through a tap: the service reports them to the program that has activated them.
#include "tools/common/tap/running_tap.h"
#include "tools/common/tap/service.h"
#include "tools/kvosim/support/run_kvosim.h"

#include <gmock/gmock.h>

#include <csignal>

using namespace std::chrono_literals;

namespace tap_test {

namespace {

using kvosim_test::Program;
using kvosim_test::runKvosim;

std::vector<std::string> usbShown(RunningTap &tap, std::size_t count)
{
    support::eventually([&] { return shownOf(tap.reports(), tools::recording::Kind::usb).size() >= count; });
    return shownOf(tap.reports(), tools::recording::Kind::usb);
}

class UsbEventsThroughATap : public testing::Test {
protected:
    void SetUp() override
    {
        if (const char *const reason = noUsbWatch()) {
            GTEST_SKIP() << reason;
        }
    }
};

Program watch() { return Program({KVOCTL_PROGRAM, "usb", "watch"}); }

bool plug() { return runKvosim({"usb", "plug", "10.0.0.5"}).status == 0; }

TEST_F(UsbEventsThroughATap, are_shown_to_a_program_that_activates_them_later)
{
    Service service;
    RunningTap tap;
    const Program program = watch();
    ASSERT_TRUE(program.hasWritten("activated"));
    ASSERT_TRUE(plug());
    EXPECT_TRUE(program.hasWritten("new code"));
    const std::vector<std::string> events = usbShown(tap, 1);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_THAT(events[0], testing::HasSubstr("-> ok\n"));
}

TEST_F(UsbEventsThroughATap, are_shown_to_a_program_that_has_activated_them_before)
{
    Service service;
    const Program program = watch();
    ASSERT_TRUE(program.hasWritten("activated"));
    RunningTap tap;
    ASSERT_TRUE(plug());
    EXPECT_TRUE(program.hasWritten("new code"));
    EXPECT_EQ(usbShown(tap, 1).size(), 1U);
    tap.end();
    const std::string soFar = program.out();
    ASSERT_TRUE(plug());
    EXPECT_TRUE(support::eventually([&] { return program.out() != soFar; })) << "after the end of the tap";
}

TEST_F(UsbEventsThroughATap, can_be_taken_over)
{
    Service service;
    Program first = watch();
    ASSERT_TRUE(first.hasWritten("activated"));
    RunningTap tap;
    const Program second = watch();
    ASSERT_TRUE(second.hasWritten("activated"));
    first.wait();
    EXPECT_THAT(first.out(), testing::HasSubstr("deactivated"));
    ASSERT_TRUE(plug());
    EXPECT_TRUE(second.hasWritten("new code"));
    const std::vector<std::string> events = usbShown(tap, 2);
    ASSERT_EQ(events.size(), 2U);
    EXPECT_THAT(events[0], testing::StartsWith("suicide\n"));
    tap.end();
    ASSERT_TRUE(plug());
}

TEST_F(UsbEventsThroughATap, refuse_a_suicide_when_the_program_has_ended)
{
    Service service;
    Program program = watch();
    ASSERT_TRUE(program.hasWritten("activated"));
    RunningTap tap;
    ASSERT_EQ(connectError(tools::kUsbEventSocket), 0);
    program.signal(SIGKILL);
    program.wait();
    EXPECT_TRUE(support::eventually([] { return connectError(tools::kUsbEventSocket) == ECONNREFUSED; }));
}

TEST_F(UsbEventsThroughATap, can_be_closed_by_their_program)
{
    Service service;
    RunningTap tap;
    Program program = watch();
    ASSERT_TRUE(program.hasWritten("activated"));
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait(), 0);
    EXPECT_TRUE(support::eventually([] { return connectError(tools::kUsbEventSocket) != 0; }));
}

}  // namespace

}  // namespace tap_test
