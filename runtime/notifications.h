// The protocol that stops worker threads, for callers that keep the record afterwards.
#pragma once

#include <kvo_hws/runtime.h>

namespace kvo_hws {

/// True if a worker's state, NOTIFY_..., means that it is not running.
constexpr bool hasEnded(uint32_t state) noexcept { return state == NOTIFY_STOPPED || state == NOTIFY_STOP_DONE; }

/// The first step of ShutdownThread: requests the stop and wakes the worker.
void requestStop(Notify &record) noexcept;

}  // namespace kvo_hws
