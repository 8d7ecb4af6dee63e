// Stopping a worker: the request, and the wait until the worker has ended.
#include <kvo_hws/runtime.h>

#include "runtime/waking.h"
#include "support/system_calls.h"
#include "support/time_of.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/select.h>
#include <thread>

using namespace std::chrono_literals;

namespace {

using runtime_test::Waking;
using support::timeOf;

uint32_t stateOf(Notify &record) { return __atomic_load_n(&record.uiState, __ATOMIC_SEQ_CST); }
void setState(Notify &record, uint32_t state) { __atomic_store_n(&record.uiState, state, __ATOMIC_SEQ_CST); }
void setUsers(Notify &record, uint32_t users) { __atomic_store_n(&record.uiUsers, users, __ATOMIC_SEQ_CST); }

TEST(WaitShutdown, does_not_sleep_if_the_worker_has_ended)
{
    const support::WithSystemCalls calls({.select = [](timeval *) {
        ADD_FAILURE() << "slept";
        return 0;
    }});
    for (const uint32_t ended : {NOTIFY_STOPPED, NOTIFY_STOP_DONE}) {
        Notify record{};
        record.uiState = ended;
        record.uiUsers = 1;
        EXPECT_EQ(WaitShutdown(&record, 5000), 1);
    }
}

TEST(WaitShutdown, times_out_while_the_worker_runs)
{
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    record.uiUsers = 1;
    int result = 0;
    const auto taken = timeOf([&] { result = WaitShutdown(&record, 60); });
    EXPECT_EQ(result, -2);
    EXPECT_GE(taken, 60ms);
}

/// If the timeout expires just when the last user has gone, the errno of an earlier call decides. Callers handle both results.
TEST(WaitShutdown, depends_on_an_earlier_errno_if_the_last_user_is_gone_at_the_timeout)
{
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    errno = 0;
    EXPECT_EQ(WaitShutdown(&record, 10), -1);
    errno = EINTR;
    EXPECT_EQ(WaitShutdown(&record, 10), 1);
}

TEST(WaitShutdown, a_failed_sleep_is_a_failure)
{
    const support::WithSystemCalls calls({.select = [](timeval *) {
        errno = EINVAL;
        return -1;
    }});
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    record.uiUsers = 1;
    EXPECT_EQ(WaitShutdown(&record, 10), -1);
}

TEST(WaitShutdown, is_woken_when_the_worker_has_ended)
{
    ActivateNotify();
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    record.uiUsers = 1;
    const Waking waking(pthread_self(), [&] { setState(record, NOTIFY_STOP_DONE); });
    EXPECT_EQ(WaitShutdown(&record, 10'000), 1);
}

TEST(WaitShutdown, is_woken_when_the_last_user_is_gone)
{
    ActivateNotify();
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    record.uiUsers = 1;
    const Waking waking(pthread_self(), [&] { setUsers(record, 0); });
    EXPECT_EQ(WaitShutdown(&record, 10'000), 1);
}

/// Linux's select returns the remaining time when a signal interrupts it; an emulator may not.
bool selectLeavesTheRemainingTime()
{
    ActivateNotify();
    const Waking waking(pthread_self());
    timeval time{.tv_sec = 10, .tv_usec = 0};
    select(0, nullptr, nullptr, nullptr, &time);
    return time.tv_sec < 10;
}

constexpr const char *kNoRemainingTime =
    "here an interrupted select does not return the remaining time, so the sleep starts again";

TEST(WaitShutdown, continues_after_other_signals_without_a_longer_total_time)
{
    if (!selectLeavesTheRemainingTime()) {
        GTEST_SKIP() << kNoRemainingTime;
    }
    ActivateNotify();
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    record.uiUsers = 1;
    int result = 0;
    const Waking waking(pthread_self());
    const auto taken = timeOf([&] { result = WaitShutdown(&record, 300); });
    EXPECT_EQ(result, -2);
    EXPECT_GE(taken, 290ms);
    EXPECT_LT(taken, 8s);
}

TEST(WaitShutdown, ends_only_for_a_completed_stop)
{
    if (!selectLeavesTheRemainingTime()) {
        GTEST_SKIP() << kNoRemainingTime;
    }
    ActivateNotify();
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    record.uiUsers = 1;
    // Stopped without a request: this state is checked only before the wait.
    const Waking waking(pthread_self(), [&] { setState(record, NOTIFY_STOPPED); });
    EXPECT_EQ(WaitShutdown(&record, 200), -2);
}

Notify *watched = nullptr;
std::atomic<uint32_t> stateAtSignal{99};

TEST(ShutdownThread, requests_the_stop_before_it_wakes_the_worker)
{
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    watched = record;
    struct sigaction action {};
    action.sa_handler = [](int) { stateAtSignal = watched->uiState; };
    sigaction(SIGUSR1, &action, nullptr);
    record->uiState = NOTIFY_RUNNING;
    record->uiUsers = 1;
    record->threadWorker = pthread_self();
    ShutdownThread(record, 10);
    EXPECT_EQ(stateAtSignal, static_cast<uint32_t>(NOTIFY_STOP_REQUESTED));
}

/// A thread that is cancelled during a sleep in the library completes the sleep.
template <class Sleep>
void expectWholeSleep(Sleep sleep)
{
    std::atomic<bool> slept{false};
    std::atomic<bool> begun{false};
    struct Job {
        Sleep sleep;
        std::atomic<bool> &begun, &slept;
    } job{sleep, begun, slept};
    pthread_t thread{};
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void *argument) -> void * {
                      auto &own = *static_cast<Job *>(argument);
                      own.begun = true;
                      own.sleep();
                      own.slept = true;
                      return nullptr;
                  },
                  &job),
              0);
    while (!begun) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(20ms);
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
    EXPECT_TRUE(slept);
}

TEST(Waits, are_not_shortened_by_a_cancellation)
{
    expectWholeSleep([] {
        Notify record{};
        WaitNotify(&record, 200);
    });
    expectWholeSleep([] {
        sem_t semaphore;
        InitReceivedNotify(&semaphore);
        while (WaitReceivedNotify(&semaphore, 1000) < 0) {  // in one of a thousand calls the deadline is invalid
        }
        DeleteReceivedNotify(&semaphore);
    });
}

TEST(ShutdownThread, refuses_a_null_record) { EXPECT_EQ(ShutdownThread(nullptr, 10), -2); }

/// A worker as the convention requires: it sets the state to running, then waits in steps of one minute until the state
/// changes.
void *work(void *argument)
{
    auto &record = *static_cast<Notify *>(argument);
    setState(record, NOTIFY_RUNNING);
    __atomic_add_fetch(&record.uiUsers, 1U, __ATOMIC_SEQ_CST);
    ActivateNotify();
    kvo_hws_detach_thread();
    while (stateOf(record) == NOTIFY_RUNNING) {
        WaitNotify(&record, 60'000);
    }
    // The requester is woken while the record exists; the last use of the record is to read the requester's id.
    const pthread_t requester = __atomic_load_n(&record.threadRequester, __ATOMIC_SEQ_CST);
    WaitNotify(&record, 20);
    setState(record, NOTIFY_STOP_DONE);
    NotifyThread(requester);
    return nullptr;
}

/// Keeps SIGUSR1 for the next sleep of the library, so it ends the sleep even if it is sent before. Without this, a busy machine
/// could lose it. Applies to this thread and to those that it starts.
class KeptSignals {
public:
    KeptSignals()
    {
        sigset_t kept;
        sigemptyset(&kept);
        sigaddset(&kept, SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &kept, &before_);
    }
    KeptSignals(const KeptSignals &) = delete;
    KeptSignals &operator=(const KeptSignals &) = delete;
    ~KeptSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    static int sleepFor(const timeval *time)
    {
        const timespec length{.tv_sec = time->tv_sec, .tv_nsec = time->tv_usec * 1000};
        sigset_t none;
        sigemptyset(&none);
        return pselect(0, nullptr, nullptr, nullptr, &length, &none);
    }

    sigset_t before_{};
    support::WithSystemCalls calls_{{.select = sleepFor}};
};

TEST(ShutdownThread, stops_a_sleeping_worker)
{
    const KeptSignals signals;
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    pthread_t worker{};
    ASSERT_EQ(kvo_hws_CreateThreadIdent(work, record, &worker), 1);
    __atomic_store_n(&record->threadWorker, worker, __ATOMIC_SEQ_CST);
    while (stateOf(*record) != NOTIFY_RUNNING) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(50ms);  // it sleeps by now
    int result = 0;
    const auto taken = timeOf([&] { result = ShutdownThread(record, 10'000); });
    EXPECT_EQ(result, 1);
    EXPECT_LT(taken, 8s) << "the worker was woken and did not sleep to the end of its minute";
}

TEST(ShutdownThread, requests_the_stop_and_stores_its_id_before_it_waits)
{
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    record->uiState = NOTIFY_RUNNING;
    record->uiUsers = 1;
    record->threadRequester = pthread_t{};
    const support::WithSystemCalls calls({.select = [record](timeval *) {
        EXPECT_EQ(record->uiState, static_cast<uint32_t>(NOTIFY_STOP_REQUESTED));
        EXPECT_TRUE(pthread_equal(record->threadRequester, pthread_self()));
        return 0;
    }});
    EXPECT_EQ(ShutdownThread(record, 10), -2);  // and the record is freed; the address sanitizer would report a leak
}

}  // namespace
