// The handshake that stops worker threads: a record with a state word, SIGUSR1 to end a sleep early, and sleeps that never take
// longer in all than was asked for. The state is written before the signal is sent.
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

/// 0 when the time has run out, else -1 with errno. What is left of the time stays in @p left.
int sleepFor(timeval &left) noexcept
{
    const kvo_hws::NoCancellation wholeSleep;
    return select(0, nullptr, nullptr, nullptr, &left);
}

}  // namespace

int ActivateNotify() noexcept
{
    // In the place of whatever handler the host has: the signal is how sleeps are ended.
    struct sigaction action = {};
    action.sa_handler = wakeUp;  // no SA_RESTART: a sleep that starts anew would not notice
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
        // Asked also when the time ran out just as the last user left: then it is an errno of long ago that decides between -1
        // and 1. Callers know the -1; an answer of its own for that case would change what they see.
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
    // Freed also when the worker goes on: it is the worker that must not come back to it.
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
    // Microseconds in a place for nanoseconds, and without a carry: waits have always been this short, and a deadline that
    // comes out invalid for it has always been a failure. Hosts are tuned to both.
    deadline.tv_nsec += static_cast<long>(milliseconds % kMillisecondsPerSecond) * 1000;
    const kvo_hws::NoCancellation wholeWait;
    if (sem_timedwait(semaphore, &deadline) == 0) {
        return 1;
    }
    return errno == ETIMEDOUT ? 0 : -1;
}
