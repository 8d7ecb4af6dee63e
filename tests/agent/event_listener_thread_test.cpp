// The listener for events of embedded stations: its thread, from activation to the end of a stop.
#include <kvo_hws/agent.h>
#include <kvo_hws/runtime.h>

#include "agent/event_listener_fixture.h"
#include "support/failing_allocations.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using agent_test::Clock;
using agent_test::EventListener;
using agent_test::EventService;
using agent_test::isFree;
using agent_test::Listening;
using agent_test::ReceivedEvents;
using support::eventually;
using support::SyslogCapture;
using support::WithSystemCalls;
using testing::Contains;
using testing::IsEmpty;

TEST_F(EventListener, needs_a_callback_and_no_other_listener)
{
    EventService service;
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(nullptr), -7);
    Listening listening;
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(ReceivedEvents::callback), -8);
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(nullptr), -8) << "the missing callback is checked first";
    ASSERT_TRUE(service.accept());
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_TRUE(eventually(isFree));
}

TEST_F(EventListener, that_is_not_active_cannot_be_stopped)
{
    const SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), -1);
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST_F(EventListener, cannot_be_activated_if_it_gets_no_thread)
{
    {
        const WithSystemCalls calls{{.pthreadCreate = [] { return EAGAIN; }}};
        EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(ReceivedEvents::callback), -1);
    }
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), -1);
    EventService service;
    const Listening listening;
    EXPECT_TRUE(service.accept()) << "the next activation works";
}

/// Waits of the library have no timeout here: only an event or a signal ends one.
int waitWithoutTimeout(pollfd *descriptors, nfds_t count, int /*milliseconds*/)
{
    return support::calledByLibrary() ? ppoll(descriptors, count, nullptr, nullptr) : support::kPassThrough;
}

TEST_F(EventListener, wakes_up_when_stopped)
{
    EventService service;
    const WithSystemCalls calls{{.poll = waitWithoutTimeout}};
    Listening listening;
    ASSERT_TRUE(service.accept());
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_TRUE(eventually(isFree)) << "it still waits";
}

TEST_F(EventListener, wakes_up_when_stopped_just_before_its_wait)
{
    EventService service;
    std::atomic<bool> isAboutToWait{false};
    const WithSystemCalls calls{{.poll = [&](pollfd *descriptors, nfds_t count, int milliseconds) {
        if (milliseconds == 1000 && !isAboutToWait.exchange(true)) {
            std::this_thread::sleep_for(60ms);  // meanwhile the stop sends its first signal
        }
        return waitWithoutTimeout(descriptors, count, milliseconds);
    }}};
    Listening listening;
    ASSERT_TRUE(service.accept());
    ASSERT_TRUE(eventually([&] { return isAboutToWait.load(); }));
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_TRUE(eventually(isFree)) << "it still waits";
}

/// The library must not signal a thread that has ended: another thread may have its id.
class StoppedListener : public EventListener, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(During, StoppedListener, testing::Values(1, 2),
                         [](const auto &row) { return row.param == 1 ? "the_first_signal" : "the_second_signal"; });

TEST_P(StoppedListener, does_not_end_while_a_signal_is_being_sent_to_it)
{
    EventService service;
    std::atomic<bool> hasEnded{false};
    std::atomic<int> signals{0};
    const auto holdUp = [&, own = std::this_thread::get_id()](pthread_t) {
        if (std::this_thread::get_id() != own || ++signals > GetParam()) {
            return support::kPassThrough;
        }
        if (signals < GetParam()) {
            return 0;  // the signal has no effect
        }
        // Another event wakes the listener, and it sees the stop.
        service.publish("Alive?\n");
        std::this_thread::sleep_for(200ms);
        EXPECT_FALSE(hasEnded);
        return support::kPassThrough;
    };
    const auto noteEnd = [&hasEnded](std::function<void *()> work) {
        return std::function<void *()>([&hasEnded, work] {
            void *const result = work();
            hasEnded = true;
            return result;
        });
    };
    const WithSystemCalls calls{{.pthreadKill = holdUp, .threadWork = noteEnd}};
    Listening listening;
    ASSERT_TRUE(service.accept());
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_GE(signals, GetParam());
    EXPECT_TRUE(eventually([&] { return hasEnded.load(); }));
}

