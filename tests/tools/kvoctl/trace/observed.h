// What the tests of the queue and of its readers have in common.
#pragma once

#include "exchanges.h"

#include "kvoctl/trace/observed_queue.h"

#include <chrono>
#include <poll.h>
#include <string>

namespace kvoctl_test {

inline constexpr std::size_t kLarge = 16UL * 1024 * 1024;

inline kvoctl::ObservedExchange observed(const std::string &request, const std::string &reply = "ok\n")
{
    return {kPanel, exchange(request, reply)};
}

inline bool isReadable(int descriptor, std::chrono::milliseconds timeout = 0ms)
{
    pollfd polled{.fd = descriptor, .events = POLLIN, .revents = 0};
    return poll(&polled, 1, static_cast<int>(timeout.count())) == 1;
}

}  // namespace kvoctl_test
