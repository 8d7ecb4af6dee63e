// Waiting for what another thread or process does.
#pragma once

#include <chrono>
#include <thread>

namespace support {

/// Waits until a condition holds. False after @p most, which is far more than what is waited for takes.
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
