// kvo::UsbEvents: the kinds of events, the handler's answers, the outcomes of an activation, and what a process has only once.
#include "cpp/events/usb_fixture.h"

#include "support/system_calls.h"

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <thread>

using namespace std::chrono_literals;

namespace {

using cpp_events_test::CppUsbEvents;
using cpp_events_test::isDevice;
using cpp_events_test::kChanged;
using cpp_events_test::kNew;
using cpp_events_test::kRefused;
using cpp_events_test::kRemoved;
using cpp_events_test::Recorder;
using support::acceptsAll;
using support::eventually;
using support::ScriptedService;
using support::usbServerReply;
using testing::ElementsAre;
using testing::HasSubstr;

bool ignore(const kvo::UsbEvent &) { return true; }

TEST_F(CppUsbEvents, pass_every_kind_with_all_its_members)
{
    const ScriptedService service({acceptsAll()});
    const Recorder recorder;
    kvo::UsbEvents events = kvo::UsbEvents::activate(recorder).value();
    ASSERT_TRUE(recorder.waitFor("activated"));
    for (const std::string &text : {kNew, kRefused, kChanged, kRemoved}) {
        EXPECT_EQ(usbServerReply(text), "ok\n");
    }
    EXPECT_THAT(recorder.texts(),
                ElementsAre("begin", "activated", "new 10.0.0.5 usb1 1-1.4 four five six seven 1 2 2147483651 13",
                            "refused device 10.0.0.5 usb1 1-1.4 four five eight 1 2 3", "changed 10.0.0.5 usb1 1-1.4 7",
                            "removed 10.0.0.5 usb1 1-1.4"));
    EXPECT_TRUE(events.close());
    EXPECT_EQ(recorder.texts().size(), 6U) << "the program knows that it closes the events";
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n", "activateUSBEvents\n", "deactivateUSBEvents\n"));
}

TEST_F(CppUsbEvents, name_the_flags_of_a_device)
{
    kvo::UsbNewDevice device;
    device.flag_bits = 0xA;
    EXPECT_FALSE(device.has(kvo::UsbDeviceFlag::id1_bit0));
    EXPECT_TRUE(device.has(kvo::UsbDeviceFlag::id2_bit0));
    EXPECT_FALSE(device.has(kvo::UsbDeviceFlag::id2_bit1));
    EXPECT_TRUE(device.has(kvo::UsbDeviceFlag::flag_word_bit31));
}

TEST_F(CppUsbEvents, read_the_address_of_the_station)
{
    kvo::UsbDeviceRemoved event;
    event.ip_address = "10.0.0.5";
    EXPECT_EQ(event.station().value(), kvo::Address("10.0.0.5"));
    event.ip_address = "panel";
    EXPECT_EQ(event.station().error().meaning(), kvo::Errc::invalid_address);
}

TEST_F(CppUsbEvents, answer_the_service_as_the_handler_does)
{
    const ScriptedService service({acceptsAll()});
    const kvo::UsbEvents events = kvo::UsbEvents::activate([](const kvo::UsbEvent &event) {
                                      if (std::holds_alternative<kvo::UsbDeviceRemoved>(event)) {
                                          throw std::runtime_error("a handler that throws counts as failed");
                                      }
                                      return std::holds_alternative<kvo::UsbNewDevice>(event);
                                  }).value();
    EXPECT_EQ(usbServerReply(kNew), "ok\n");
    EXPECT_EQ(usbServerReply(kChanged), "failed\n");
    EXPECT_EQ(usbServerReply(kRemoved), "failed\n");
}

TEST_F(CppUsbEvents, need_a_handler)
{
    const auto refused = kvo::UsbEvents::activate(kvo::UsbEvents::Handler());
    EXPECT_EQ(refused.error().meaning(), kvo::Errc::null_pointer);
    EXPECT_FALSE(usbevents_test::anySet());
}

TEST_F(CppUsbEvents, tell_whether_the_service_has_accepted_them)
{
    const Recorder recorder;
    kvo::UsbEvents events = kvo::UsbEvents::activate(recorder).value();
    EXPECT_FALSE(events.active()) << "the activation waits for a service";
    {
        const ScriptedService service({acceptsAll()});
        EXPECT_TRUE(eventually([&] { return events.active(); }));
    }
    EXPECT_TRUE(events.close()) << "also without a service";
    EXPECT_FALSE(events.active());
    EXPECT_THAT(recorder.texts(), ElementsAre("begin", "activated"));
}

struct Outcome {
    const char *name;
    support::Script reply;
    const char *status;
};

class CppUsbOutcomes : public CppUsbEvents, public testing::WithParamInterface<Outcome> {};

const Outcome kOutcomes[] = {
    {"refused", support::replies("no"), "refused"},
    {"no_reply", support::closesAfterRequest(), "no service"},
};

TEST_P(CppUsbOutcomes, reach_the_handler_and_end_the_events)
{
    const ScriptedService service({support::replies("yes"), GetParam().reply, acceptsAll()});
    const Recorder recorder;
    kvo::UsbEvents events = kvo::UsbEvents::activate(recorder).value();
    ASSERT_TRUE(recorder.waitFor(GetParam().status));
    EXPECT_THAT(recorder.texts(), ElementsAre("begin", GetParam().status));
    EXPECT_FALSE(events.active());
    EXPECT_TRUE(eventually([] { return !usbevents_test::anySet(); }));
    EXPECT_EQ(usbServerReply(kChanged), "failed\n") << "the server keeps listening";

    const Recorder second;
    const kvo::UsbEvents again = kvo::UsbEvents::activate(second).value();
    EXPECT_TRUE(second.waitFor("activated")) << "the first object has only to be destroyed";
    EXPECT_TRUE(events.close());
    EXPECT_TRUE(again.active()) << "it does not close the events of another object";
    EXPECT_EQ(recorder.texts().size(), 2U);
}

INSTANTIATE_TEST_SUITE_P(All, CppUsbOutcomes, testing::ValuesIn(kOutcomes),
                         [](const auto &row) { return std::string(row.param.name); });

// ---- Once per process ----

void expectAlreadyRunning(const kvo::Result<kvo::UsbEvents> &result)
{
    ASSERT_FALSE(result.has_value());
    EXPECT_EQ(result.error().meaning(), kvo::Errc::already_running);
    EXPECT_EQ(result.error().code(), KVO_HWS_ALREADY_RUNNING);
    EXPECT_THAT(result.error().message(), HasSubstr("close the other UsbEvents"));
}

TEST_F(CppUsbEvents, are_refused_to_a_second_object)
{
    const ScriptedService service({acceptsAll()});
    const Recorder recorder;
    kvo::UsbEvents events = kvo::UsbEvents::activate(recorder).value();
    ASSERT_TRUE(recorder.waitFor("activated"));
    const std::size_t asked = service.requests().size();
    expectAlreadyRunning(kvo::UsbEvents::activate(ignore));
    EXPECT_EQ(service.requests().size(), asked);
    EXPECT_EQ(usbServerReply(kChanged), "ok\n") << "the first one keeps them";
    EXPECT_TRUE(events.close());
    EXPECT_TRUE(kvo::UsbEvents::activate(ignore));
}

TEST_F(CppUsbEvents, are_refused_while_the_functions_of_c_have_them)
{
    const ScriptedService service({acceptsAll()});
    const support::EventRecorder recorder;
    ASSERT_EQ(usbevents_test::activate(support::EventRecorder::older), 1);
    expectAlreadyRunning(kvo::UsbEvents::activate(ignore));
    ASSERT_EQ(usbevents_test::closeEvents(), 1);
    ASSERT_TRUE(eventually([] { return !usbevents_test::anySet(); }));

    ASSERT_EQ(usbevents_test::activateV2(support::EventRecorder::newer), 1);
    expectAlreadyRunning(kvo::UsbEvents::activate(ignore));
    ASSERT_EQ(usbevents_test::closeEvents(), 1);
    ASSERT_TRUE(eventually([] { return !usbevents_test::anySet(); }));
    EXPECT_TRUE(kvo::UsbEvents::activate(ignore));
}

TEST_F(CppUsbEvents, that_the_functions_of_c_have_closed_have_ended)
{
    const ScriptedService service({acceptsAll()});
    const Recorder recorder;
    kvo::UsbEvents events = kvo::UsbEvents::activate(recorder).value();
    ASSERT_TRUE(recorder.waitFor("activated"));
    ASSERT_EQ(usbevents_test::closeEvents(), 1);
    ASSERT_TRUE(recorder.waitFor("deactivated"));
    EXPECT_TRUE(kvo::UsbEvents::activate(ignore));
    EXPECT_TRUE(events.close());
}

TEST_F(CppUsbEvents, do_not_close_the_events_that_the_functions_of_c_took_from_them)
{
    const ScriptedService service({acceptsAll()});
    const support::EventRecorder recorder;
    {
        const kvo::UsbEvents events = kvo::UsbEvents::activate(ignore).value();
        ASSERT_TRUE(eventually([&] { return events.active(); }));
        ASSERT_EQ(usbevents_test::activateV2(support::EventRecorder::newer), 1);
        ASSERT_TRUE(recorder.waitFor(2));
        EXPECT_FALSE(events.active());
    }
    EXPECT_EQ(usbServerReply(kChanged), "ok\n");
    EXPECT_TRUE(recorder.waitFor(3));
}

TEST_F(CppUsbEvents, are_closed_once_by_the_object_that_they_were_moved_to)
{
    const ScriptedService service({acceptsAll()});
    kvo::UsbEvents first = kvo::UsbEvents::activate(ignore).value();
    kvo::UsbEvents second = std::move(first);
    EXPECT_TRUE(first.close()) << "nothing to close";  // NOLINT(bugprone-use-after-move): that is what this shows
    EXPECT_FALSE(first.active());
    EXPECT_EQ(usbServerReply(kChanged), "ok\n");
    first = std::move(second);
    EXPECT_TRUE(first.close());
    EXPECT_TRUE(first.close());
    EXPECT_FALSE(usbevents_test::anySet());
    kvo::UsbEvents third = kvo::UsbEvents::activate(ignore).value();
    third = std::move(first);
    EXPECT_FALSE(usbevents_test::anySet()) << "an assignment closes the object before";
}

TEST_F(CppUsbEvents, that_their_handler_closed_leave_the_next_ones_alone)
{
    const ScriptedService service({acceptsAll()});
    std::optional<kvo::UsbEvents> events;
    events = kvo::UsbEvents::activate([&](const kvo::UsbEvent &event) { return !isDevice(event) || events->close(); }).value();
    EXPECT_EQ(usbServerReply(kRemoved), "ok\n");
    const Recorder second;
    events = kvo::UsbEvents::activate(second).value();  // closes the first object after the next activation
    ASSERT_TRUE(second.waitFor("activated"));
    EXPECT_EQ(usbServerReply(kChanged), "ok\n");
    EXPECT_THAT(second.texts(), ElementsAre("begin", "activated", "changed 10.0.0.5 usb1 1-1.4 7"));
}

TEST_F(CppUsbEvents, do_not_take_the_final_code_of_the_object_before_for_their_end)
{
    // The service confirms the first close so late that the second object is active long before, if it does not wait.
    const ScriptedService service({support::answersWith([](const std::string &request) {
        if (request == "deactivateUSBEvents") {
            std::this_thread::sleep_for(700ms);
        }
        return std::string(request.starts_with("is") ? "yes" : "ok");
    })});
    for (int round = 0; round < 2; ++round) {
        const Recorder recorder;
        kvo::UsbEvents events = kvo::UsbEvents::activate(recorder).value();
        ASSERT_TRUE(recorder.waitFor("activated"));
        std::this_thread::sleep_for(1s);  // the time in which a code of the object before could arrive
        EXPECT_TRUE(events.active());
        EXPECT_THAT(recorder.texts(), ElementsAre("begin", "activated"));
    }
}

}  // namespace
