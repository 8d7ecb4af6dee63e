// Activating USB events and the service: waiting for it, its replies, and whether it has activated events.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/own_thread.h"
#include "support/resource_usage.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/usb_events.h"
#include "usbevents/activation_fixture.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using support::acceptsAll;
using support::EventRecorder;
using support::eventually;
using support::MessagesOn;
using support::onOwnThread;
using support::ScriptedService;
using support::SyslogCapture;
using support::threadsRunning;
using support::usbServerReply;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using usbevents_test::activate;
using usbevents_test::activateV2;
using usbevents_test::Activation;
using usbevents_test::anySet;
using usbevents_test::Clock;
using usbevents_test::closeEvents;
using usbevents_test::Codes;
using usbevents_test::kState;

std::vector<std::string> without(std::vector<std::string> requests, const std::string &request)
{
    std::erase(requests, request);
    return requests;
}

// ---- Replies of the service ----

TEST_F(Activation, waits_for_the_service_without_a_timeout)
{
    std::atomic<bool> complete{false};
    const ScriptedService service({support::answersWith([&](const std::string &request) {
        return std::string(request == "isInitComplete" ? (complete ? "yes" : "no") : "ok");
    })});
    const EventRecorder recorder;
    const auto began = Clock::now();
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(eventually([&] { return service.requests().size() >= 4; }));
    EXPECT_EQ(recorder.codes(), Codes{USB_EVENT_BEGIN}) << "nothing else";
    const auto requests = service.requests();
    EXPECT_THAT(without(requests, "isInitComplete\n"), IsEmpty());
    EXPECT_LE(requests.size(), 1 + (Clock::now() - began) / 100ms) << "every 100 ms";
    complete = true;
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_ACTIVATED}));
}

TEST_F(Activation, waits_for_a_service_that_does_not_run_yet)
{
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    std::this_thread::sleep_for(250ms);
    EXPECT_EQ(recorder.codes(), Codes{USB_EVENT_BEGIN});
    const ScriptedService service({acceptsAll()});
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_ACTIVATED}));
    closeEvents();
    EXPECT_TRUE(eventually([] { return !anySet(); }));
}

TEST_F(Activation, stops_waiting_when_superseded)
{
    const EventRecorder recorder;
    const std::size_t before = threadsRunning();
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    }
    EXPECT_TRUE(eventually([&] { return threadsRunning() == before + 2; })) << "the server and the latest activation's helper";
    EXPECT_EQ(closeEvents(), 1);
    EXPECT_TRUE(eventually([&] { return threadsRunning() == before; })) << "none is left after the close";
    const ScriptedService service({acceptsAll()});
    std::this_thread::sleep_for(250ms);
    EXPECT_THAT(service.requests(), IsEmpty());
}

TEST_F(Activation, superseded_during_its_readiness_request_sends_no_other_request)
{
    std::atomic<bool> closed{false};
    const ScriptedService service({support::answersWith([&](const std::string &request) {
        if (request == "isInitComplete") {
            EXPECT_TRUE(eventually([&] { return closed.load(); }));
            return std::string("yes");
        }
        return std::string("ok");
    })});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(eventually([&] { return !service.requests().empty(); }));
    EXPECT_EQ(closeEvents(), 1);
    closed = true;
    ASSERT_TRUE(recorder.waitFor(3));
    std::this_thread::sleep_for(300ms);
    EXPECT_THAT(service.requests(), Not(Contains("activateUSBEvents\n")));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_BEGIN, USB_EVENT_DEACTIVATED}));
}

