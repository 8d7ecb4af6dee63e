// Signals that arrive while the library waits.
#pragma once

#include <chrono>
#include <csignal>
#include <sys/time.h>

namespace support {

/// Raises SIGALRM after @p first and then every @p interval for a scope; an interval of 0 means once. The handler does nothing.
class Alarms {
public:
    explicit Alarms(std::chrono::microseconds first, std::chrono::microseconds interval = {})
    {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, &before_);
        set(first, interval);
    }
    Alarms(const Alarms &) = delete;
    Alarms &operator=(const Alarms &) = delete;
    ~Alarms()
    {
        set({}, {});
        sigaction(SIGALRM, &before_, nullptr);
    }

private:
    static void set(std::chrono::microseconds first, std::chrono::microseconds interval)
    {
        const itimerval timer{.it_interval = timevalOf(interval), .it_value = timevalOf(first)};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
    static timeval timevalOf(std::chrono::microseconds time)
    {
        return {.tv_sec = static_cast<time_t>(time.count() / 1'000'000),
                .tv_usec = static_cast<suseconds_t>(time.count() % 1'000'000)};
    }

    struct sigaction before_ {};
};

}  // namespace support
