// Threads and critical sections under their desktop names, over POSIX threads and mutexes.
#include <kvo_hws/runtime.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <new>

#include "runtime/clock.h"
#include "runtime/owners.h"

using namespace std::chrono_literals;

namespace {

/// What a thread is to run.
struct Work {
    void *(*start)(void *);
    void *argument;
};

/// Held while a thread is created whose id is to be stored before it runs.
pthread_mutex_t creation = PTHREAD_MUTEX_INITIALIZER;

/// Not noexcept: what the host runs may end its thread from within.
void *runOnceIdIsStored(void *work)
{
    const Work own = *std::unique_ptr<Work>(static_cast<Work *>(work));
    {
        const kvo_hws::Lock idIsStored(creation);
    }
    return own.start(own.argument);
}

int createThread(pthread_t &thread, void *(*start)(void *), void *argument) noexcept
{
    const int error = pthread_create(&thread, nullptr, start, argument);
    if (error != 0) {
        errno = error;  // for those who log it
    }
    return error == 0 ? 1 : -1;
}

}  // namespace

int kvo_hws_CreateThread(void *(*start)(void *), void *argument) noexcept
{
    pthread_t thread{};
    return createThread(thread, start, argument);
}

int kvo_hws_CreateThreadIdent(void *(*start)(void *), void *argument, pthread_t *id) noexcept
{
    if (id == nullptr) {
        return kvo_hws_CreateThread(start, argument);
    }
    std::unique_ptr<Work> work(new (std::nothrow) Work);
    if (work == nullptr) {
        errno = EAGAIN;  // what a thread without memory for it has always come to
        return -1;
    }
    *work = {start, argument};
    // The new thread waits for this lock: it finds its id stored, and whatever the caller did to the variable before.
    const kvo_hws::Lock lock(creation);
    pthread_t thread{};
    if (createThread(thread, runOnceIdIsStored, work.get()) != 1) {
        return -1;
    }
    static_cast<void>(work.release());
    *id = thread;
    return 1;
}

int kvo_hws_detach_thread() noexcept { return pthread_detach(pthread_self()) == 0 ? 1 : -1; }

int kvo_hws_GiveUpThreadExecution() noexcept { return kvo_hws::pause(20ms); }

// Programs call these around sections that are initialised statically; a section must come through unchanged.
void kvo_hws_InitializeCriticalSection(pthread_mutex_t * /*cs*/) noexcept {}
void kvo_hws_DeleteCriticalSection(pthread_mutex_t * /*cs*/) noexcept {}

int kvo_hws_EnterCriticalSection(pthread_mutex_t *cs) noexcept { return pthread_mutex_lock(cs); }

int kvo_hws_LeaveCriticalSection(pthread_mutex_t *cs) noexcept { return pthread_mutex_unlock(cs); }