TEST_F(Activation, superseded_before_the_service_refuses_it_reports_nothing)
{
    std::atomic<bool> first{true};
    std::atomic<bool> superseded{false};
    const ScriptedService service({support::answersWith([&](const std::string &request) {
        if (request == "activateUSBEvents" && first.exchange(false)) {
            EXPECT_TRUE(eventually([&] { return superseded.load(); }));
            return std::string("failed");
        }
        return std::string(request == "isInitComplete" ? "yes" : "ok");
    })});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(eventually([&] { return !first; }));
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    superseded = true;
    ASSERT_TRUE(recorder.waitFor(3));
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_BEGIN, USB_EVENT_ACTIVATED}));
    EXPECT_EQ(usbServerReply(kState), "ok\n");
}

TEST_F(Activation, that_the_service_refuses_is_reported_to_the_callback)
{
    for (const char *const reply : {"failed", "ok ", ""}) {
        const ScriptedService service({acceptsAll({{"activateUSBEvents", reply}})});
        const EventRecorder recorder;
        ASSERT_EQ(activateV2(EventRecorder::newer), 1);
        ASSERT_TRUE(recorder.waitFor(2));
        EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_REFUSED}));
        EXPECT_TRUE(eventually([] { return !anySet(); }));
    }
}

/// A service that answers the first request and closes the connection of the second.
std::vector<support::Script> answersOnce() { return {acceptsAll(), support::closesAfterRequest()}; }

TEST_F(Activation, that_gets_no_reply_is_reported_to_the_callback)
{
    const ScriptedService service(answersOnce());
    const EventRecorder recorder;
    ASSERT_EQ(activate(EventRecorder::older), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_NO_SERVICE}));
    EXPECT_TRUE(eventually([] { return !anySet(); }));
}

/// The messages of the thread that activates events at a ready service, and of the one that deactivates them.
std::vector<std::string> messagesOfBothThreads(const std::vector<support::Script> &scripts)
{
    const ScriptedService service(scripts);
    const MessagesOn messages;
    const SyslogCapture capture;
    onOwnThread([] { return threadActivateUSBevents(nullptr); });
    onOwnThread([] { return threadDeactivateUSBevents(nullptr); });
    return capture.texts();
}

TEST_F(Activation, does_not_log_the_replies_of_the_service)
{
    for (const char *const reply : {"ok", "failed", "busy", ""}) {
        EXPECT_THAT(messagesOfBothThreads({acceptsAll({{"activateUSBEvents", reply}, {"deactivateUSBEvents", reply}})}),
                    IsEmpty())
            << reply;
    }
    EXPECT_THAT(messagesOfBothThreads({acceptsAll(), support::closesAfterRequest(), support::closesAfterRequest()}),
                ElementsAre("command socket - can not read from socket", "command socket - can not read from socket"));
}

TEST_F(Activation, by_the_thread_function_alone_sends_the_same_requests)
{
    const ScriptedService service({acceptsAll()});
    EXPECT_EQ(onOwnThread([] { return threadActivateUSBevents(nullptr); }), nullptr);
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n", "activateUSBEvents\n"));
    EXPECT_EQ(onOwnThread([] { return threadDeactivateUSBevents(nullptr); }), nullptr);
    EXPECT_EQ(service.requests().back(), "deactivateUSBEvents\n");
}

TEST_F(Activation, by_the_thread_function_alone_waits_and_ends_as_usual)
{
    std::atomic<int> readinessRequests{0};
    const ScriptedService service({support::answersWith([&](const std::string &request) {
        return std::string(request != "isInitComplete" ? "ok" : readinessRequests++ == 0 ? "no" : "yes");
    })});
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    EXPECT_EQ(onOwnThread([] {
                  threadActivateUSBevents(nullptr);
                  return kvo_hws_detach_thread();
              }),
              -1)
        << "detached";
    EXPECT_EQ(readinessRequests, 2);
    EXPECT_EQ(onOwnThread([] {
                  threadDeactivateUSBevents(nullptr);
                  return kvo_hws_detach_thread();
              }),
              -1)
        << "detached";
    EXPECT_FALSE(anySet());
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_ACTIVATED, USB_EVENT_DEACTIVATED}));
}

}  // namespace
