// kvo::UsbEvents through kvo::Requests: handlers in dispatch(), the time that an event waits for them, and the end.
#include "cpp/events/usb_fixture.h"

#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <thread>

using namespace std::chrono_literals;

namespace {

using cpp_events_test::CppUsbEvents;
using cpp_events_test::isDevice;
using cpp_events_test::kChanged;
using cpp_events_test::kRemoved;
using cpp_events_test::Recorder;
using support::acceptsAll;
using support::eventually;
using support::ScriptedService;
using support::usbServerReplyLine;
using testing::ElementsAre;

using Clock = std::chrono::steady_clock;

const std::string kChangedText = "changed 10.0.0.5 usb1 1-1.4 7";
const std::string kLateText = "changed late 10.0.0.5 usb1 1-1.4 7";

/// A service, a loop, and USB events that go through it.
class CppUsbLoop : public CppUsbEvents {
protected:
    std::future<std::string> send(const std::string &text)
    {
        return std::async(std::launch::async, [text] { return usbServerReplyLine(text); });
    }

    /// Runs the loop until @p condition holds.
    template <class Condition>
    bool loopUntil(const Condition &condition)
    {
        return eventually([&] {
            pollfd ready{requests->descriptor(), POLLIN, 0};
            if (poll(&ready, 1, 5) > 0) {
                requests->dispatch();
            }
            return condition();
        });
    }

    /// Runs everything that is ready: then the descriptor becomes readable when the next event waits.
    void drain()
    {
        for (pollfd ready{requests->descriptor(), POLLIN, 0}; poll(&ready, 1, 0) > 0;) {
            requests->dispatch();
        }
    }

    std::string loopUntilReply(std::future<std::string> reply)
    {
        EXPECT_TRUE(loopUntil([&] { return reply.wait_for(0s) == std::future_status::ready; }));
        return reply.get();
    }

    bool loopUntilHandled(const Recorder &recorder, const std::string &text)
    {
        return loopUntil([&] {
            const auto texts = recorder.texts();
            return std::find(texts.begin(), texts.end(), text) != texts.end();
        });
    }

