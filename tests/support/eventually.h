// Waiting for another thread or process.
#pragma once

#include <chrono>
#include <thread>

namespace support {

/// Waits until a condition holds. Returns false after @p most, which is far longer than the condition should take.
template <class Condition>
bool eventually(const Condition &condition, std::chrono::milliseconds most = std::chrono::seconds(10))
{
    const auto deadline = std::chrono::steady_clock::now() + most;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace support
