// Workers, the records that stop them, and a thread that wakes whoever sleeps.
#pragma once

#include <kvo_hws/runtime.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace runtime_test {

using namespace std::chrono_literals;

using Clock = std::chrono::steady_clock;

template <class Call>
std::chrono::milliseconds timeOf(Call call)
{
    const auto start = Clock::now();
    call();
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

inline uint32_t stateOf(Notify &record) { return __atomic_load_n(&record.uiState, __ATOMIC_SEQ_CST); }
inline void setState(Notify &record, uint32_t state) { __atomic_store_n(&record.uiState, state, __ATOMIC_SEQ_CST); }
inline void setUsers(Notify &record, uint32_t users) { __atomic_store_n(&record.uiUsers, users, __ATOMIC_SEQ_CST); }

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

/// A worker by the convention: running, then in waits of a second until it is anything else.
inline void *work(void *argument)
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

}  // namespace runtime_test
