// A thread that wakes another one from its sleeps.
#pragma once

#include <kvo_hws/runtime.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace runtime_test {

using namespace std::chrono_literals;

/// Calls a function and signals a thread, repeatedly until the end of the scope: a signal sent before the sleep has no effect.
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

}  // namespace runtime_test
