// The handshake that stops worker threads.
#include <kvo_hws/runtime.h>

#include "support/alarms.h"
#include "support/failing_allocations.h"
#include "support/system_calls.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <semaphore>
#include <sys/select.h>
#include <thread>

using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

template <class Call>
std::chrono::milliseconds timeOf(Call call)
{
    const auto start = Clock::now();
    call();
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

uint32_t stateOf(Notify &record) { return __atomic_load_n(&record.uiState, __ATOMIC_SEQ_CST); }
void setState(Notify &record, uint32_t state) { __atomic_store_n(&record.uiState, state, __ATOMIC_SEQ_CST); }
void setUsers(Notify &record, uint32_t users) { __atomic_store_n(&record.uiUsers, users, __ATOMIC_SEQ_CST); }

/// Does something and wakes a thread, again and again until the end of its scope: a signal that comes before the sleep is lost.
class Waking {
public:
    template <class Work>
    Waking(pthread_t sleeper, Work work)
        : thread_([this, sleeper, work] {
              while (!ended_) {
                  std::this_thread::sleep_for(20ms);
                  work();
                  NotifyThread(sleeper);
              }
          })
    {
    }
    explicit Waking(pthread_t sleeper) : Waking(sleeper, [] {}) {}
    Waking(const Waking &) = delete;
    Waking &operator=(const Waking &) = delete;
    ~Waking()
    {
        ended_ = true;
        thread_.join();
    }

private:
    std::atomic<bool> ended_{false};
    std::thread thread_;
};

TEST(ActivateNotify, installs_an_empty_handler_that_restarts_nothing_and_blocks_nothing)
{
    EXPECT_EQ(ActivateNotify(), 0);
    struct sigaction action {};
    ASSERT_EQ(sigaction(SIGUSR1, nullptr, &action), 0);
    EXPECT_NE(action.sa_handler, SIG_DFL);
    EXPECT_NE(action.sa_handler, SIG_IGN);
    EXPECT_EQ(action.sa_flags & static_cast<int>(SA_RESTART | SA_SIGINFO | SA_RESETHAND | SA_NODEFER), 0);
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        EXPECT_EQ(sigismember(&action.sa_mask, signal), 0) << signal;
    }
}

TEST(ActivateNotify, lets_the_signal_end_a_select)
{
    ActivateNotify();
    const Waking waking(pthread_self());
    timeval time{.tv_sec = 10, .tv_usec = 0};
    errno = 0;
    EXPECT_EQ(select(0, nullptr, nullptr, nullptr, &time), -1);
    EXPECT_EQ(errno, EINTR);
}

TEST(CreateNotify, gives_a_record_that_is_stopped_and_unused_and_names_its_creator)
{
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->threadWorker, pthread_t{});
    EXPECT_TRUE(pthread_equal(record->threadRequester, pthread_self()));
    EXPECT_EQ(record->uiState, 0U);
    EXPECT_EQ(record->uiUsers, 0U);
    EXPECT_EQ(DeleteNotify(&record), 0);
    EXPECT_EQ(record, nullptr);
}

TEST(CreateNotify, installs_the_handler)
{
    signal(SIGUSR1, SIG_IGN);
    Notify *record = nullptr;
    CreateNotify(&record);
    struct sigaction action {};
    sigaction(SIGUSR1, nullptr, &action);
    EXPECT_NE(action.sa_handler, SIG_IGN);
    DeleteNotify(&record);
}

TEST(CreateNotify, without_memory_leaves_a_null_pointer)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    Notify something{};
    Notify *record = &something;
    int result = 0;
    {
        const support::FailingAllocations failing;
        result = CreateNotify(&record);
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(record, nullptr);
}

TEST(DeleteNotify, takes_a_null_record)
{
    Notify *record = nullptr;
    EXPECT_EQ(DeleteNotify(&record), 0);
    EXPECT_EQ(record, nullptr);
}

TEST(NotifyThread, signals_nobody_for_0)
{
    ActivateNotify();
    NotifyThread(pthread_t{});
}

TEST(WaitNotify, sleeps_for_its_time)
{
    Notify record{};
    int result = -1;
    const auto taken = timeOf([&] { result = WaitNotify(&record, 20); });
    EXPECT_EQ(result, 0);
    EXPECT_GE(taken, 20ms);
    EXPECT_LT(taken, 500ms);
}

