// The end of kvo::UsbEvents: which calls of the handler destruction waits for, and how long the handler lives.
#include "cpp/events/usb_fixture.h"

#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <thread>

using namespace std::chrono_literals;

namespace {

using cpp_events_test::callbackSet;
using cpp_events_test::CppUsbEvents;
using cpp_events_test::isDevice;
using cpp_events_test::kChanged;
using cpp_events_test::kRemoved;
using cpp_events_test::Recorder;
using cpp_events_test::Signal;
using support::acceptsAll;
using support::eventually;
using support::ScriptedService;
using support::usbServerReply;
using testing::ElementsAre;

bool ignore(const kvo::UsbEvent &) { return true; }

int32_t callWith(SendUsbEventV2 callback, uint32_t code)
{
    UsbEventV2 event{};
    event.code = code;
    event.length = 8;
    return callback(&event);
}

/// Sends an event and receives the reply on another thread.
std::future<std::string> send(const std::string &text)
{
    return std::async(std::launch::async, [text] { return usbServerReply(text); });
}

TEST_F(CppUsbEvents, wait_at_their_destruction_for_the_handler_that_runs)
{
    const ScriptedService service({acceptsAll()});
    Signal begun;
    Signal goOn;
    std::atomic<bool> returned{false};
    std::future<std::string> reply;
    std::thread release;
    {
        const kvo::UsbEvents events = kvo::UsbEvents::activate([&](const kvo::UsbEvent &event) {
                                          if (isDevice(event)) {
                                              begun.set();
                                              EXPECT_TRUE(goOn.wait());
                                              returned = true;
                                          }
                                          return true;
                                      }).value();
        reply = send(kChanged);
        ASSERT_TRUE(begun.wait());
        release = std::thread([&] {
            // The library has cleared its callback: from now on only the handler keeps the destruction waiting.
            EXPECT_TRUE(eventually([] { return !usbevents_test::anySet(); }));
            std::this_thread::sleep_for(300ms);
            EXPECT_FALSE(returned);
            goOn.set();
        });
    }
    EXPECT_TRUE(returned);
    EXPECT_EQ(reply.get(), "ok\n");
    release.join();
}

TEST_F(CppUsbEvents, wait_for_no_handler_if_they_are_destroyed_in_one)
{
    const ScriptedService service({acceptsAll()});
    Signal otherRuns;
    Signal goOn;
    Signal destroyed;
    std::optional<kvo::UsbEvents> events;
    const auto alive = std::make_shared<int>(0);
    events = kvo::UsbEvents::activate([&, owned = alive](const kvo::UsbEvent &event) {
                 if (std::holds_alternative<kvo::UsbStateChanged>(event)) {
                     otherRuns.set();
                     EXPECT_TRUE(goOn.wait());
                 } else if (isDevice(event)) {
                     events.reset();
                     EXPECT_GT(owned.use_count(), 1) << "the handler lives until its call has returned";
                     destroyed.set();
                 }
                 return true;
             }).value();
    auto waiting = send(kChanged);
    ASSERT_TRUE(otherRuns.wait());
    auto destroying = send(kRemoved);
    EXPECT_TRUE(destroyed.wait()) << "although another call of the handler runs";
    EXPECT_EQ(destroying.get(), "ok\n");
    EXPECT_GT(alive.use_count(), 1) << "the handler lives while any of its calls runs";
    goOn.set();
    EXPECT_EQ(waiting.get(), "ok\n");
    EXPECT_TRUE(eventually([&] { return alive.use_count() == 1; }));
    EXPECT_TRUE(eventually([] { return !usbevents_test::anySet(); }));
    EXPECT_TRUE(kvo::UsbEvents::activate(ignore));
}

TEST_F(CppUsbEvents, destroyed_in_the_handler_do_not_wait_for_a_service_that_waits_for_it)
{
    Signal answered;
    std::atomic<bool> timely{false};
    const ScriptedService service({support::answersWith([&](const std::string &request) {
        if (request == "deactivateUSBEvents") {
            timely = answered.wait();  // the service confirms the end after the events that it has sent
        }
        return std::string(request.starts_with("is") ? "yes" : "ok");
    })});
    std::optional<kvo::UsbEvents> events;
    events = kvo::UsbEvents::activate([&](const kvo::UsbEvent &event) {
                 if (isDevice(event)) {
                     events.reset();
                     EXPECT_TRUE(callbackSet()) << "the library waits for the service";
                 }
                 return true;
             }).value();
    EXPECT_EQ(send(kRemoved).get(), "ok\n");
    answered.set();
    EXPECT_TRUE(kvo::UsbEvents::activate(ignore)) << "after the end of the object before";
    EXPECT_TRUE(timely);
}

TEST_F(CppUsbEvents, answer_a_call_that_begins_after_their_destruction)
{
    const ScriptedService service({acceptsAll()});
    SendUsbEventV2 callback = nullptr;
    std::atomic<int> calls{0};
    const auto alive = std::make_shared<int>(0);
    {
        const kvo::UsbEvents events =
            kvo::UsbEvents::activate([&, owned = alive](const kvo::UsbEvent &) { return ++calls > 0; }).value();
        callback = callbackSet();
        EXPECT_EQ(callWith(callback, USB_EVENT_REMOVED), 1);
    }
    EXPECT_EQ(alive.use_count(), 1) << "the handler is destroyed";
    const int before = calls;
    EXPECT_EQ(callWith(callback, USB_EVENT_REMOVED), -1);
    EXPECT_EQ(callWith(callback, USB_EVENT_DEACTIVATED), -1);
    EXPECT_EQ(calls, before);
}

TEST_F(CppUsbEvents, answer_a_code_that_they_do_not_know)
{
    const ScriptedService service({acceptsAll()});
    const Recorder recorder;
    const kvo::UsbEvents events = kvo::UsbEvents::activate(recorder).value();
    ASSERT_TRUE(recorder.waitFor("activated"));
    EXPECT_EQ(callWith(callbackSet(), 12), -1);
    EXPECT_EQ(callWith(callbackSet(), 103), -1);
    EXPECT_TRUE(events.active());
    EXPECT_THAT(recorder.texts(), ElementsAre("begin", "activated"));
}

TEST_F(CppUsbEvents, may_be_owned_by_their_own_handler)
{
    const ScriptedService service({acceptsAll()});
    struct Program {
        std::optional<kvo::UsbEvents> events;
        ~Program() { ended->set(); }
        std::shared_ptr<Signal> ended = std::make_shared<Signal>();
    };
    auto program = std::make_shared<Program>();
    const auto ended = program->ended;
    program->events = kvo::UsbEvents::activate([program](const kvo::UsbEvent &) { return true; }).value();
    kvo::UsbEvents &events = *program->events;
    program.reset();
    EXPECT_TRUE(events.close()) << "destroys the handler, and with it the object that is being closed";
    EXPECT_TRUE(ended->wait(0ms));
}

TEST_F(CppUsbEvents, can_be_activated_again_in_the_handler_that_closed_them)
{
    const ScriptedService service({acceptsAll()});
    const Recorder second;
    std::optional<kvo::UsbEvents> events;
    events = kvo::UsbEvents::activate([&](const kvo::UsbEvent &event) {
                 if (isDevice(event)) {
                     events.reset();
                     events = kvo::UsbEvents::activate(second).value();
                 }
                 return true;
             }).value();
    EXPECT_EQ(usbServerReply(kRemoved), "ok\n");
    ASSERT_TRUE(second.waitFor("activated"));
    EXPECT_EQ(usbServerReply(kChanged), "ok\n");
    EXPECT_THAT(second.texts(), ElementsAre("begin", "activated", "changed 10.0.0.5 usb1 1-1.4 7"))
        << "the final code of the first object is not theirs";
}

TEST_F(CppUsbEvents, can_be_closed_in_the_handler_of_every_status)
{
    for (const kvo::UsbStatus when : {kvo::UsbStatus::activated, kvo::UsbStatus::refused}) {
        const bool refuses = when == kvo::UsbStatus::refused;
        const ScriptedService service({acceptsAll({{"activateUSBEvents", refuses ? "no" : "ok"}})});
        std::mutex lock;
        Signal closed;
        std::optional<kvo::UsbEvents> events;  // destroyed first: its destruction waits for the handler
        {
            const std::lock_guard guard(lock);
            events = kvo::UsbEvents::activate([&](const kvo::UsbEvent &event) {
                         if (cpp_events_test::isStatus(event, when)) {
                             const std::lock_guard stored(lock);
                             EXPECT_TRUE(events->close());
                             closed.set();
                         }
                         return true;
                     }).value();
        }
        EXPECT_TRUE(closed.wait());
        events.reset();
        EXPECT_TRUE(eventually([] { return !usbevents_test::anySet(); }));
        EXPECT_TRUE(kvo::UsbEvents::activate(ignore));
    }
}

TEST_F(CppUsbEvents, wait_at_their_destruction_for_the_handler_that_has_closed_them)
{
    const ScriptedService service({acceptsAll()});
    Signal closed;
    std::atomic<bool> returned{false};
    std::future<std::string> reply;
    {
        std::optional<kvo::UsbEvents> events;
        events = kvo::UsbEvents::activate([&](const kvo::UsbEvent &event) {
                     if (isDevice(event)) {
                         EXPECT_TRUE(events->close());
                         closed.set();
                         std::this_thread::sleep_for(300ms);
                         returned = true;
                     }
                     return true;
                 }).value();
        reply = send(kChanged);
        ASSERT_TRUE(closed.wait());
    }
    EXPECT_TRUE(returned);
}

TEST_F(CppUsbEvents, can_be_activated_while_another_thread_closes_the_object_before)
{
    const ScriptedService service({acceptsAll()});
    std::optional<kvo::UsbEvents> first = kvo::UsbEvents::activate(ignore).value();
    Signal closing;
    const SendUsbEventV2 callback = callbackSet();
    std::thread closer([&] {
        closing.set();
        first.reset();
    });
    ASSERT_TRUE(closing.wait());
    ASSERT_TRUE(eventually([&] { return callWith(callback, 12) == -1 && callWith(callback, USB_EVENT_REMOVED) == -1; }));
    const Recorder recorder;
    const auto second = kvo::UsbEvents::activate(recorder);
    ASSERT_TRUE(second) << "it waits for the close";
    EXPECT_TRUE(recorder.waitFor("activated"));
    EXPECT_THAT(recorder.texts(), ElementsAre("begin", "activated"));
    closer.join();
    EXPECT_TRUE(second->active());
}

}  // namespace
