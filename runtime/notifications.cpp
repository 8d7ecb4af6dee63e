// The protocol that stops worker threads: a record with a state word, SIGUSR1 to interrupt a sleep, and sleeps whose total
// length never exceeds the requested time. The state is written before the signal is sent.
#include "runtime/notifications.h"

#include "runtime/owners.h"
#include "runtime/shared_word.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <sys/select.h>

namespace {

using kvo_hws::shared;

constexpr unsigned kMillisecondsPerSecond = 1000;

void wakeUp(int /*signal*/) {}

timeval timeOf(unsigned milliseconds) noexcept
{
    return {.tv_sec = static_cast<time_t>(milliseconds / kMillisecondsPerSecond),
            .tv_usec = static_cast<suseconds_t>(milliseconds % kMillisecondsPerSecond) * 1000};
}

/// Returns 0 if the time has passed, else -1 with errno. Stores the remaining time in @p left.
int sleepFor(timeval &left) noexcept
{
    const kvo_hws::NoCancellation wholeSleep;
    return select(0, nullptr, nullptr, nullptr, &left);
}

}  // namespace

int ActivateNotify() noexcept
{
    // Replaces the host's handler, if any: the signal must interrupt sleeps.
    struct sigaction action = {};
    action.sa_handler = wakeUp;  // no SA_RESTART: a restarted sleep would not notice the signal
    return sigaction(SIGUSR1, &action, nullptr);
}

int CreateNotify(Notify **record) noexcept
{
    *record = static_cast<Notify *>(xmalloc(sizeof(Notify)));
    if (*record == nullptr) {
        return -1;
    }
    ActivateNotify();
    (*record)->threadRequester = pthread_self();
    return 0;
}

int DeleteNotify(Notify **record) noexcept
{
    std::free(*record);
    *record = nullptr;
    return 0;
}

void NotifyThread(pthread_t thread) noexcept
{
    if (thread != pthread_t{}) {
        pthread_kill(thread, SIGUSR1);
    }
}

int WaitNotify(Notify *record, unsigned milliseconds) noexcept
{
    timeval left = timeOf(milliseconds);
    if (sleepFor(left) == 0) {
        return 0;
    }
    return errno == EINTR && shared(record->uiState).load() == NOTIFY_STOP_REQUESTED ? 1 : -3;
}

int WaitShutdown(Notify *record, unsigned ms) noexcept
{
    if (kvo_hws::hasEnded(shared(record->uiState).load())) {
        return 1;
    }
    timeval left = timeOf(ms);
    for (;;) {
        if (sleepFor(left) == 0 && shared(record->uiUsers).load() != 0) {
            return -2;
        }
        // Also reached if the time has passed and the record has no user. Then errno has an old value, which decides between -1
        // and 1. Callers handle this -1, so the case has no separate result.
        if (errno != EINTR) {
            return -1;
        }
        if (shared(record->uiState).load() == NOTIFY_STOP_DONE || shared(record->uiUsers).load() == 0) {
            return 1;
        }
    }
}

void kvo_hws::requestStop(Notify &record) noexcept
{
    shared(record.threadRequester).store(pthread_self());
    shared(record.uiState).store(NOTIFY_STOP_REQUESTED);
    NotifyThread(shared(record.threadWorker).load());
}

int ShutdownThread(Notify *record, unsigned milliseconds) noexcept
{
    if (record == nullptr) {
        return -2;
    }
    kvo_hws::requestStop(*record);
    const int result = WaitShutdown(record, milliseconds);
    // Freed even if the worker is still running: the worker must not use the record again.
    DeleteNotify(&record);
    return result;
}

int CreateReceivedNotify() noexcept { return 0; }

int InitReceivedNotify(sem_t *semaphore) noexcept { return sem_init(semaphore, 0, 0); }

int DeleteReceivedNotify(sem_t *semaphore) noexcept { return sem_destroy(semaphore); }

void NotifyReceived(sem_t *semaphore) noexcept
{
    if (semaphore != nullptr) {
        sem_post(semaphore);
    }
}

int WaitReceivedNotify(sem_t *semaphore, unsigned milliseconds) noexcept
{
    timespec deadline = {};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += static_cast<time_t>(milliseconds / kMillisecondsPerSecond);
    // On purpose this adds microseconds to a member that counts nanoseconds, without a carry. Waits have always been this
    // short, and a deadline that becomes invalid has always been a failure. Hosts rely on both.
    deadline.tv_nsec += static_cast<long>(milliseconds % kMillisecondsPerSecond) * 1000;
    const kvo_hws::NoCancellation wholeWait;
    if (sem_timedwait(semaphore, &deadline) == 0) {
        return 1;
    }
    return errno == ETIMEDOUT ? 0 : -1;
}
