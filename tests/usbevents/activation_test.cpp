// Activating USB events: from the call to the callback, and in order with other calls of the same process.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/own_thread.h"
#include "support/resource_usage.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"
#include "usbevents/activation_fixture.h"

#include <atomic>
#include <chrono>
#include <filesystem>
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
using support::threadsRunning;
using support::usbServerReply;
using support::WithSystemCalls;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using usbevents_test::activate;
using usbevents_test::activateV2;
using usbevents_test::Activation;
using usbevents_test::anySet;
using usbevents_test::Clock;
using usbevents_test::closeEvents;
using usbevents_test::Codes;
using usbevents_test::kState;
using usbevents_test::onDetachedThread;

const std::string kRemoved = "removeUSBdevice*10.0.0.5*usb1*1-1.4*\n";

// ---- From the call to the event ----

TEST_F(Activation, delivers_events_to_the_newer_callback_until_it_is_closed)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_ACTIVATED}));
    EXPECT_EQ(usbServerReply(kState), "ok\n");
    EXPECT_EQ(closeEvents(), 1);
    ASSERT_TRUE(recorder.waitFor(5));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 13, 3, 2}));
    EXPECT_EQ(recorder.events().back(), (RecordedEvent{2, USB_EVENT_DEACTIVATED, 8, ""}));
    EXPECT_TRUE(eventually([] { return !anySet(); }));
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n", "activateUSBEvents\n", "deactivateUSBEvents\n"));
    EXPECT_EQ(usbServerReply(kState), "(no server)");
    EXPECT_EQ(serverState(), 0U);
}

TEST_F(Activation, delivers_events_to_the_older_callback_until_it_is_closed)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    ASSERT_EQ(activate(EventRecorder::older), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(usbServerReply(kRemoved), "ok\n");
    EXPECT_EQ(closeEvents(), 1);
    ASSERT_TRUE(recorder.waitFor(5));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 11, 3, 2}));
    EXPECT_EQ(recorder.events().front(), (RecordedEvent{1, USB_EVENT_BEGIN, 0, ""}));
}

TEST_F(Activation, listens_before_it_returns)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    EXPECT_EQ(usbServerReply(kState), "ok\n");
    EXPECT_EQ(serverState(), 3U);
}

TEST_F(Activation, twice_in_succession_stops_the_first_server_and_starts_another)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    std::atomic<bool> stopping{false};
    std::atomic<bool> ended{false};
    std::thread watch([&] {
        uint32_t last = 3;
        while (!ended) {
            const uint32_t now = serverState();
            stopping = stopping || (last == 3 && now == 1);
            last = now;
            std::this_thread::sleep_for(1ms);
        }
    });
    EXPECT_EQ(activateV2(EventRecorder::newer), 1);
    ended = true;
    watch.join();
    EXPECT_TRUE(stopping) << "state 3, then 1";
    ASSERT_TRUE(recorder.waitFor(4));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 3, 1}));
    EXPECT_EQ(usbServerReply(kState), "ok\n");
}

TEST_F(Activation, of_the_older_callback_calls_it_directly_even_if_a_newer_one_is_set)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    ASSERT_EQ(activate(EventRecorder::older), 1);
    ASSERT_TRUE(recorder.waitFor(4));
    const auto events = recorder.events();
    EXPECT_EQ(events[2], (RecordedEvent{1, USB_EVENT_BEGIN, 0, ""})) << "called directly";
    EXPECT_EQ(events[3], (RecordedEvent{2, USB_EVENT_ACTIVATED, 8, ""})) << "any callback that is set, the newer one first";
}

TEST_F(Activation, detaches_the_calling_thread_as_closing_does)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    EXPECT_EQ(onOwnThread([] {
                  KVO_HWS_activateUSBEventsV2(EventRecorder::newer);
                  return kvo_hws_detach_thread();
              }),
              -1);
    EXPECT_EQ(onOwnThread([] {
                  KVO_HWS_closeUSBEvents();
                  return kvo_hws_detach_thread();
              }),
              -1);
    ASSERT_TRUE(recorder.waitFor(3));
}

TEST_F(Activation, continues_after_its_thread_is_cancelled_in_its_callback)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder([](const RecordedEvent &event) {
        if (event.code == USB_EVENT_BEGIN) {
            pthread_testcancel();
        }
        return 0;
    });
    pthread_t thread{};
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void *) -> void * {
                      pthread_cancel(pthread_self());
                      KVO_HWS_activateUSBEventsV2(EventRecorder::newer);
                      return nullptr;
                  },
                  nullptr),
              0);
    EXPECT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_ACTIVATED}));
}

