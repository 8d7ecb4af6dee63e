// Waiting for what another thread or process does.
#pragma once

#include <chrono>
#include <thread>

namespace support {

/// Waits until @p condition holds, 10 s at most. Returns whether it does.
template <class Condition>
bool eventually(const Condition &condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace support
