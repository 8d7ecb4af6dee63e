// Activating and closing USB events, in one process and between two.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/holdings.h"
#include "support/own_thread.h"
#include "support/request_table.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

using support::agrees;
using support::answerOfUsbServer;
using support::EventRecorder;
using support::eventually;
using support::LogLine;
using support::MessagesOn;
using support::onOwnThread;
using support::ScriptedService;
using support::serverState;
using support::SyslogCapture;
using support::threadsRunning;
using support::ToldEvent;
using support::WithSystemCalls;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using Clock = std::chrono::steady_clock;
using Codes = std::vector<uint32_t>;

const std::string kRemoved = "removeUSBdevice*10.0.0.5*usb1*1-1.4*\n";
const std::string kState = "changeStateUSBdevice*10.0.0.5*usb1*1-1.4*00000007*\n";

/// A call on a thread of its own: the library detaches whoever activates or closes, but for a call that it refuses.
template <class Call>
int32_t onDetachedThread(Call call)
{
    return onOwnThread([call] {
        const int32_t result = call();
        if (result == -1 || result == -9) {
            kvo_hws_detach_thread();
        }
        return result;
    });
}

int32_t activate(SendUsbEventV1 callback)
{
    return onDetachedThread([=] { return KVO_HWS_activateUSBEvents(callback); });
}
int32_t activateV2(SendUsbEventV2 callback)
{
    return onDetachedThread([=] { return KVO_HWS_activateUSBEventsV2(callback); });
}
int32_t closeEvents() { return onDetachedThread(KVO_HWS_closeUSBEvents); }

bool isSet(SendUsbEventV2 &slot) { return __atomic_load_n(&slot, __ATOMIC_SEQ_CST) != nullptr; }
bool isSet(SendUsbEventV1 &slot) { return __atomic_load_n(&slot, __ATOMIC_SEQ_CST) != nullptr; }
bool anySet() { return isSet(sendUSBEvent) || isSet(sendUSBEvent2); }

void setServerState(uint32_t state) { __atomic_store_n(&ServerPipeThreadSyncState, state, __ATOMIC_SEQ_CST); }

std::vector<std::string> without(std::vector<std::string> requests, const std::string &request)
{
    std::erase(requests, request);
    return requests;
}

/// Leaves nothing active behind, so that tests may share a process.
void endEvents()
{
    const ScriptedService service({agrees()});
    closeEvents();
    EXPECT_TRUE(eventually([] { return !anySet(); }));
    // Where the service refused, the callbacks have gone and the server has stayed.
    if (serverState() != NOTIFY_STOPPED) {
        onOwnThread(KillUsbServer);
    }
}

class Activation : public testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories("/tmp/kvo_hws"); }
    void TearDown() override { endEvents(); }
};

// ---- The whole way ----

TEST_F(Activation, brings_events_to_the_newer_callback_until_it_is_closed)
{
    const ScriptedService service({agrees()});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_ACTIVATED}));
    EXPECT_EQ(answerOfUsbServer(kState), "ok\n");
    EXPECT_EQ(closeEvents(), 1);
    ASSERT_TRUE(recorder.waitFor(5));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 13, 3, 2}));
    EXPECT_EQ(recorder.events().back(), (ToldEvent{2, USB_EVENT_DEACTIVATED, 8, ""}));
    EXPECT_TRUE(eventually([] { return !anySet(); }));
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n", "activateUSBEvents\n", "deactivateUSBEvents\n"));
    EXPECT_EQ(answerOfUsbServer(kState), "(nobody)");
    EXPECT_EQ(serverState(), 0U);
}

TEST_F(Activation, brings_events_to_the_older_callback_until_it_is_closed)
{
    const ScriptedService service({agrees()});
    const EventRecorder recorder;
    ASSERT_EQ(activate(EventRecorder::older), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(answerOfUsbServer(kRemoved), "ok\n");
    EXPECT_EQ(closeEvents(), 1);
    ASSERT_TRUE(recorder.waitFor(5));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 11, 3, 2}));
    EXPECT_EQ(recorder.events().front(), (ToldEvent{1, USB_EVENT_BEGIN, 0, ""}));
}

