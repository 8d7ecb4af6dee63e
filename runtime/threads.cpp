// Threads and critical sections under their desktop names, over POSIX threads and mutexes.
#include <kvo_hws/runtime.h>

#include <cerrno>
#include <chrono>

#include "runtime/clock.h"

using namespace std::chrono_literals;

int kvo_hws_CreateThread(void *(*start)(void *), void *argument) noexcept
{
    return kvo_hws_CreateThreadIdent(start, argument, nullptr);
}

int kvo_hws_CreateThreadIdent(void *(*start)(void *), void *argument, pthread_t *id) noexcept
{
    pthread_t thread{};
    if (const int error = pthread_create(&thread, nullptr, start, argument); error != 0) {
        errno = error;  // for those who log it
        return -1;
    }
    if (id != nullptr) {
        *id = thread;
    }
    return 1;
}

int kvo_hws_detach_thread() noexcept { return pthread_detach(pthread_self()) == 0 ? 1 : -1; }

int kvo_hws_GiveUpThreadExecution() noexcept { return kvo_hws::pause(20ms); }

// Programs call these around sections that are initialised statically; a section must come through unchanged.
void kvo_hws_InitializeCriticalSection(pthread_mutex_t * /*cs*/) noexcept {}
void kvo_hws_DeleteCriticalSection(pthread_mutex_t * /*cs*/) noexcept {}

int kvo_hws_EnterCriticalSection(pthread_mutex_t *cs) noexcept { return pthread_mutex_lock(cs); }

int kvo_hws_LeaveCriticalSection(pthread_mutex_t *cs) noexcept { return pthread_mutex_unlock(cs); }
