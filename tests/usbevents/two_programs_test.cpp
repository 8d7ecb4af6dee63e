// Two programs that take USB events from each other.
#include <kvo_hws/usbevents.h>

#include "support/scripted_service.h"
#include "support/usb_events.h"
#include "usbevents/activation_fixture.h"
#include "usbevents/other_program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::acceptsAll;
using support::EventRecorder;
using support::eventually;
using support::ScriptedService;
using support::serverState;
using support::usbServerReply;
using testing::ElementsAre;
using usbevents_test::activateV2;
using usbevents_test::Activation;
using usbevents_test::anySet;
using usbevents_test::Codes;
using usbevents_test::kState;
using usbevents_test::OtherProgram;

TEST_F(Activation, takes_the_events_from_another_program_and_loses_them_again)
{
    const OtherProgram first;
    const ScriptedService service({acceptsAll()});
    first.activate();
    EXPECT_EQ(first.codes(2), (Codes{3, 1}));

    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    EXPECT_EQ(first.codes(1), Codes{USB_EVENT_DEACTIVATED}) << "its callback receives the loss";
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(usbServerReply(kState), "ok\n");
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 13}));
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n", "activateUSBEvents\n", "deactivateUSBEvents\n",
                                                "isInitComplete\n", "activateUSBEvents\n"));

    first.activate();
    EXPECT_EQ(first.codes(2), (Codes{3, 1}));
    ASSERT_TRUE(recorder.waitFor(4));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 13, 2}));
    EXPECT_TRUE(eventually([] { return !anySet() && serverState() == 0; }));
    EXPECT_EQ(usbServerReply(kState), "ok\n");
    EXPECT_EQ(first.codes(1), Codes{USB_EVENT_STATE});
    first.closeEvents();
    EXPECT_EQ(first.codes(2), (Codes{3, 2}));
    EXPECT_EQ(usbServerReply(kState), "(no server)");
}

}  // namespace
