// Threads and critical sections, implemented with POSIX threads and mutexes. The function names are those of desktop systems.
#include <kvo_hws/runtime.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <new>

#include "runtime/clock.h"
#include "runtime/owners.h"

using namespace std::chrono_literals;

namespace {

/// A thread function and its argument.
struct Work {
    void *(*start)(void *);
    void *argument;
};

/// Locked while a thread is created, until its id is stored. The thread runs only after that.
pthread_mutex_t creation = PTHREAD_MUTEX_INITIALIZER;

/// Not noexcept: the host's function may end its thread with pthread_exit.
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
        errno = error;  // callers log it
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
        errno = EAGAIN;  // pthread_create reports the same when memory runs out
        return -1;
    }
    *work = {start, argument};
    // The new thread waits for this lock. So it runs only after its id is stored, and sees the stored id.
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

// These functions must not change a section: programs call them for sections that are initialised statically.
void kvo_hws_InitializeCriticalSection(pthread_mutex_t * /*cs*/) noexcept {}
void kvo_hws_DeleteCriticalSection(pthread_mutex_t * /*cs*/) noexcept {}

int kvo_hws_EnterCriticalSection(pthread_mutex_t *cs) noexcept { return pthread_mutex_lock(cs); }

int kvo_hws_LeaveCriticalSection(pthread_mutex_t *cs) noexcept { return pthread_mutex_unlock(cs); }
