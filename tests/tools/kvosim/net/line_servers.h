// Waiting for what a server does on a thread of its own.
#pragma once

#include <chrono>
#include <thread>

namespace kvosim_test {

using namespace std::chrono_literals;

/// Waits until @p condition holds, 5 s at most.
template <class Condition>
bool soon(Condition condition)
{
    for (int i = 0; i < 1000; ++i) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(5ms);
    }
    return false;
}

}  // namespace kvosim_test