    ScriptedService service{{acceptsAll()}};
    std::optional<kvo::Requests> requests = kvo::Requests::create().value();
};

/// Shortens the time that an event waits for its handler.
class HandlerTime {
public:
    explicit HandlerTime(std::chrono::milliseconds time) : before_(std::exchange(kvo::detail::handler_time, time)) {}
    HandlerTime(const HandlerTime &) = delete;
    HandlerTime &operator=(const HandlerTime &) = delete;
    ~HandlerTime() { kvo::detail::handler_time = before_; }

private:
    std::chrono::milliseconds before_;
};

TEST_F(CppUsbLoop, calls_the_handler_in_the_thread_of_the_loop)
{
    const Recorder recorder;
    std::atomic<bool> elsewhere{false};
    const auto loop = std::this_thread::get_id();
    kvo::UsbEvents events = kvo::UsbEvents::activate(*requests, [&](const kvo::UsbEvent &event) {
                                elsewhere = elsewhere || std::this_thread::get_id() != loop;
                                recorder(event);
                                return !std::holds_alternative<kvo::UsbDeviceRemoved>(event);
                            }).value();
    EXPECT_TRUE(recorder.texts().empty()) << "the activation does not wait for its status";
    ASSERT_TRUE(loopUntilHandled(recorder, "activated"));
    EXPECT_EQ(loopUntilReply(send(kChanged)), "ok\n");
    EXPECT_EQ(loopUntilReply(send(kRemoved)), "failed\n");
    EXPECT_THAT(recorder.texts(), ElementsAre("begin", "activated", kChangedText, "removed 10.0.0.5 usb1 1-1.4"));
    EXPECT_FALSE(elsewhere);
    EXPECT_TRUE(events.close());
    EXPECT_EQ(recorder.texts().size(), 4U);
}

TEST_F(CppUsbLoop, answers_an_event_whose_handler_takes_too_long_and_delivers_it_late)
{
    const HandlerTime time(50ms);
    const Recorder recorder;
    const kvo::UsbEvents events = kvo::UsbEvents::activate(*requests, recorder).value();
    ASSERT_TRUE(loopUntilHandled(recorder, "activated"));
    EXPECT_EQ(send(kChanged).get(), "failed\n") << "the loop does not run";
    ASSERT_TRUE(loopUntilHandled(recorder, kLateText));

    const HandlerTime enough(10s);
    EXPECT_EQ(loopUntilReply(send(kChanged)), "ok\n");
    EXPECT_THAT(recorder.texts(), ElementsAre("begin", "activated", kLateText, kChangedText));
}

TEST_F(CppUsbLoop, answers_an_event_within_four_seconds)
{
    const kvo::UsbEvents events = kvo::UsbEvents::activate(*requests, [](const kvo::UsbEvent &) { return true; }).value();
    // The service gives up after 4 s. A machine that stops for a moment may delay one attempt, not all of them.
    constexpr int kAttempts = 3;
    Clock::duration shortest = Clock::duration::max();
    for (int attempt = 0; attempt < kAttempts && shortest >= 4s; ++attempt) {
        const auto start = Clock::now();
        EXPECT_EQ(send(kChanged).get(), "failed\n");
        shortest = std::min(shortest, Clock::now() - start);
    }
    EXPECT_GE(shortest, 3500ms);
    EXPECT_LT(shortest, 4s);
}

TEST_F(CppUsbLoop, does_not_mark_an_event_whose_handler_has_begun_in_time)
{
    const HandlerTime time(300ms);
    const Recorder recorder;
    std::optional<std::string> reply;
    std::future<std::string> sent;
    const kvo::UsbEvents events = kvo::UsbEvents::activate(*requests, [&](const kvo::UsbEvent &event) {
                                      if (isDevice(event) && recorder(event)) {
                                          reply = sent.get();
                                      }
                                      return true;
                                  }).value();
    for (int attempt = 0; attempt < 10; ++attempt) {  // it is late if the machine stops this program at the wrong moment
        sent = send(kChanged);
        reply.reset();
        ASSERT_TRUE(loopUntil([&] { return reply.has_value(); }));
        EXPECT_EQ(reply, "failed\n") << "the handler runs longer than the event waits";
        if (recorder.texts().back() == kChangedText) {
            return;
        }
    }
    FAIL() << "the event was late ten times";
}

TEST_F(CppUsbLoop, lets_the_exception_of_a_handler_leave_dispatch)
{
    const Recorder recorder;
    std::atomic<bool> throws{true};
    const kvo::UsbEvents events = kvo::UsbEvents::activate(*requests, [&](const kvo::UsbEvent &event) {
                                      recorder(event);
                                      if (isDevice(event) && throws.exchange(false)) {
                                          throw std::runtime_error("from the handler");
                                      }
                                      return true;
                                  }).value();
    ASSERT_TRUE(loopUntilHandled(recorder, "activated"));
    auto reply = send(kChanged);
    EXPECT_THROW(loopUntil([&] { return reply.wait_for(0s) == std::future_status::ready; }), std::runtime_error);
    EXPECT_EQ(reply.get(), "failed\n") << "at once, without the time that an event waits";
    EXPECT_EQ(loopUntilReply(send(kChanged)), "ok\n");
}

TEST_F(CppUsbLoop, answers_events_that_wait_when_the_object_is_destroyed)
{
    const HandlerTime never(60s);
    const Recorder recorder;
    std::vector<std::future<std::string>> replies;
    {
        const kvo::UsbEvents events = kvo::UsbEvents::activate(*requests, recorder).value();
        ASSERT_TRUE(loopUntilHandled(recorder, "activated"));
        drain();
        for (int event = 0; event < 3; ++event) {
            replies.push_back(send(kChanged));
        }
        pollfd ready{requests->descriptor(), POLLIN, 0};
        ASSERT_EQ(poll(&ready, 1, 10'000), 1) << "an event waits";
    }
    for (auto &reply : replies) {
        ASSERT_EQ(reply.wait_for(20s), std::future_status::ready) << "at once, not when its time has passed";
        EXPECT_NE(reply.get(), "ok\n");
    }
    requests->dispatch();
    EXPECT_THAT(recorder.texts(), ElementsAre("begin", "activated")) << "the object is closed";
    EXPECT_TRUE(kvo::UsbEvents::activate(recorder));
}

TEST_F(CppUsbLoop, may_end_before_the_object)
{
    const HandlerTime never(60s);
    const Recorder recorder;
    kvo::UsbEvents events = kvo::UsbEvents::activate(*requests, recorder).value();
    ASSERT_TRUE(loopUntilHandled(recorder, "activated"));
    drain();
    auto waiting = send(kChanged);
    pollfd ready{requests->descriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, 10'000), 1) << "the event waits";
    requests.reset();
    ASSERT_EQ(waiting.wait_for(20s), std::future_status::ready) << "at once, not when its time has passed";
    EXPECT_EQ(waiting.get(), "failed\n");
    EXPECT_EQ(send(kChanged).get(), "failed\n") << "at once";
    EXPECT_TRUE(events.active());
    EXPECT_TRUE(events.close());
    EXPECT_THAT(recorder.texts(), ElementsAre("begin", "activated"));
}

TEST_F(CppUsbLoop, lets_a_handler_destroy_the_object)
{
    const auto alive = std::make_shared<int>(0);
    std::optional<kvo::UsbEvents> events;
    events = kvo::UsbEvents::activate(*requests, [&, owned = alive](const kvo::UsbEvent &event) {
                 if (isDevice(event)) {
                     events.reset();
                     EXPECT_GT(owned.use_count(), 1);
                 }
                 return true;
             }).value();
    EXPECT_EQ(loopUntilReply(send(kChanged)), "ok\n");
    EXPECT_EQ(alive.use_count(), 1);
    EXPECT_FALSE(usbevents_test::anySet());
}

TEST_F(CppUsbLoop, waits_at_the_destruction_for_a_handler_in_another_thread)
{
    std::atomic<bool> runs{false};
    std::atomic<bool> goOn{false};
    std::atomic<bool> returned{false};
    std::optional<kvo::UsbEvents> events;
    events = kvo::UsbEvents::activate(*requests, [&](const kvo::UsbEvent &event) {
                 if (isDevice(event)) {
                     runs = true;
                     EXPECT_TRUE(eventually([&] { return goOn.load(); }));
                     returned = true;
                 }
                 return true;
             }).value();
    auto reply = send(kChanged);
    std::thread loop([&] { EXPECT_TRUE(loopUntil([&] { return returned.load(); })); });
    EXPECT_TRUE(eventually([&] { return runs.load(); }));
    std::thread release([&] {
        EXPECT_TRUE(eventually([] { return !usbevents_test::anySet(); }));
        std::this_thread::sleep_for(300ms);  // a destruction that does not wait for the handler ends now
        EXPECT_FALSE(returned);
        goOn = true;
    });
    events.reset();
    EXPECT_TRUE(returned);
    EXPECT_EQ(reply.get(), "ok\n") << "it does not wait any more, it is handled";
    loop.join();
    release.join();
}

TEST_F(CppUsbLoop, must_be_open)
{
    requests->close();
    const auto events = kvo::UsbEvents::activate(*requests, [](const kvo::UsbEvent &) { return true; });
    ASSERT_FALSE(events);
    EXPECT_EQ(events.error().meaning(), kvo::Errc::not_running);
    EXPECT_FALSE(usbevents_test::anySet());
}

TEST_F(CppUsbLoop, lets_its_worker_activate_and_close_while_the_loop_goes_on)
{
    const Recorder recorder;
    std::shared_ptr<kvo::UsbEvents> events;
    bool isClosed = false;
    ASSERT_TRUE(requests->submit(
        [&] { return kvo::UsbEvents::activate(*requests, recorder); },
        [&](kvo::Result<kvo::UsbEvents> activated) { events = std::make_shared<kvo::UsbEvents>(std::move(activated).value()); },
        60s));
    ASSERT_TRUE(loopUntilHandled(recorder, "activated"));
    EXPECT_EQ(loopUntilReply(send(kChanged)), "ok\n");
    ASSERT_TRUE(loopUntil([&] { return events != nullptr; }));
    ASSERT_TRUE(requests->submit([events] { return events->close(); },
                                 [&](const kvo::Result<void> &closed) { isClosed = closed.has_value(); }, 60s));
    EXPECT_TRUE(loopUntil([&] { return isClosed; }));
    EXPECT_THAT(recorder.texts(), ElementsAre("begin", "activated", kChangedText));
}

}  // namespace