// ---- In order with other calls ----

TEST_F(Activation, succeeds_if_a_server_neither_stops_nor_listens)
{
    // An undelivered control word counts as success, even if the server did not stop. Callers rely on that.
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    setServerState(NOTIFY_RUNNING);
    EXPECT_EQ(activateV2(EventRecorder::newer), 1);
    EXPECT_EQ(usbServerReply(kState), "ok\n");
}

TEST_F(Activation, fails_at_once_if_the_socket_cannot_be_bound)
{
    std::filesystem::remove_all(support::kUsbSocket);
    std::filesystem::create_directories(std::string(support::kUsbSocket) + "/in the way");
    const EventRecorder recorder;
    const MessagesOn messages;
    const SyslogCapture capture;
    const auto start = Clock::now();
    EXPECT_EQ(activateV2(EventRecorder::newer), -8);
    EXPECT_LT(Clock::now() - start, 1800ms);
    EXPECT_THAT(capture.texts(), Contains("USB server - bind error"));
    EXPECT_THAT(capture.texts(), Contains("activate USB events V2 - can not start server"));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_SERVER_FAILED}));
    EXPECT_FALSE(anySet());
    std::filesystem::remove_all(support::kUsbSocket);
}

TEST_F(Activation, sets_its_callback_even_if_a_close_clears_it_meanwhile)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder([](const RecordedEvent &event) {
        if (event.code == USB_EVENT_BEGIN) {
            SetFunction_SendUSBEvent_NULL();
        }
        return 0;
    });
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(usbServerReply(kState), "ok\n");
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_ACTIVATED, USB_EVENT_STATE}));
    // A close would call the recorder with its begin event too, which would clear the callback.
    onOwnThread(KillUsbServer);
    SetFunction_SendUSBEvent_NULL();
}

TEST_F(Activation, waits_for_a_running_activation)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    static std::atomic<bool> blocked{false};
    static std::atomic<bool> release{false};
    static thread_local bool isFirst = false;
    blocked = release = false;
    std::thread first;
    std::thread second;
    {
        const WithSystemCalls calls({.pthreadCreate = [] {
            if (isFirst && !blocked.exchange(true)) {
                eventually([] { return release.load(); });
            }
            return support::kPassThrough;
        }});
        first = std::thread([] {
            onDetachedThread([] {
                isFirst = true;
                return KVO_HWS_activateUSBEventsV2(EventRecorder::newer);
            });
        });
        EXPECT_TRUE(eventually([] { return blocked.load(); })) << "about to start its server";
        const MessagesOn messages;
        const SyslogCapture capture;
        second = std::thread([] { closeEvents(); });
        std::this_thread::sleep_for(300ms);
        EXPECT_THAT(capture.texts(), Not(Contains("deactivate USB events - kill server")));
        release = true;
        first.join();
        second.join();
        EXPECT_THAT(capture.texts(), Contains("deactivate USB events - kill server"));
    }
    EXPECT_TRUE(eventually([] { return serverState() == 0; }));
}

// ---- All at the same time ----

TEST_F(Activation, may_be_called_with_closing_by_several_threads_during_events)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    const std::size_t before = threadsRunning();
    std::atomic<bool> ended{false};
    std::thread daemon([&] {
        while (!ended) {
            EXPECT_THAT(usbServerReply(kState), AnyOf("ok\n", "failed\n", "(no server)", ""));
        }
    });
    const auto loop = [](int32_t (*start)()) {
        const auto end = Clock::now() + 4s;
        do {
            EXPECT_THAT(start(), AnyOf(1, -8));
            EXPECT_THAT(closeEvents(), AnyOf(1, -9, -8));
        } while (Clock::now() < end);
    };
    std::thread older(loop, [] { return activate(EventRecorder::older); });
    std::thread newer(loop, [] { return activateV2(EventRecorder::newer); });
    loop([] { return activateV2(EventRecorder::newer); });
    older.join();
    newer.join();
    // Whatever order the calls had, one more close is enough.
    closeEvents();
    ended = true;
    daemon.join();
    EXPECT_TRUE(eventually([] { return serverState() == 0; }));
    EXPECT_TRUE(eventually([&] { return threadsRunning() == before; }));
    EXPECT_EQ(usbServerReply(kState), "(no server)");
}

}  // namespace
