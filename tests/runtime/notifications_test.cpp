// Notification records: their handler, creation and deletion, and the wait for a signal.
#include <kvo_hws/runtime.h>

#include "runtime/waking.h"
#include "support/failing_allocations.h"
#include "support/system_calls.h"
#include "support/time_of.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/select.h>

using namespace std::chrono_literals;

namespace {

using runtime_test::Waking;
using support::timeOf;

TEST(ActivateNotify, installs_an_empty_handler_without_restart_and_mask)
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

TEST(CreateNotify, returns_a_stopped_unused_record_that_names_its_creator)
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

TEST(CreateNotify, without_memory_sets_a_null_pointer)
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

TEST(DeleteNotify, accepts_a_null_record)
{
    Notify *record = nullptr;
    EXPECT_EQ(DeleteNotify(&record), 0);
    EXPECT_EQ(record, nullptr);
}

TEST(NotifyThread, sends_no_signal_to_thread_0)
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
    EXPECT_LT(taken, 5s);
}

TEST(WaitNotify, splits_its_time_into_seconds_and_microseconds)
{
    const support::WithSystemCalls calls({.select = [](timeval *time) {
        EXPECT_EQ(time->tv_sec, 2);
        EXPECT_EQ(time->tv_usec, 345'000);
        return 0;
    }});
    Notify record{};
    EXPECT_EQ(WaitNotify(&record, 2345), 0);
}

TEST(WaitNotify, distinguishes_a_requested_stop_from_other_signals)
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

TEST(WaitNotify, a_failed_sleep_is_not_a_stop)
{
    const support::WithSystemCalls calls({.select = [](timeval *) {
        errno = EINVAL;
        return -1;
    }});
    Notify record{};
    record.uiState = NOTIFY_STOP_REQUESTED;
    EXPECT_EQ(WaitNotify(&record, 10), -3);
}

}  // namespace