TEST_F(Activation, listens_before_it_returns)
{
    const ScriptedService service({agrees()});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    EXPECT_EQ(answerOfUsbServer(kState), "ok\n");
    EXPECT_EQ(serverState(), 3U);
}

TEST_F(Activation, twice_in_a_row_stops_the_first_server_and_starts_another)
{
    const ScriptedService service({agrees()});
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
    EXPECT_TRUE(stopping) << "3, then 1";
    ASSERT_TRUE(recorder.waitFor(4));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 3, 1}));
    EXPECT_EQ(answerOfUsbServer(kState), "ok\n");
}

TEST_F(Activation, of_the_older_callback_tells_it_directly_where_a_newer_one_is_set)
{
    const ScriptedService service({agrees()});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    ASSERT_EQ(activate(EventRecorder::older), 1);
    ASSERT_TRUE(recorder.waitFor(4));
    const auto events = recorder.events();
    EXPECT_EQ(events[2], (ToldEvent{1, USB_EVENT_BEGIN, 0, ""})) << "directly";
    EXPECT_EQ(events[3], (ToldEvent{2, USB_EVENT_ACTIVATED, 8, ""})) << "whichever is set, the newer first";
}

TEST_F(Activation, detaches_whoever_activates_or_closes)
{
    const ScriptedService service({agrees()});
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

TEST_F(Activation, by_a_thread_that_is_cancelled_in_its_callback_goes_on)
{
    const ScriptedService service({agrees()});
    const EventRecorder recorder([](const ToldEvent &event) {
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

// ---- What it logs and returns ----

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
    [[nodiscard]] static ToldEvent status(uint32_t code)
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
    const ScriptedService service({agrees()});
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

TEST_P(EitherActivation, fails_where_the_server_does_not_stop)
{
    const EventRecorder recorder;
    const ScriptedService deaf({support::replies("ok")}, support::kUsbSocket);
    setServerState(NOTIFY_RUNNING);  // of a server that listens and never looks
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

TEST_P(EitherActivation, fails_where_the_server_gets_no_thread)
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
    const WithSystemCalls calls({.pthreadCreate = [] { return withoutThreads ? EAGAIN : support::kPass; }});
    EXPECT_EQ(activateWithoutThreads(), -8);
    EXPECT_THAT(own(capture), ElementsAre(message("kill server"), message("can not start server"), failure(-8)));
    EXPECT_THAT(recorder.events(), ElementsAre(status(USB_EVENT_BEGIN), status(USB_EVENT_SERVER_FAILED)));
    EXPECT_FALSE(anySet());
}

TEST_P(EitherActivation, fails_where_the_state_is_taken_by_another_server_meanwhile)
{
    const EventRecorder recorder;
    const MessagesOn messages;
    // Between the stop and the start the state must be 0: somebody starts a server of his own as soon as the stop is logged.
    const SyslogCapture capture([] { setServerState(NOTIFY_RUNNING); });
    EXPECT_EQ(GetParam().activate(), -8);
    EXPECT_THAT(own(capture), ElementsAre(message("kill server"), message("can not start server"), failure(-8)));
    EXPECT_FALSE(anySet());
    setServerState(NOTIFY_STOPPED);
}

TEST_P(EitherActivation, keeps_the_callback_where_only_the_helper_gets_no_thread)
{
    const EventRecorder recorder;
    const MessagesOn messages;
    const SyslogCapture capture;
    static thread_local int threads = -1;
    const WithSystemCalls calls({.pthreadCreate = [] { return threads > 0 && --threads == 0 ? EAGAIN : support::kPass; }});
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

TEST_F(Activation, goes_on_where_a_server_neither_stops_nor_listens)
{
    // That the control word was not delivered outweighs that the server did not stop: callers treat it as success.
    const ScriptedService service({agrees()});
    const EventRecorder recorder;
    setServerState(NOTIFY_RUNNING);
    EXPECT_EQ(activateV2(EventRecorder::newer), 1);
    EXPECT_EQ(answerOfUsbServer(kState), "ok\n");
}

TEST_F(Activation, fails_at_once_where_nobody_can_listen)
{
    std::filesystem::remove_all(support::kUsbSocket);
    std::filesystem::create_directories(std::string(support::kUsbSocket) + "/in the way");
    const EventRecorder recorder;
    const MessagesOn messages;
    const SyslogCapture capture;
    const auto start = Clock::now();
    EXPECT_EQ(activateV2(EventRecorder::newer), -8);
    EXPECT_LT(Clock::now() - start, 1s);
    EXPECT_THAT(capture.texts(), Contains("USB server - bind error"));
    EXPECT_THAT(capture.texts(), Contains("activate USB events V2 - can not start server"));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_SERVER_FAILED}));
    EXPECT_FALSE(anySet());
    std::filesystem::remove_all(support::kUsbSocket);
}

TEST_F(Activation, sets_its_callback_also_where_a_close_took_it_away_meanwhile)
{
    const ScriptedService service({agrees()});
    const EventRecorder recorder([](const ToldEvent &event) {
        if (event.code == USB_EVENT_BEGIN) {
            SetFunction_SendUSBEvent_NULL();
        }
        return 0;
    });
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(answerOfUsbServer(kState), "ok\n");
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_ACTIVATED, USB_EVENT_STATE}));
    // The recorder takes the callback away at the close's beginning as well.
    onOwnThread(KillUsbServer);
    SetFunction_SendUSBEvent_NULL();
}

