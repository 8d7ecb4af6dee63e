// The thread and lock wrappers.
#include <kvo_hws/runtime.h>

#include "support/alarms.h"
#include "support/failing_allocations.h"
#include "support/system_calls.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <semaphore>
#include <thread>

using namespace std::chrono_literals;

namespace {

/// What a started thread reports to the test.
struct Report {
    std::binary_semaphore done{0};
    void *argument = nullptr;
    pthread_t self{};
    int firstDetach = 0;
    int secondDetach = 0;
};

void *reportBack(void *argument)
{
    auto *const report = static_cast<Report *>(argument);
    report->argument = argument;
    report->self = pthread_self();
    report->firstDetach = kvo_hws_detach_thread();
    report->secondDetach = kvo_hws_detach_thread();
    report->done.release();
    return nullptr;
}

TEST(Threads, receive_their_argument)
{
    Report report;
    EXPECT_EQ(kvo_hws_CreateThread(reportBack, &report), 1);
    ASSERT_TRUE(report.done.try_acquire_for(5s));
    EXPECT_EQ(report.argument, &report);
}

TEST(Threads, report_their_id_on_request)
{
    Report report;
    pthread_t id{};
    EXPECT_EQ(kvo_hws_CreateThreadIdent(reportBack, &report, &id), 1);
    ASSERT_TRUE(report.done.try_acquire_for(5s));
    EXPECT_TRUE(pthread_equal(id, report.self));

    Report other;
    EXPECT_EQ(kvo_hws_CreateThreadIdent(reportBack, &other, nullptr), 1);
    ASSERT_TRUE(other.done.try_acquire_for(5s));
}

/// A thread that checks whether its creator has stored its id.
struct Worker {
    pthread_t id{};
    std::atomic<bool> foundItself{false};
    std::binary_semaphore looked{0};
    std::binary_semaphore mayEnd{0};
    std::binary_semaphore ended{0};

