// The handshake that stops worker threads, for workers whose record lives on after it.
#pragma once

#include <kvo_hws/runtime.h>

namespace kvo_hws {

/// As ShutdownThread, but the record stays the caller's.
int requestStop(Notify &record, unsigned milliseconds) noexcept;

}  // namespace kvo_hws