TEST(WaitNotify, counts_whole_seconds_and_the_rest)
{
    const support::WithSystemCalls calls({.select = [](timeval *time) {
        EXPECT_EQ(time->tv_sec, 2);
        EXPECT_EQ(time->tv_usec, 345'000);
        return 0;
    }});
    Notify record{};
    EXPECT_EQ(WaitNotify(&record, 2345), 0);
}

TEST(WaitNotify, tells_a_requested_stop_from_any_other_signal)
{
    ActivateNotify();
    Notify record{};
    const Waking waking(pthread_self());
    record.uiState = NOTIFY_STOP_REQUESTED;
    EXPECT_EQ(WaitNotify(&record, 10'000), 1);
    record.uiState = NOTIFY_RUNNING;
    EXPECT_EQ(WaitNotify(&record, 10'000), -3);
    record.uiState = NOTIFY_STOP_DONE;
    EXPECT_EQ(WaitNotify(&record, 10'000), -3);
}

TEST(WaitNotify, a_sleep_that_fails_is_no_stop)
{
    const support::WithSystemCalls calls({.select = [](timeval *) {
        errno = EINVAL;
        return -1;
    }});
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    EXPECT_EQ(WaitNotify(&record, 10), -3);
}

TEST(WaitShutdown, does_not_sleep_where_the_worker_has_ended)
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

/// The time runs out just as the last user has gone: what an earlier call left in errno decides. Callers know both.
TEST(WaitShutdown, a_time_out_without_users_is_judged_by_an_errno_of_long_ago)
{
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    errno = 0;
    EXPECT_EQ(WaitShutdown(&record, 10), -1);
    errno = EINTR;
    EXPECT_EQ(WaitShutdown(&record, 10), 1);
}

TEST(WaitShutdown, a_sleep_that_fails_is_a_failure)
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

TEST(WaitShutdown, is_woken_when_the_last_user_has_gone)
{
    ActivateNotify();
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    record.uiUsers = 1;
    const Waking waking(pthread_self(), [&] { setUsers(record, 0); });
    EXPECT_EQ(WaitShutdown(&record, 10'000), 1);
}

/// Linux's select leaves what remains of the time when a signal ends it; where an emulator stands in for the kernel, it may not.
bool selectLeavesTheRemainingTime()
{
    ActivateNotify();
    const Waking waking(pthread_self());
    timeval time{.tv_sec = 10, .tv_usec = 0};
    select(0, nullptr, nullptr, nullptr, &time);
    return time.tv_sec < 10;
}

constexpr const char *kSleepsAnew =
    "here a sleep that a signal has ended does not tell what remains of it, so that it begins anew";

TEST(WaitShutdown, sleeps_on_after_other_signals_but_no_longer_in_all)
{
    if (!selectLeavesTheRemainingTime()) {
        GTEST_SKIP() << kSleepsAnew;
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
    EXPECT_LT(taken, 2s);
}

TEST(WaitShutdown, takes_only_the_end_of_a_stop_for_one_when_it_is_woken)
{
    if (!selectLeavesTheRemainingTime()) {
        GTEST_SKIP() << kSleepsAnew;
    }
    ActivateNotify();
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    record.uiUsers = 1;
    // Stopped without having been asked to: that is looked at before the wait alone.
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

/// A thread that is cancelled while it sleeps in the library goes on to the end of the sleep.
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

TEST(Waits, are_not_cut_short_by_a_cancellation)
{
    expectWholeSleep([] {
        Notify record{};
        WaitNotify(&record, 200);
    });
    expectWholeSleep([] {
        sem_t semaphore;
        InitReceivedNotify(&semaphore);
        while (WaitReceivedNotify(&semaphore, 1000) < 0) {  // in one of a thousand calls the deadline is no valid one
        }
        DeleteReceivedNotify(&semaphore);
    });
}

TEST(ShutdownThread, refuses_a_null_record) { EXPECT_EQ(ShutdownThread(nullptr, 10), -2); }

/// A worker by the convention: running, then in waits of a second until it is anything else.
void *work(void *argument)
{
    auto &record = *static_cast<Notify *>(argument);
    setState(record, NOTIFY_RUNNING);
    __atomic_add_fetch(&record.uiUsers, 1U, __ATOMIC_SEQ_CST);
    ActivateNotify();
    kvo_hws_detach_thread();
    while (stateOf(record) == NOTIFY_RUNNING) {
        WaitNotify(&record, 1000);
    }
    // Whoever waits is woken as long as there is a record: its last use is to tell who that is.
    const pthread_t requester = __atomic_load_n(&record.threadRequester, __ATOMIC_SEQ_CST);
    WaitNotify(&record, 20);
    setState(record, NOTIFY_STOP_DONE);
    NotifyThread(requester);
    return nullptr;
}

TEST(ShutdownThread, stops_a_worker_that_sleeps)
{
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
    EXPECT_LT(taken, 900ms) << "woken, not found by the worker at the end of its second";
}

TEST(ShutdownThread, requests_the_stop_and_names_itself_before_it_waits)
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
    EXPECT_EQ(ShutdownThread(record, 10), -2);  // and the record is freed, as the address sanitizer would tell
}

// ---- Received notifications ----

class ReceivedNotify : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(InitReceivedNotify(&semaphore_), 0); }
    void TearDown() override { EXPECT_EQ(DeleteReceivedNotify(&semaphore_), 0); }
    sem_t semaphore_{};
};

TEST_F(ReceivedNotify, creating_does_nothing) { EXPECT_EQ(CreateReceivedNotify(), 0); }

TEST_F(ReceivedNotify, begins_with_nothing_posted)
{
    int value = -1;
    EXPECT_EQ(sem_getvalue(&semaphore_, &value), 0);
    EXPECT_EQ(value, 0);
}

TEST_F(ReceivedNotify, is_posted_once_for_one_wait)
{
    NotifyReceived(&semaphore_);
    EXPECT_EQ(WaitReceivedNotify(&semaphore_, 5000), 1);
    EXPECT_EQ(WaitReceivedNotify(&semaphore_, 0), 0);
}

TEST_F(ReceivedNotify, is_posted_while_somebody_waits)
{
    std::thread poster([this] {
        std::this_thread::sleep_for(50ms);
        NotifyReceived(&semaphore_);
    });
    EXPECT_EQ(WaitReceivedNotify(&semaphore_, 10'000), 1);
    poster.join();
}

TEST_F(ReceivedNotify, posting_null_does_nothing) { NotifyReceived(nullptr); }

/// The part below a second counts in microseconds: a wait of 1500 ms is over after 1.0005 s, one of 900 ms at once.
TEST_F(ReceivedNotify, waits_for_whole_seconds_and_no_longer)
{
    const auto waitFor = [this](unsigned milliseconds) {
        int result = -1;
        std::chrono::milliseconds taken{};
        do {  // in one of a thousand calls the deadline is no valid one
            taken = timeOf([&] { result = WaitReceivedNotify(&semaphore_, milliseconds); });
        } while (result == -1);
        EXPECT_EQ(result, 0);
        return taken;
    };
    const auto longWait = waitFor(1500);
    EXPECT_GE(longWait, 995ms);
    EXPECT_LT(longWait, 1400ms);
    EXPECT_LT(waitFor(900), 400ms);
}

TEST_F(ReceivedNotify, a_deadline_past_the_running_second_is_a_failure)
{
    // 999 ms count as 999 us here; begun in a second's last 999 us they reach past its end.
    NotifyReceived(&semaphore_);
    int result = 1;
    for (int attempt = 0; attempt < 5 && result == 1; ++attempt) {
        timespec now{};
        do {
            clock_gettime(CLOCK_REALTIME, &now);
        } while (now.tv_nsec < 999'050'000 || now.tv_nsec > 999'400'000);
        result = WaitReceivedNotify(&semaphore_, 999);
        NotifyReceived(&semaphore_);
    }
    EXPECT_EQ(result, -1) << "although it has been posted";
}

TEST_F(ReceivedNotify, a_signal_is_a_failure)
{
    const support::Alarms alarms(50ms, 50ms);
    EXPECT_EQ(WaitReceivedNotify(&semaphore_, 10'000), -1);
}

}  // namespace
