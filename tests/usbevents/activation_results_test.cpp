// What activating USB events logs and returns, for each of the two callbacks.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"
#include "usbevents/activation_fixture.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <syslog.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

using support::acceptsAll;
using support::EventRecorder;
using support::eventually;
using support::LogLine;
using support::MessagesOn;
using support::onOwnThread;
using support::RecordedEvent;
using support::ScriptedService;
using support::serverState;
using support::setServerState;
using support::SyslogCapture;
using support::WithSystemCalls;
using testing::ElementsAre;
using testing::IsEmpty;
using usbevents_test::activate;
using usbevents_test::activateV2;
using usbevents_test::anySet;
using usbevents_test::Clock;
using usbevents_test::closeEvents;
using usbevents_test::endEvents;
using usbevents_test::isSet;

struct Generation {
    const char *name;
    int number;
    std::string label;
    int32_t (*activate)();
    int32_t (*activateNull)();
};

std::ostream &operator<<(std::ostream &out, const Generation &generation) { return out << generation.name; }

const std::vector<Generation> kGenerations = {
    {"older", 1, "activate USB events", [] { return activate(EventRecorder::older); }, [] { return activate(nullptr); }},
    {"newer", 2, "activate USB events V2", [] { return activateV2(EventRecorder::newer); },
     [] { return activateV2(nullptr); }}};

class EitherActivation : public testing::TestWithParam<Generation> {
protected:
    void SetUp() override { std::filesystem::create_directories("/tmp/kvo_hws"); }
    void TearDown() override { endEvents(); }

    /// The lines that begin with the label.
    [[nodiscard]] static std::vector<LogLine> own(const SyslogCapture &capture)
    {
        std::vector<LogLine> lines = capture.lines();
        std::erase_if(lines, [](const LogLine &line) { return !line.text.starts_with(GetParam().label + " - "); });
        return lines;
    }
    [[nodiscard]] static LogLine message(const std::string &reason)
    {
        return {"", LOG_INFO, GetParam().label + " - " + reason};
    }
    [[nodiscard]] static LogLine failure(int result)
    {
        return {"", LOG_ERR, GetParam().label + " - fails with " + std::to_string(result)};
    }
    [[nodiscard]] static RecordedEvent status(uint32_t code)
    {
        return {GetParam().number, code, GetParam().number == 2 ? 8U : 0U, ""};
    }
};

TEST_P(EitherActivation, refuses_null_and_changes_nothing)
{
    const EventRecorder recorder;
    sendUSBEvent = EventRecorder::older;
    sendUSBEvent2 = EventRecorder::newer;
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(GetParam().activateNull(), -1);
    EXPECT_THAT(capture.lines(), ElementsAre(message("null pointer received"), failure(-1)));
    EXPECT_TRUE(isSet(sendUSBEvent) && isSet(sendUSBEvent2));
    EXPECT_THAT(recorder.events(), IsEmpty());
}

TEST_P(EitherActivation, logs_its_steps)
{
    const ScriptedService service({acceptsAll()});
    const EventRecorder recorder;
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(GetParam().activate(), 1);
    EXPECT_THAT(own(capture), ElementsAre(message("kill server"), message("start server")));
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_THAT(recorder.events(), ElementsAre(status(USB_EVENT_BEGIN), status(USB_EVENT_ACTIVATED)));
    closeEvents();
    ASSERT_TRUE(recorder.waitFor(4));
}

TEST_P(EitherActivation, fails_if_the_server_does_not_stop)
{
    const EventRecorder recorder;
    const ScriptedService deaf({support::replies("ok")}, support::kUsbSocket);
    setServerState(NOTIFY_RUNNING);  // as if a server listened but never read its state
    const MessagesOn messages;
    const SyslogCapture capture;
    const auto start = Clock::now();
    EXPECT_EQ(GetParam().activate(), -8);
    EXPECT_GE(Clock::now() - start, 2s);
    EXPECT_THAT(own(capture), ElementsAre(message("can not kill server"), failure(-8)));
    EXPECT_THAT(recorder.events(), ElementsAre(status(USB_EVENT_BEGIN), status(USB_EVENT_SERVER_FAILED)));
    EXPECT_FALSE(anySet());
    EXPECT_EQ(serverState(), 0U);
}

TEST_P(EitherActivation, fails_if_the_server_gets_no_thread)
{
    const EventRecorder recorder;
    const MessagesOn messages;
    const SyslogCapture capture;
    static thread_local bool withoutThreads = false;
    const auto activateWithoutThreads = [] {
        return onOwnThread([] {
            withoutThreads = true;
            return GetParam().number == 1 ? KVO_HWS_activateUSBEvents(EventRecorder::older)
                                          : KVO_HWS_activateUSBEventsV2(EventRecorder::newer);
        });
    };
    const WithSystemCalls calls({.pthreadCreate = [] { return withoutThreads ? EAGAIN : support::kPassThrough; }});
    EXPECT_EQ(activateWithoutThreads(), -8);
    EXPECT_THAT(own(capture), ElementsAre(message("kill server"), message("can not start server"), failure(-8)));
    EXPECT_THAT(recorder.events(), ElementsAre(status(USB_EVENT_BEGIN), status(USB_EVENT_SERVER_FAILED)));
    EXPECT_FALSE(anySet());
}

TEST_P(EitherActivation, fails_if_another_server_starts_after_the_stop)
{
    const EventRecorder recorder;
    const MessagesOn messages;
    // Between the stop and the start the state must be 0. The capture acts as another program: it starts a server as soon as
    // the stop is logged.
    const SyslogCapture capture([] { setServerState(NOTIFY_RUNNING); });
    EXPECT_EQ(GetParam().activate(), -8);
    EXPECT_THAT(own(capture), ElementsAre(message("kill server"), message("can not start server"), failure(-8)));
    EXPECT_FALSE(anySet());
    setServerState(NOTIFY_STOPPED);
}

TEST_P(EitherActivation, keeps_the_callback_if_the_server_runs_but_no_thread_can_send_the_requests)
{
    const EventRecorder recorder;
    const MessagesOn messages;
    const SyslogCapture capture;
    static thread_local int threads = -1;
    const WithSystemCalls calls(
        {.pthreadCreate = [] { return threads > 0 && --threads == 0 ? EAGAIN : support::kPassThrough; }});
    EXPECT_EQ(onOwnThread([] {
                  threads = 2;
                  return GetParam().number == 1 ? KVO_HWS_activateUSBEvents(EventRecorder::older)
                                                : KVO_HWS_activateUSBEventsV2(EventRecorder::newer);
              }),
              -3);
    EXPECT_THAT(own(capture), ElementsAre(message("kill server"), message("start server"), failure(-3)));
    EXPECT_THAT(recorder.events(), ElementsAre(status(USB_EVENT_BEGIN)));
    EXPECT_TRUE(anySet());
    closeEvents();
    EXPECT_TRUE(eventually([] { return !anySet(); }));
}

INSTANTIATE_TEST_SUITE_P(Of, EitherActivation, testing::ValuesIn(kGenerations),
                         [](const auto &generation) { return std::string(generation.param.name); });

}  // namespace