TEST_F(EventListener, removes_its_thread_from_its_record_when_it_ends)
{
    EventService service;
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    ASSERT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_RUNNING; }));
    EXPECT_NE(std::atomic_ref(record->threadWorker).load(), pthread_t{});
    std::atomic_ref(record->uiState).store(NOTIFY_STOP_DONE);
    EXPECT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_STOPPED; }));
    EXPECT_EQ(std::atomic_ref(record->threadWorker).load(), pthread_t{});
    EXPECT_TRUE(eventually(isFree));
    DeleteNotify(&record);
}

TEST_F(EventListener, that_does_not_end_is_waited_for_ten_times_100_ms)
{
    EventService service;
    std::atomic<bool> goOn{false};
    ReceivedEvents::onEvent([&] {
        while (!goOn) {
            std::this_thread::sleep_for(1ms);
        }
    });
    Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("event, x\n");
    ASSERT_TRUE(ReceivedEvents::waitFor(1));
    std::vector<timeval> waits;
    {
        const WithSystemCalls calls{{.select = [&, own = std::this_thread::get_id()](timeval *time) {
            if (std::this_thread::get_id() != own) {
                return support::kPassThrough;
            }
            waits.push_back(*time);
            return 0;  // the timeout has expired
        }}};
        listening.stop();
    }
    EXPECT_EQ(waits.size(), 10U);
    for (const timeval &wait : waits) {
        EXPECT_EQ(wait.tv_sec * 1'000'000 + wait.tv_usec, 100'000);
    }
    goOn = true;
    EXPECT_TRUE(eventually(isFree));
}

TEST_F(EventListener, may_be_activated_again_at_once)
{
    EventService service;
    for (int round = 0; round < 5; ++round) {
        Listening listening;
        ASSERT_TRUE(service.accept());
        EXPECT_EQ(listening.stop(), 1);
    }
}

TEST_F(EventListener, cannot_be_activated_without_memory)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    int result = 0;
    {
        const support::FailingAllocations none;
        result = KVO_HWS_activateEmbKvoEvents(ReceivedEvents::callback);
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), -1);
}

TEST_F(EventListener, may_be_activated_and_stopped_by_several_threads)
{
    EventService service;
    std::atomic<bool> ending{false};
    std::thread acceptor([&] {
        while (!ending) {
            service.accept(50ms);
        }
    });
    const auto until = Clock::now() + 3s;
    std::atomic<int> started{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&] {
            while (Clock::now() < until) {
                const int result = KVO_HWS_activateEmbKvoEvents(ReceivedEvents::callback);
                EXPECT_TRUE(result == 1 || result == -8) << result;
                started += result == 1 ? 1 : 0;
                KVO_HWS_deactivateEmbKvoEvents();
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_GE(started, 3);
    EXPECT_TRUE(eventually(isFree));
    ending = true;
    acceptor.join();
}

TEST_F(EventListener, counts_as_stopped_when_the_last_of_its_threads_has_ended)
{
    EventService service;
    // Only an event ends a wait, so the test decides which thread ends.
    std::atomic<int> waiting = 0;
    const WithSystemCalls calls{{.poll = [&](pollfd *descriptors, nfds_t count, int milliseconds) {
        waiting += support::calledByLibrary() ? 1 : 0;
        return waitWithoutTimeout(descriptors, count, milliseconds);
    }}};
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    ASSERT_TRUE(eventually([&] { return std::atomic_ref(record->uiUsers).load() == 2; }));
    const pthread_t second = std::atomic_ref(record->threadWorker).load();
    ASSERT_TRUE(eventually([&] { return waiting == 2; }))
        << "a listener that does not wait yet would see the stop without an event";
    std::atomic_ref(record->uiState).store(NOTIFY_STOP_REQUESTED);
    service.stopSending(0);
    ASSERT_TRUE(eventually([&] { return std::atomic_ref(record->uiUsers).load() == 1; }));
    EXPECT_TRUE(pthread_equal(std::atomic_ref(record->threadWorker).load(), second))
        << "the remaining thread can still be woken";
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(std::atomic_ref(record->uiState).load(), NOTIFY_STOP_REQUESTED) << "one thread is left";
    service.closeAll();
    EXPECT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_STOP_DONE; }));
    EXPECT_TRUE(eventually(isFree));
    DeleteNotify(&record);
}

