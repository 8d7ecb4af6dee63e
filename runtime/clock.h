// Pauses that a signal does not shorten.
#pragma once

#include <chrono>

namespace kvo_hws {

/// Sleeps for the whole of @p length, through signals. Returns 0.
int pause(std::chrono::milliseconds length) noexcept;

}  // namespace kvo_hws
