// "kvoctl usb close": closes the events for any program that has activated them, even if it has crashed.
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

TEST(UsbClose, takes_over_the_events_from_another_program)
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
    EXPECT_EQ(watch.err(), "kvoctl: usb watch: another program has taken over the events\n");
    EXPECT_EQ(kvoctl({"usb", "is-active"}).out, "no\n");
}

TEST(UsbClose, clears_the_activation_of_a_crashed_program)
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

TEST(UsbClose, reports_that_no_program_had_activated_events)
{
    bool active = false;
    const ScriptedService service({remembers(active)});
    const Ended ended = kvoctl({"usb", "close"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "USB events are closed; no program had activated them\n");
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

TEST(UsbClose, does_not_take_over_events_while_the_service_is_starting)
{
    const ScriptedService service({support::replies("no")});
    const Ended ended = kvoctl({"usb", "close"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "kvoctl: usb close: the service is still starting; try again (result 0)\n");
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n"));
}

TEST(UsbClose, reports_a_refused_activation)
{
    const ScriptedService refusesToActivate({acceptsAll({{"activateUSBEvents", "failed"}})});
    const Ended ended = kvoctl({"usb", "close"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "kvoctl: usb close: the events could not be activated: the service refused or sent an unknown "
                         "reply (result -1)\n");
}

TEST(UsbClose, reports_a_refused_close)
{
    const ScriptedService service({acceptsAll({{"deactivateUSBEvents", "failed"}})});
    const Ended ended = kvoctl({"usb", "close"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: usb close: the events could not be closed: the service refused or sent an unknown "
                         "reply (result -1)\n");
}

}  // namespace

}  // namespace kvoctl_test