TEST_F(EventListener, installs_the_handler_of_its_wake_up_signal)
{
    EventService service;
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    signal(SIGUSR1, SIG_IGN);  // as a program does that replaces the handler
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    struct sigaction action {};
    ASSERT_EQ(sigaction(SIGUSR1, nullptr, &action), 0);
    EXPECT_NE(action.sa_handler, SIG_IGN);
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), 1);
    EXPECT_TRUE(eventually(isFree));
}

TEST_F(EventListener, pauses_20_ms_at_its_end_and_wakes_the_thread_that_waits_for_it)
{
    EventService service;
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);  // the record names this thread as the one that waits
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    ASSERT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_RUNNING; }));
    std::this_thread::sleep_for(100ms);
    std::atomic<bool> paused{false};
    const WithSystemCalls calls{{.select = [&, own = std::this_thread::get_id()](timeval *time) {
        paused = paused || (std::this_thread::get_id() != own && time->tv_sec == 0 && time->tv_usec == 20'000);
        return support::kPassThrough;
    }}};
    std::atomic_ref(record->uiState).store(NOTIFY_STOP_REQUESTED);
    const auto began = Clock::now();
    EXPECT_EQ(WaitShutdown(record, 8000), 1);
    EXPECT_LE(Clock::now() - began, 3s) << "woken: its own wait would last 8 s";
    EXPECT_EQ(std::atomic_ref(record->uiState).load(), NOTIFY_STOP_DONE) << "set before the signal";
    EXPECT_TRUE(paused);
    EXPECT_TRUE(eventually(isFree));
    DeleteNotify(&record);
}

TEST_F(EventListener, logs_that_polling_fails)
{
    EventService service;
    const SyslogCapture capture;
    Listening listening;
    ASSERT_TRUE(service.accept());
    {
        const WithSystemCalls calls{{.select = [own = std::this_thread::get_id()](timeval *) {
            if (std::this_thread::get_id() != own) {
                return support::kPassThrough;
            }
            errno = EINVAL;
            return -1;
        }}};
        EXPECT_EQ(listening.stop(), 1);
    }
    EXPECT_THAT(capture.texts(), Contains("shutdown Emb-KVO events thread - error"));
    EXPECT_TRUE(eventually(isFree));
}

TEST_F(EventListener, that_ends_without_a_stop_leaves_its_record_stopped)
{
    EventService service;
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    ASSERT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_RUNNING; }));
    std::atomic_ref(record->uiState).store(NOTIFY_STOP_DONE);  // the program sets the state without a stop request
    EXPECT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_STOPPED; }));
    EXPECT_TRUE(eventually(isFree));
    DeleteNotify(&record);
}

TEST_F(EventListener, runs_on_a_thread_started_by_the_program)
{
    EventService service;
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(ReceivedEvents::callback), -8);
    EXPECT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_RUNNING; }));
    EXPECT_EQ(std::atomic_ref(record->uiUsers).load(), 1U);
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), 1);
    EXPECT_TRUE(eventually(isFree));
}

}  // namespace