TEST_F(Activation, takes_turns_with_others)
{
    const ScriptedService service({agrees()});
    const EventRecorder recorder;
    static std::atomic<bool> held{false};
    static std::atomic<bool> release{false};
    static thread_local bool isFirst = false;
    held = release = false;
    std::thread first;
    std::thread second;
    {
        const WithSystemCalls calls({.pthreadCreate = [] {
            if (isFirst && !held.exchange(true)) {
                eventually([] { return release.load(); });
            }
            return support::kPass;
        }});
        first = std::thread([] {
            onDetachedThread([] {
                isFirst = true;
                return KVO_HWS_activateUSBEventsV2(EventRecorder::newer);
            });
        });
        EXPECT_TRUE(eventually([] { return held.load(); })) << "about to start its server";
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

// ---- What the service answers ----

TEST_F(Activation, waits_for_the_service_for_as_long_as_it_takes)
{
    std::atomic<bool> complete{false};
    const ScriptedService service({support::answersWith([&](const std::string &request) {
        return std::string(request == "isInitComplete" ? (complete ? "yes" : "no") : "ok");
    })});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    std::this_thread::sleep_for(450ms);
    EXPECT_EQ(recorder.codes(), Codes{USB_EVENT_BEGIN}) << "nothing but that";
    const auto asked = service.requests();
    EXPECT_THAT(without(asked, "isInitComplete\n"), IsEmpty());
    EXPECT_THAT(asked.size(), testing::AllOf(testing::Ge(3U), testing::Le(6U))) << "every 100 ms";
    complete = true;
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_ACTIVATED}));
}

TEST_F(Activation, waits_also_for_a_service_that_is_not_there_yet)
{
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    std::this_thread::sleep_for(250ms);
    EXPECT_EQ(recorder.codes(), Codes{USB_EVENT_BEGIN});
    const ScriptedService service({agrees()});
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_ACTIVATED}));
    closeEvents();
    EXPECT_TRUE(eventually([] { return !anySet(); }));
}

TEST_F(Activation, that_was_overtaken_does_not_wait_any_longer)
{
    const EventRecorder recorder;
    const std::size_t before = threadsRunning();
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    }
    EXPECT_TRUE(eventually([&] { return threadsRunning() == before + 2; })) << "the server and one that waits";
    EXPECT_EQ(closeEvents(), 1);
    EXPECT_TRUE(eventually([&] { return threadsRunning() == before; })) << "and none after the end";
    const ScriptedService service({agrees()});
    std::this_thread::sleep_for(250ms);
    EXPECT_THAT(service.requests(), IsEmpty());
}

