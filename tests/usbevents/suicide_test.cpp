// The control word that ends a USB event server.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/usb_events.h"
#include "usbevents/connection.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using support::EventRecorder;
using support::MessagesOn;
using support::RecordedEvent;
using support::setServerState;
using support::suicideServed;
using support::SyslogCapture;
using testing::ElementsAre;
using usbevents_test::answerTo;
using usbevents_test::Connection;
using usbevents_test::kState;

class Suicide : public testing::Test {
protected:
    void SetUp() override
    {
        __atomic_store_n(&uiSuicide, 0U, __ATOMIC_SEQ_CST);
        sendUSBEvent = EventRecorder::older;
        sendUSBEvent2 = EventRecorder::newer;
    }
    void TearDown() override { SetFunction_SendUSBEvent_NULL(); }
};

TEST_F(Suicide, deactivates_at_the_service_and_clears_the_callback_after_a_status)
{
    const support::ScriptedService service({support::acceptsAll()});
    const EventRecorder recorder;
    EXPECT_EQ(answerTo("suicide"), "ok\n");
    EXPECT_THAT(service.requests(), ElementsAre("deactivateUSBEvents\n"));
    EXPECT_THAT(recorder.events(), ElementsAre(RecordedEvent{2, USB_EVENT_DEACTIVATED, 8, ""}));
    EXPECT_EQ(sendUSBEvent, nullptr);
    EXPECT_EQ(sendUSBEvent2, nullptr);
    EXPECT_EQ(suicideServed(), 1U);
}

TEST_F(Suicide, reports_to_the_older_callback_if_only_that_is_set)
{
    const support::ScriptedService service({support::acceptsAll()});
    const EventRecorder recorder;
    sendUSBEvent2 = nullptr;
    EXPECT_EQ(answerTo("suicide"), "ok\n");
    EXPECT_THAT(recorder.events(), ElementsAre(RecordedEvent{1, USB_EVENT_DEACTIVATED, 0, ""}));
}

TEST_F(Suicide, fails_but_clears_the_callback_if_the_service_refuses)
{
    for (const char *const reply : {"failed", "ok ", ""}) {
        const support::ScriptedService service({support::replies(reply)});
        const EventRecorder recorder;
        sendUSBEvent2 = EventRecorder::newer;
        EXPECT_EQ(answerTo("suicide"), "failed\n");
        EXPECT_EQ(recorder.codes(), std::vector<uint32_t>{USB_EVENT_DEACTIVATED});
        EXPECT_EQ(sendUSBEvent2, nullptr);
    }
}

TEST_F(Suicide, fails_without_a_service)
{
    const EventRecorder recorder;
    EXPECT_EQ(answerTo("suicide"), "failed\n");
    EXPECT_EQ(recorder.codes(), std::vector<uint32_t>{USB_EVENT_DEACTIVATED});
    EXPECT_EQ(suicideServed(), 1U);
}

TEST_F(Suicide, does_not_log_the_replies_of_the_service)
{
    for (const char *const reply : {"ok", "failed", "busy"}) {
        const support::ScriptedService service({support::replies(reply)});
        const std::string answer = reply == std::string("ok") ? "ok" : "failed";
        const MessagesOn messages;
        const SyslogCapture capture;
        EXPECT_EQ(answerTo("suicide"), answer + "\n");
        EXPECT_THAT(capture.texts(), ElementsAre("USB server - received text from client 'suicide'",
                                                 "USB server - sending text to client '" + answer + "'"));
    }
}

TEST_F(Suicide, stops_a_running_server_after_the_connection_is_closed)
{
    const support::ScriptedService service({support::acceptsAll()});
    const EventRecorder recorder;
    setServerState(NOTIFY_RUNNING);
    const Connection connection;
    connection.send("suicide\n");
    ASSERT_TRUE(connection.readable(5s));
    EXPECT_EQ(support::serverState(), static_cast<uint32_t>(NOTIFY_RUNNING)) << "its answer is not read yet";
    EXPECT_EQ(connection.answer(), "ok\n");
    EXPECT_TRUE(support::eventually([] { return support::serverState() == NOTIFY_STOP_REQUESTED; }));
    setServerState(NOTIFY_STOPPED);
}

TEST_F(Suicide, does_not_affect_an_activation_made_during_its_request)
{
    std::filesystem::create_directories("/tmp/kvo_hws");
    std::atomic<bool> activated{false};
    const support::ScriptedService service({support::answersWith([&](const std::string &request) {
        if (request == "deactivateUSBEvents" && !activated) {
            EXPECT_TRUE(support::eventually([&] { return activated.load(); }));
        }
        return std::string(request == "isInitComplete" ? "yes" : "ok");
    })});
    const EventRecorder recorder;
    sendUSBEvent = nullptr;
    const Connection connection;
    connection.send("suicide\n");
    ASSERT_TRUE(support::eventually([&] { return !service.requests().empty(); }));
    EXPECT_EQ(support::onOwnThread([] { return KVO_HWS_activateUSBEventsV2(EventRecorder::newer); }), 1);
    activated = true;
    EXPECT_EQ(connection.answer(), "ok\n");
    ASSERT_TRUE(recorder.waitFor(3));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(suicideServed(), 0U);
    EXPECT_EQ(support::serverState(), static_cast<uint32_t>(NOTIFY_RUNNING));
    EXPECT_EQ(support::usbServerReply(kState + "\n"), "ok\n");
    support::onOwnThread(KVO_HWS_closeUSBEvents);
    EXPECT_TRUE(support::eventually([] { return __atomic_load_n(&sendUSBEvent2, __ATOMIC_SEQ_CST) == nullptr; }));
}

TEST_F(Suicide, changes_no_other_state)
{
    const support::ScriptedService service({support::acceptsAll()});
    for (const uint32_t state : {NOTIFY_STOPPED, NOTIFY_STOP_REQUESTED, NOTIFY_STOP_DONE}) {
        setServerState(state);
        EXPECT_EQ(answerTo("suicide"), "ok\n");
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(support::serverState(), state);
    }
    setServerState(NOTIFY_STOPPED);
}

TEST_F(Suicide, is_the_only_text_that_stops_a_server)
{
    setServerState(NOTIFY_RUNNING);
    answerTo("unknown");
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(support::serverState(), static_cast<uint32_t>(NOTIFY_RUNNING));
    setServerState(NOTIFY_STOPPED);
}

}  // namespace