    static void *run(void *argument)
    {
        auto &own = *static_cast<Worker *>(argument);
        own.foundItself = pthread_equal(own.id, pthread_self()) != 0;
        own.looked.release();
        own.mayEnd.acquire();
        own.ended.release();
        return nullptr;
    }
};

TEST(Threads, find_their_id_stored_when_they_start)
{
    // The creator is delayed long enough that a thread which does not wait for it would check too early.
    const support::WithSystemCalls calls({.threadCreated = [] { std::this_thread::sleep_for(50ms); }});
    Worker worker;
    EXPECT_EQ(kvo_hws_CreateThreadIdent(Worker::run, &worker, &worker.id), 1);
    worker.looked.acquire();
    EXPECT_TRUE(worker.foundItself);
    pthread_detach(worker.id);
    worker.id = {};
    worker.mayEnd.release();
    worker.ended.acquire();
    EXPECT_TRUE(pthread_equal(worker.id, pthread_t{})) << "the variable belongs to the creator";
}

TEST(Threads, without_memory_do_not_change_the_id)
{
    if (const char *const why = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << why;
    }
    Report report;
    pthread_t id = pthread_self();
    int result = 0;
    int error = 0;
    {
        const support::FailingAllocations noMemory;
        result = kvo_hws_CreateThreadIdent(reportBack, &report, &id);
        error = errno;
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EAGAIN);
    EXPECT_TRUE(pthread_equal(id, pthread_self()));
}

TEST(Threads, that_call_pthread_exit_free_everything)
{
    pthread_t id{};
    ASSERT_EQ(kvo_hws_CreateThreadIdent([](void *argument) -> void * { pthread_exit(argument); }, &id, &id), 1);
    void *value = nullptr;
    EXPECT_EQ(pthread_join(id, &value), 0);
    EXPECT_EQ(value, &id);
}

TEST(Threads, that_cannot_be_started_are_minus_1_and_do_not_change_the_id)
{
    const support::WithSystemCalls calls({.pthreadCreate = [] { return EAGAIN; }});
    Report report;
    pthread_t id = pthread_self();
    EXPECT_EQ(kvo_hws_CreateThread(reportBack, &report), -1);
    EXPECT_EQ(kvo_hws_CreateThreadIdent(reportBack, &report, &id), -1);
    EXPECT_TRUE(pthread_equal(id, pthread_self()));
    EXPECT_FALSE(report.done.try_acquire_for(50ms));
}

TEST(Threads, detach_once)
{
    Report report;
    kvo_hws_CreateThread(reportBack, &report);
    ASSERT_TRUE(report.done.try_acquire_for(5s));
    EXPECT_EQ(report.firstDetach, 1);
    EXPECT_EQ(report.secondDetach, -1);
}

TEST(Threads, giving_up_execution_takes_20_ms_despite_signals)
{
    const support::Alarms alarms(3ms, 3ms);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(kvo_hws_GiveUpThreadExecution(), 0);
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_GE(taken, 20ms);
    EXPECT_LT(taken, 2s);
}

TEST(Threads, giving_up_execution_requests_20_ms)
{
    timespec requested{};
    const support::WithSystemCalls calls({.clockNanosleep = [&](const timespec *time) {
        requested = *time;
        return 0;
    }});
    EXPECT_EQ(kvo_hws_GiveUpThreadExecution(), 0);
    EXPECT_EQ(requested.tv_sec, 0);
    EXPECT_EQ(requested.tv_nsec, 20'000'000);
}

TEST(Threads, giving_up_execution_returns_the_error_of_the_sleep)
{
    const support::WithSystemCalls calls({.clockNanosleep = [](const timespec *) { return EINVAL; }});
    EXPECT_EQ(kvo_hws_GiveUpThreadExecution(), EINVAL);
}

TEST(CriticalSection, excludes_other_threads_until_it_is_left)
{
    pthread_mutex_t section = PTHREAD_MUTEX_INITIALIZER;
    EXPECT_EQ(kvo_hws_EnterCriticalSection(&section), 0);
    EXPECT_EQ(pthread_mutex_trylock(&section), EBUSY);
    EXPECT_EQ(kvo_hws_LeaveCriticalSection(&section), 0);
    EXPECT_EQ(pthread_mutex_trylock(&section), 0);
    EXPECT_EQ(kvo_hws_LeaveCriticalSection(&section), 0);
}

TEST(CriticalSection, is_not_affected_by_initialize_and_delete)
{
    pthread_mutex_t section = PTHREAD_MUTEX_INITIALIZER;
    kvo_hws_EnterCriticalSection(&section);
    kvo_hws_InitializeCriticalSection(&section);
    EXPECT_EQ(pthread_mutex_trylock(&section), EBUSY);
    kvo_hws_DeleteCriticalSection(&section);
    EXPECT_EQ(pthread_mutex_trylock(&section), EBUSY);
    kvo_hws_LeaveCriticalSection(&section);

    kvo_hws_InitializeCriticalSection(&section);
    kvo_hws_DeleteCriticalSection(&section);
    EXPECT_EQ(pthread_mutex_trylock(&section), 0);
    pthread_mutex_unlock(&section);
}

TEST(CriticalSection, returns_the_error_of_the_lock)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer reports each error of a lock itself";
#endif
    pthread_mutexattr_t checking;
    pthread_mutexattr_init(&checking);
    pthread_mutexattr_settype(&checking, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_t section;
    pthread_mutex_init(&section, &checking);
    EXPECT_EQ(kvo_hws_LeaveCriticalSection(&section), EPERM);
    EXPECT_EQ(kvo_hws_EnterCriticalSection(&section), 0);
    EXPECT_EQ(kvo_hws_EnterCriticalSection(&section), EDEADLK);
    EXPECT_EQ(kvo_hws_LeaveCriticalSection(&section), 0);
    pthread_mutex_destroy(&section);
    pthread_mutexattr_destroy(&checking);
}

}  // namespace
