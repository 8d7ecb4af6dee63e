// "kvoctl usb close": ends the events of whichever program has them, also of one that has crashed.
#include "tools/kvoctl/support/usb_devices.h"
#include "tools/kvoctl/support/watching.h"

namespace kvoctl_test {

namespace {

using support::acceptsAll;
using support::ScriptedService;
using testing::ElementsAre;

/// A service that remembers whether events are active.
support::Script remembers(bool &active)
{
    return support::answersWith([&active](const std::string &request) {
        if (request == "isUSBEventsActivated") {
            return std::string(active ? "yes" : "no");
        }
        if (request != "isInitComplete") {
            active = request == "activateUSBEvents";
        }
        return std::string(request == "isInitComplete" ? "yes" : "ok");
    });
}

TEST(UsbClose, takes_the_events_from_the_program_that_has_them)
{
    bool active = false;
    const ScriptedService service({remembers(active)});
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    const Ended ended = kvoctl({"usb", "close"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "USB events are closed\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(watch.wait(), 0);
    EXPECT_EQ(watch.err(), "kvoctl: usb watch: another program has taken the events over\n");
    EXPECT_EQ(kvoctl({"usb", "is-active"}).out, "no\n");
}

TEST(UsbClose, clears_what_a_crashed_program_has_left_behind)
{
    bool active = false;
    const ScriptedService service({remembers(active)});
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(watch.stop(SIGKILL), -SIGKILL);
    EXPECT_EQ(kvoctl({"usb", "is-active"}).out, "yes\n");
    const Ended ended = kvoctl({"usb", "close", "--json"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.document(), Json::parse(R"({"done": true, "were_active": true})"));
    EXPECT_EQ(kvoctl({"usb", "is-active"}).out, "no\n");
}

TEST(UsbClose, says_that_no_program_had_them)
{
    bool active = false;
    const ScriptedService service({remembers(active)});
    const Ended ended = kvoctl({"usb", "close"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "USB events are closed; no program had them active\n");
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n", "isUSBEventsActivated\n", "isInitComplete\n",
                                                "activateUSBEvents\n", "deactivateUSBEvents\n"));
}

TEST(UsbClose, needs_a_service)
{
    const Ended ended = kvoctl({"usb", "close", "--json"});
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.document(),
              Json::parse(R"({"error": {"code": -2, "meaning": "no service answers at /tmp/kvo_hws/cmd_sock"}})"));
}

TEST(UsbClose, takes_nothing_over_while_the_service_is_starting)
{
    const ScriptedService service({support::replies("no")});
    const Ended ended = kvoctl({"usb", "close"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "kvoctl: usb close: the service is still starting; try again (result 0)\n");
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n"));
}

TEST(UsbClose, tells_a_service_that_refuses)
{
    const ScriptedService refusesToActivate({acceptsAll({{"activateUSBEvents", "failed"}})});
    const Ended ended = kvoctl({"usb", "close"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "kvoctl: usb close: the events could not be activated: the service refused or answered something "
                         "unknown (result -1)\n");
}

TEST(UsbClose, tells_a_service_that_does_not_take_them_back)
{
    const ScriptedService service({acceptsAll({{"deactivateUSBEvents", "failed"}})});
    const Ended ended = kvoctl({"usb", "close"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: usb close: the events could not be given back: the service refused or answered something "
                         "unknown (result -1)\n");
}

}  // namespace

}  // namespace kvoctl_test