TEST_F(Activation, that_is_overtaken_while_it_asks_whether_the_service_is_ready_asks_nothing_more)
{
    const ScriptedService service({support::answersWith([](const std::string &request) {
        if (request == "isInitComplete") {
            std::this_thread::sleep_for(700ms);
            return std::string("yes");
        }
        return std::string("ok");
    })});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    EXPECT_EQ(closeEvents(), 1);
    ASSERT_TRUE(recorder.waitFor(3));
    std::this_thread::sleep_for(800ms);
    EXPECT_THAT(service.requests(), Not(Contains("activateUSBEvents\n")));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_BEGIN, USB_EVENT_DEACTIVATED}));
}

TEST_F(Activation, that_is_overtaken_while_the_service_refuses_it_tells_nothing)
{
    std::atomic<bool> first{true};
    const ScriptedService service({support::answersWith([&](const std::string &request) {
        if (request == "activateUSBEvents" && first.exchange(false)) {
            std::this_thread::sleep_for(1500ms);
            return std::string("failed");
        }
        return std::string(request == "isInitComplete" ? "yes" : "ok");
    })});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(eventually([&] { return !first; }));
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(3));
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_BEGIN, USB_EVENT_ACTIVATED}));
    EXPECT_EQ(answerOfUsbServer(kState), "ok\n");
}

TEST_F(Activation, is_refused)
{
    for (const char *const reply : {"failed", "ok ", ""}) {
        const ScriptedService service({agrees({{"activateUSBEvents", reply}})});
        const EventRecorder recorder;
        ASSERT_EQ(activateV2(EventRecorder::newer), 1);
        ASSERT_TRUE(recorder.waitFor(2));
        EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_REFUSED}));
        EXPECT_TRUE(eventually([] { return !anySet(); }));
    }
}

/// A service that answers the first request and is gone for the second.
std::vector<support::Script> answersOnce() { return {agrees(), support::closesAfterRequest()}; }

TEST_F(Activation, gets_no_answer)
{
    const ScriptedService service(answersOnce());
    const EventRecorder recorder;
    ASSERT_EQ(activate(EventRecorder::older), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_NO_SERVICE}));
    EXPECT_TRUE(eventually([] { return !anySet(); }));
}

/// What the two threads log that ask the service, once it has finished starting.
std::vector<std::string> messagesOfBothThreads(const std::vector<support::Script> &scripts)
{
    const ScriptedService service(scripts);
    const MessagesOn messages;
    const SyslogCapture capture;
    onOwnThread([] { return threadActivateUSBevents(nullptr); });
    onOwnThread([] { return threadDeactivateUSBevents(nullptr); });
    return capture.texts();
}

TEST_F(Activation, logs_no_answer_of_the_service)
{
    for (const char *const reply : {"ok", "failed", "busy", ""}) {
        EXPECT_THAT(messagesOfBothThreads({agrees({{"activateUSBEvents", reply}, {"deactivateUSBEvents", reply}})}), IsEmpty())
            << reply;
    }
    EXPECT_THAT(messagesOfBothThreads({agrees(), support::closesAfterRequest(), support::closesAfterRequest()}),
                ElementsAre("command socket - can not read from socket", "command socket - can not read from socket"));
}

TEST_F(Activation, by_the_thread_alone_asks_whoever_is_set)
{
    const ScriptedService service({agrees()});
    EXPECT_EQ(onOwnThread([] { return threadActivateUSBevents(nullptr); }), nullptr);
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n", "activateUSBEvents\n"));
    EXPECT_EQ(onOwnThread([] { return threadDeactivateUSBevents(nullptr); }), nullptr);
    EXPECT_EQ(service.requests().back(), "deactivateUSBEvents\n");
}

TEST_F(Activation, by_the_thread_alone_waits_and_ends_like_any_other)
{
    std::atomic<int> asked{0};
    const ScriptedService service({support::answersWith([&](const std::string &request) {
        return std::string(request != "isInitComplete" ? "ok" : asked++ == 0 ? "no" : "yes");
    })});
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    EXPECT_EQ(onOwnThread([] {
                  threadActivateUSBevents(nullptr);
                  return kvo_hws_detach_thread();
              }),
              -1)
        << "detached";
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(onOwnThread([] {
                  threadDeactivateUSBevents(nullptr);
                  return kvo_hws_detach_thread();
              }),
              -1)
        << "detached";
    EXPECT_FALSE(anySet());
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_ACTIVATED, USB_EVENT_DEACTIVATED}));
}

