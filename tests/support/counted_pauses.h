// How often the library pauses, whatever time the machine takes.
#pragma once

#include "support/system_calls.h"

#include <atomic>
#include <chrono>
#include <ctime>

namespace support {

/// Counts the library's pauses of at least @p shortest for a scope.
class CountedPauses {
public:
    explicit CountedPauses(std::chrono::nanoseconds shortest = std::chrono::nanoseconds(1))
        : calls_({.clockNanosleep = [this, shortest](const timespec *time) {
              const auto length = std::chrono::seconds(time->tv_sec) + std::chrono::nanoseconds(time->tv_nsec);
              count_ += calledByLibrary() && length >= shortest ? 1 : 0;
              return kPassThrough;
          }})
    {
    }

    [[nodiscard]] int count() const { return count_; }

private:
    std::atomic<int> count_{0};
    WithSystemCalls calls_;
};

}  // namespace support
