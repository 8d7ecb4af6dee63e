// kvo::UsbEvents, and another program of the panel that takes the events.
#include "cpp/events/usb_fixture.h"

#include "usbevents/other_program.h"

#include <memory>
#include <optional>

namespace {

using cpp_events_test::CppUsbEvents;
using cpp_events_test::kChanged;
using cpp_events_test::Recorder;
using support::acceptsAll;
using support::eventually;
using support::ScriptedService;
using support::usbServerReply;
using testing::ElementsAre;
using usbevents_test::Codes;
using usbevents_test::OtherProgram;

TEST_F(CppUsbEvents, are_taken_from_another_program_and_lost_to_it)
{
    const OtherProgram other;
    const ScriptedService service({acceptsAll()});
    other.activate();
    EXPECT_EQ(other.codes(2), (Codes{3, 1}));

    const Recorder recorder;
    kvo::UsbEvents events = kvo::UsbEvents::activate(recorder).value();
    EXPECT_EQ(other.codes(1), Codes{USB_EVENT_DEACTIVATED});
    ASSERT_TRUE(recorder.waitFor("activated"));

    other.activate();
    EXPECT_EQ(other.codes(2), (Codes{3, 1}));
    ASSERT_TRUE(recorder.waitFor("deactivated"));
    EXPECT_THAT(recorder.texts(), ElementsAre("begin", "activated", "deactivated"));
    EXPECT_FALSE(events.active());
    EXPECT_TRUE(events.close());
    EXPECT_EQ(usbServerReply(kChanged), "ok\n") << "the destruction leaves the events to the other program";
    EXPECT_EQ(other.codes(1), Codes{USB_EVENT_STATE});
}

/// What a program sends to the server of the program from which it takes the events.
const std::string kTakeover = "suicide\n";

TEST_F(CppUsbEvents, can_be_taken_back_by_the_handler)
{
    const ScriptedService service({acceptsAll()});
    const Recorder first;
    const Recorder second;
    std::optional<kvo::UsbEvents> back;
    const kvo::UsbEvents events = kvo::UsbEvents::activate([&](const kvo::UsbEvent &event) {
                                      if (cpp_events_test::isStatus(event, kvo::UsbStatus::deactivated)) {
                                          back = kvo::UsbEvents::activate(second).value();
                                      }
                                      return first(event);
                                  }).value();
    ASSERT_TRUE(first.waitFor("activated"));
    EXPECT_EQ(usbServerReply(kTakeover), "ok\n");
    ASSERT_TRUE(second.waitFor("activated"));
    EXPECT_EQ(usbServerReply(kChanged), "ok\n");
    ASSERT_TRUE(second.waitFor("changed 10.0.0.5 usb1 1-1.4 7"));
    EXPECT_TRUE(first.waitFor("deactivated"));
    EXPECT_FALSE(kvo::UsbEvents::activate(second)) << "the events that were taken back are the object of the process";
    EXPECT_THAT(second.texts(), ElementsAre("begin", "activated", "changed 10.0.0.5 usb1 1-1.4 7"));
}

TEST_F(CppUsbEvents, can_be_taken_back_by_a_handler_that_destroys_the_object_before)
{
    const ScriptedService service({acceptsAll()});
    const Recorder first;
    const Recorder second;
    std::optional<kvo::UsbEvents> events;
    events = kvo::UsbEvents::activate([&](const kvo::UsbEvent &event) {
                 first(event);
                 if (cpp_events_test::isStatus(event, kvo::UsbStatus::deactivated)) {
                     events.reset();
                     events = kvo::UsbEvents::activate(second).value();
                 }
                 return true;
             }).value();
    ASSERT_TRUE(first.waitFor("activated"));
    EXPECT_EQ(usbServerReply(kTakeover), "ok\n");
    ASSERT_TRUE(second.waitFor("activated"));
    EXPECT_EQ(usbServerReply(kChanged), "ok\n");
    EXPECT_THAT(second.texts(), ElementsAre("begin", "activated", "changed 10.0.0.5 usb1 1-1.4 7"));
}

}  // namespace