// ---- Closing ----

class Closing : public Activation {};

TEST_F(Closing, of_what_is_not_active_is_refused)
{
    const ScriptedService service({agrees()});
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
    const ScriptedService service({agrees()});
    const EventRecorder recorder;
    sendUSBEvent = EventRecorder::older;
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(closeEvents(), 1);
    EXPECT_THAT(capture.texts(), ElementsAre("deactivate USB events - kill server"));
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_DEACTIVATED}));
}

TEST_F(Closing, gives_the_service_100_ms)
{
    const ScriptedService service({agrees()});
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    const auto start = Clock::now();
    EXPECT_EQ(closeEvents(), 1);
    EXPECT_GE(Clock::now() - start, 150ms) << "50 for finding that no other server runs";
    EXPECT_EQ(recorder.codes(), (Codes{USB_EVENT_BEGIN, USB_EVENT_DEACTIVATED})) << "answered by then";
}

TEST_F(Closing, fails_where_the_server_does_not_stop)
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

TEST_F(Closing, ends_also_where_the_service_disagrees_or_is_gone)
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

TEST_F(Closing, without_a_thread_keeps_the_callback_so_that_it_can_be_closed_again)
{
    const ScriptedService service({agrees()});
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    {
        static thread_local bool withoutThreads = false;
        const WithSystemCalls calls({.pthreadCreate = [] { return withoutThreads ? EAGAIN : support::kPass; }});
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

TEST_F(Closing, that_is_answered_late_leaves_a_later_activation_alone)
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
    EXPECT_EQ(answerOfUsbServer(kState), "ok\n");
}

TEST_F(Closing, overtakes_an_activation_as_soon_as_it_begins)
{
    std::atomic<bool> complete{false};
    const ScriptedService service({support::answersWith([&](const std::string &request) {
        return std::string(request == "isInitComplete" ? (complete ? "yes" : "no") : "ok");
    })});
    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    std::thread closing([] { EXPECT_EQ(closeEvents(), 1); });
    EXPECT_TRUE(recorder.waitFor(2));
    std::this_thread::sleep_for(50ms);
    complete = true;  // the server takes a while longer to end
    closing.join();
    EXPECT_TRUE(eventually([] { return !anySet(); }));
    EXPECT_THAT(service.requests(), Not(Contains("activateUSBEvents\n")));
}

TEST_F(Closing, is_allowed_to_the_callback_itself)
{
    const ScriptedService service({agrees()});
    std::atomic<int32_t> closed{0};
    const EventRecorder recorder([&](const ToldEvent &event) {
        if (event.code == USB_EVENT_STATE) {
            closed = KVO_HWS_closeUSBEvents();
        }
        return 0;
    });
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(answerOfUsbServer(kState), "ok\n");
    EXPECT_EQ(closed, 1);
    ASSERT_TRUE(recorder.waitFor(5));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 13, 3, 2}));
}

