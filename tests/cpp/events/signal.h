// A signal from one thread of a test to another.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace cpp_events_test {

/// Something that one thread waits for and another one sets.
class Signal {
public:
    void set()
    {
        const std::lock_guard lock(lock_);
        isSet_ = true;
        changed_.notify_all();
    }
    /// Returns false after 10 s.
    bool wait(std::chrono::milliseconds most = std::chrono::seconds(10))
    {
        std::unique_lock lock(lock_);
        return changed_.wait_for(lock, most, [this] { return isSet_; });
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool isSet_ = false;
};

}  // namespace cpp_events_test
