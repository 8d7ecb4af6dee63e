// The handshake that stops worker threads, for workers whose record lives on after it.
#pragma once

#include <kvo_hws/runtime.h>

namespace kvo_hws {

/// Whether a worker's state, NOTIFY_..., says that it runs no more.
constexpr bool hasEnded(uint32_t state) noexcept { return state == NOTIFY_STOPPED || state == NOTIFY_STOP_DONE; }

/// The first half of ShutdownThread: requests the stop, and wakes the worker.
void requestStop(Notify &record) noexcept;

}  // namespace kvo_hws
