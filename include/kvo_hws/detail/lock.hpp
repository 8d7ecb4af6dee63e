/** @file
 *  Internal: mutex, lock and condition. The headers of the standard library that have them take much longer to compile.
 */
#ifndef KVO_HWS_DETAIL_LOCK_HPP
#define KVO_HWS_DETAIL_LOCK_HPP

#include <chrono>
#include <ctime>
#include <pthread.h>

/** @cond internal */
namespace kvo::detail {

class Mutex {
public:
    Mutex() noexcept { pthread_mutex_init(&mutex_, nullptr); }
    Mutex(const Mutex &) = delete;
    Mutex &operator=(const Mutex &) = delete;
    ~Mutex() { pthread_mutex_destroy(&mutex_); }

private:
    friend class Lock;
    friend class Condition;
    pthread_mutex_t mutex_{};
};

/* Locks a mutex until its end; unlock() and lock() may interrupt that. */
class Lock {
public:
    explicit Lock(Mutex &mutex) noexcept : mutex_(mutex) { lock(); }
    ~Lock()
    {
        if (locked_) {
            unlock();
        }
    }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

    void lock() noexcept
    {
        pthread_mutex_lock(&mutex_.mutex_);
        locked_ = true;
    }
    void unlock() noexcept
    {
        locked_ = false;
        pthread_mutex_unlock(&mutex_.mutex_);
    }

private:
    friend class Condition;
    Mutex &mutex_;
    bool locked_ = false;
};

class Condition {
public:
    Condition() noexcept
    {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&condition_, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    Condition(const Condition &) = delete;
    Condition &operator=(const Condition &) = delete;
    ~Condition() { pthread_cond_destroy(&condition_); }

    void notify_one() noexcept { pthread_cond_signal(&condition_); }
    void notify_all() noexcept { pthread_cond_broadcast(&condition_); }

    /* May return without a notification. */
    void wait(Lock &lock) { pthread_cond_wait(&condition_, &lock.mutex_.mutex_); }

    template <class Done>
    void wait(Lock &lock, Done done)
    {
        while (!done()) {
            wait(lock);
        }
    }

    /* Returns at @p time at the latest. */
    template <class Done>
    void wait_until(Lock &lock, std::chrono::steady_clock::time_point time, Done done)
    {
        const auto since = time.time_since_epoch();
        const auto seconds = std::chrono::duration_cast<std::chrono::duration<std::time_t>>(since);
        const auto rest = std::chrono::duration_cast<std::chrono::duration<long, std::nano>>(since - seconds);
        const timespec until{seconds.count(), rest.count()};
        while (!done() && pthread_cond_timedwait(&condition_, &lock.mutex_.mutex_, &until) == 0) {
        }
    }

private:
    pthread_cond_t condition_{};
};

}  // namespace kvo::detail
/** @endcond */

#endif