TEST_F(Closing, is_allowed_to_the_callback_that_hears_of_the_activation)
{
    const ScriptedService service({agrees()});
    std::atomic<int32_t> closed{0};
    const EventRecorder recorder([&](const ToldEvent &event) {
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

// ---- Whether they are active ----

class IsActivated : public testing::TestWithParam<support::RequestCase> {};

TEST_P(IsActivated, asks_the_service) { support::check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Of, IsActivated, testing::ValuesIn([] {
        std::vector<support::RequestCase> rows;
        const auto row = [&rows](const char *name, const char *reply, int32_t result) {
            rows.push_back({name, KVO_HWS_isUSBEventsActivated, {"isUSBEventsActivated"}, {reply}, result});
        };
        row("yes", "yes", 1);
        row("no", "no", 0);
        row("yes_and_a_blank", "yes ", -1);
        row("failed", "failed", -1);
        row("ok", "ok", -1);
        row("empty", "", -1);
        rows.push_back({"no_service", KVO_HWS_isUSBEventsActivated, {}, {}, -1, {support::kNoConnection}});
        rows.push_back({.name = "peer_closes",
                        .call = KVO_HWS_isUSBEventsActivated,
                        .commands = {"isUSBEventsActivated"},
                        .replies = {},
                        .result = -1,
                        .messages = {"command socket - can not read from socket"},
                        .peerCloses = true});
        return rows;
    }()),
    support::nameOf);

// ---- Two processes ----

/// Another program of the panel that activates USB events when it is told to and reports the codes its callback hears.
class OtherProgram {
public:
    OtherProgram()
    {
        int orders[2];
        int reports[2];
        EXPECT_EQ(pipe2(orders, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(reports, O_CLOEXEC), 0);
        orders_ = orders[1];
        reports_ = reports[0];
        process_ = fork();
        if (process_ == 0) {
            dup2(orders[0], STDIN_FILENO);
            dup2(reports[1], STDOUT_FILENO);
            execl("/bin/sh", "sh", "-c", "exec " KVO_OTHER_PROGRAM, nullptr);
            _exit(127);
        }
        close(orders[0]);
        close(reports[1]);
    }
    OtherProgram(const OtherProgram &) = delete;
    OtherProgram &operator=(const OtherProgram &) = delete;
    ~OtherProgram()
    {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        close(orders_);
        close(reports_);
    }

    void activate() const { EXPECT_EQ(write(orders_, "a", 1), 1); }
    void closeEvents() const { EXPECT_EQ(write(orders_, "c", 1), 1); }

    /// The next codes that it hears.
    [[nodiscard]] Codes codes(std::size_t count) const
    {
        Codes codes;
        uint8_t code = 0;
        while (codes.size() < count && read(reports_, &code, 1) == 1) {
            codes.push_back(code);
        }
        return codes;
    }

private:
    pid_t process_;
    int orders_;
    int reports_;
};

TEST_F(Activation, takes_the_events_over_from_another_program_and_back)
{
    const OtherProgram first;
    const ScriptedService service({agrees()});
    first.activate();
    EXPECT_EQ(first.codes(2), (Codes{3, 1}));

    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    EXPECT_EQ(first.codes(1), Codes{USB_EVENT_DEACTIVATED}) << "it is told that it has lost them";
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(answerOfUsbServer(kState), "ok\n");
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 13}));
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n", "activateUSBEvents\n", "deactivateUSBEvents\n",
                                                "isInitComplete\n", "activateUSBEvents\n"));

    first.activate();
    EXPECT_EQ(first.codes(2), (Codes{3, 1}));
    ASSERT_TRUE(recorder.waitFor(4));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 13, 2}));
    EXPECT_TRUE(eventually([] { return !anySet() && serverState() == 0; }));
    EXPECT_EQ(answerOfUsbServer(kState), "ok\n");
    EXPECT_EQ(first.codes(1), Codes{USB_EVENT_STATE});
    first.closeEvents();
    EXPECT_EQ(first.codes(2), (Codes{3, 2}));
    EXPECT_EQ(answerOfUsbServer(kState), "(nobody)");
}

// ---- All at once ----

TEST_F(Activation, and_closing_in_a_loop_from_several_threads_with_events_arriving_ends)
{
    const ScriptedService service({agrees()});
    const EventRecorder recorder;
    const std::size_t before = threadsRunning();
    std::atomic<bool> ended{false};
    std::thread daemon([&] {
        while (!ended) {
            EXPECT_THAT(answerOfUsbServer(kState), AnyOf("ok\n", "failed\n", "(nobody)", ""));
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
    // Whatever order they came in, one more close is enough.
    closeEvents();
    ended = true;
    daemon.join();
    EXPECT_TRUE(eventually([] { return serverState() == 0; }));
    EXPECT_TRUE(eventually([&] { return threadsRunning() == before; }));
    EXPECT_EQ(answerOfUsbServer(kState), "(nobody)");
}

}  // namespace
