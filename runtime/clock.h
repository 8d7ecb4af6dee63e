// Sleeps that signals do not shorten.
#pragma once

#include <chrono>

namespace kvo_hws {

/// Sleeps for @p length; signals do not shorten the sleep. Returns 0, else the error number of clock_nanosleep.
int pause(std::chrono::milliseconds length) noexcept;

}  // namespace kvo_hws
