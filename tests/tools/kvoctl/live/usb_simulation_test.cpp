// Both programs together, as a user runs them: devices are plugged in at a simulated plant, and the watch shows them.
#include "tools/kvoctl/support/watching.h"
#include "tools/kvosim/support/run_kvosim.h"
#include "tools/kvosim/support/running_service.h"

namespace kvoctl_test {

namespace {

using kvosim_test::runKvosim;
using kvosim_test::RunningService;
using testing::ElementsAre;
using testing::HasSubstr;

/// Plugs, changes, removes and refuses a device at 10.0.0.5.
void useDevice()
{
    for (const Arguments &arguments :
         {Arguments{"usb", "plug", "10.0.0.5", "--ident2", "stick", "--text7", "Memory stick"},
          Arguments{"usb", "state", "10.0.0.5", "stick", "2"}, Arguments{"usb", "unplug", "10.0.0.5", "stick"},
          Arguments{"usb", "refuse", "10.0.0.5", "--text8", "too much current"}}) {
        const kvosim_test::Exited ended = runKvosim(arguments);
        EXPECT_EQ(ended.status, 0) << ended.err;
        EXPECT_THAT(ended.out, HasSubstr("the event was delivered"));
    }
}

TEST(UsbSimulation, shows_events_from_the_activation_to_the_end)
{
    const RunningService service;
    EXPECT_EQ(kvoctl({"usb", "is-active"}).out, "no\n");
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(kvoctl({"usb", "is-active"}).out, "yes\n");
    useDevice();
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(kvoctl({"usb", "is-active"}).out, "no\n");
    EXPECT_THAT(watch.events(), ElementsAre(HasSubstr("new code=10 ip_address=\"10.0.0.5\" ident2=\"stick\""),
                                            testing::AllOf(testing::StartsWith("state code=13"), testing::EndsWith("state=2")),
                                            testing::StartsWith("removed code=11"), HasSubstr("text8=\"too much current\"")));
    EXPECT_THAT(watch.events().front(), HasSubstr("text7=\"Memory stick\""));
}

TEST(UsbSimulation, can_be_closed_after_a_crash)
{
    const RunningService service;
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(watch.stop(SIGKILL), -SIGKILL);
    EXPECT_EQ(kvoctl({"usb", "is-active"}).status, 0);
    EXPECT_EQ(kvoctl({"usb", "close"}).out, "USB events are closed\n");
    EXPECT_EQ(kvoctl({"usb", "is-active"}).status, 1);
    EXPECT_THAT(runKvosim({"usb", "plug", "10.0.0.5"}).out, HasSubstr("so no event was sent"));
}

TEST(UsbSimulation, loses_no_event_of_a_storm)
{
    const RunningService service;
    Watching watch({"--json"});
    ASSERT_TRUE(watch.isActive());
    EXPECT_THAT(runKvosim({"usb", "storm", "--count", "200"}).out, HasSubstr("sent 200, delivered 200, failed 0"));
    EXPECT_EQ(watch.stop(), 0);
    std::size_t events = 0;
    for (const std::string &line : lines(watch.out())) {
        events += Json::parse(line).contains("ip_address") ? 1 : 0;
    }
    EXPECT_EQ(events, 200U);
}

TEST(UsbSimulation, is_private_to_the_command_that_it_runs)
{
    const std::string script =
        "'" KVOCTL_PROGRAM "' usb watch | { read begin; read activated; echo \"$activated\"; '" KVOSIM_PROGRAM
        "' usb plug 10.0.0.5 >&2; head -1; }";
    const kvosim_test::Exited ended = runKvosim({"run", "--plant", EXAMPLE_PLANT, "--", "sh", "-c", script});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_THAT(lines(ended.out), ElementsAre("activated code=1", testing::StartsWith("new code=10 ip_address=\"10.0.0.5\"")));
    EXPECT_THAT(ended.err, HasSubstr("the event was delivered"));
}

}  // namespace

}  // namespace kvoctl_test
