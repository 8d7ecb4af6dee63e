// Closing USB events: what it returns, and how it interacts with an activation.
#include <kvo_hws/runtime.h>
#include <kvo_hws/usbevents.h>

#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"
#include "usbevents/activation_fixture.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>

using namespace std::chrono_literals;

namespace {

using support::acceptsAll;
using support::EventRecorder;
using support::eventually;
using support::MessagesOn;
using support::onOwnThread;
using support::RecordedEvent;
using support::ScriptedService;
using support::serverState;
using support::setServerState;
using support::SyslogCapture;
using support::usbServerReply;
using support::WithSystemCalls;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using usbevents_test::activateV2;
using usbevents_test::Activation;
using usbevents_test::anySet;
using usbevents_test::Clock;
using usbevents_test::closeEvents;
using usbevents_test::Codes;
using usbevents_test::kState;

class Closing : public Activation {};

TEST_F(Closing, is_refused_when_nothing_is_active)
{
    const ScriptedService service({acceptsAll()});
    const ScriptedService otherProgram({support::replies("ok")}, support::kUsbSocket);
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(closeEvents(), -9);
    EXPECT_THAT(capture.texts(), ElementsAre("deactivate USB events - events not activated"));
    EXPECT_THAT(service.requests(), IsEmpty());
    EXPECT_THAT(otherProgram.requests(), IsEmpty());
}

TEST_F(Closing, logs_its_step)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    sendUSBEvent = EventRecorder::older;
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(closeEvents(), 1);
    EXPECT_THAT(capture.texts(), ElementsAre("deactivate USB events - kill server"));
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_DEACTIVATED}));
}

TEST_F(Closing, waits_100_ms_for_the_service)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    const auto start = Clock::now();
    EXPECT_EQ(closeEvents(), 1);
    EXPECT_GE(Clock::now() - start, 150ms) << "50 of them for finding that no other server runs";
    EXPECT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_DEACTIVATED}));
}

TEST_F(Closing, fails_if_the_server_does_not_stop)
{
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    const ScriptedService deaf({support::replies("ok")}, support::kUsbSocket);
    setServerState(NOTIFY_RUNNING);
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(closeEvents(), -8);
    EXPECT_THAT(capture.texts(), Contains("deactivate USB events - can not kill server"));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_SERVER_FAILED}));
    EXPECT_FALSE(anySet());
}

TEST_F(Closing, succeeds_even_if_the_service_refuses_or_is_gone)
{
    const EventRecorder refused;
    {
        const ScriptedService service({support::replies("failed")});
        sendUSBEvent2 = EventRecorder::newer;
        EXPECT_EQ(closeEvents(), 1);
        ASSERT_TRUE(refused.waitFor(2));
        EXPECT_EQ(refused.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_REFUSED}));
        EXPECT_TRUE(eventually([] { return !anySet(); }));
    }
    const EventRecorder alone;
    sendUSBEvent = EventRecorder::older;
    EXPECT_EQ(closeEvents(), 1);
    ASSERT_TRUE(alone.waitFor(2));
    EXPECT_EQ(alone.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_NO_SERVICE}));
    EXPECT_TRUE(eventually([] { return !anySet(); }));
}

TEST_F(Closing, without_a_thread_keeps_the_callback_for_another_close)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    {
        static thread_local bool withoutThreads = false;
        const WithSystemCalls calls({.pthreadCreate = [] { return withoutThreads ? EAGAIN : support::kPassThrough; }});
        EXPECT_EQ(onOwnThread([] {
                      withoutThreads = true;
                      return KVO_HWS_closeUSBEvents();
                  }),
                  1);
    }
    EXPECT_TRUE(anySet());
    EXPECT_EQ(closeEvents(), 1);
    EXPECT_TRUE(eventually([] { return !anySet(); }));
    EXPECT_THAT(service.requests(), ElementsAre("deactivateUSBEvents\n"));
}

TEST_F(Closing, with_a_late_reply_does_not_affect_a_later_activation)
{
    std::atomic<bool> late{true};
    const ScriptedService service({support::answersWith([&](const std::string &request) {
        if (request == "deactivateUSBEvents" && late.exchange(false)) {
            std::this_thread::sleep_for(500ms);
        }
        return std::string(request == "isInitComplete" ? "yes" : "ok");
    })});
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    EXPECT_EQ(closeEvents(), 1);
    EXPECT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(4));
    EXPECT_THAT(recorder.codes(),
                testing::UnorderedElementsAre(USB_EVENT_BEGIN, USB_EVENT_BEGIN, USB_EVENT_DEACTIVATED, USB_EVENT_ACTIVATED));
    EXPECT_EQ(usbServerReply(kState), "ok\n");
}

TEST_F(Closing, supersedes_an_activation_at_once)
{
    std::atomic<bool> complete{false};
    const ScriptedService service({support::answersWith([&](const std::string &request) {
        return std::string(request == "isInitComplete" ? (complete ? "yes" : "no") : "ok");
    })});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    std::thread closing([] { EXPECT_EQ(closeEvents(), 1); });
    EXPECT_TRUE(recorder.waitFor(2));
    EXPECT_TRUE(eventually([] { return serverState() != NOTIFY_RUNNING; }));
    complete = true;  // before the server has ended and the close returns
    closing.join();
    EXPECT_TRUE(eventually([] { return !anySet(); }));
    EXPECT_THAT(service.requests(), Not(Contains("activateUSBEvents\n")));
}

TEST_F(Closing, may_be_called_by_the_callback)
{
    const ScriptedService service({acceptsAll()});
    std::atomic<int32_t> closed{0};
    const EventRecorder recorder([&](const RecordedEvent &event) {
        if (event.code == USB_EVENT_STATE) {
            closed = KVO_HWS_closeUSBEvents();
        }
        return 0;
    });
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(usbServerReply(kState), "ok\n");
    EXPECT_EQ(closed, 1);
    ASSERT_TRUE(recorder.waitFor(5));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 13, 3, 2}));
}

TEST_F(Closing, may_be_called_by_the_callback_of_the_activation_status)
{
    const ScriptedService service({acceptsAll()});
    std::atomic<int32_t> closed{0};
    const EventRecorder recorder([&](const RecordedEvent &event) {
        if (event.code == USB_EVENT_ACTIVATED) {
            closed = KVO_HWS_closeUSBEvents();
        }
        return 0;
    });
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(4));
    EXPECT_TRUE(eventually([&] { return closed == 1; }));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 3, 2}));
}

}  // namespace
