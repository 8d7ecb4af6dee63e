// The two callback slots: who is told of USB events.
#pragma once

#include <kvo_hws/usbevents.h>

#include "runtime/shared_word.h"

namespace kvo_hws {

inline std::atomic_ref<SendUsbEventV1> olderCallback() noexcept { return shared(sendUSBEvent); }
inline std::atomic_ref<SendUsbEventV2> newerCallback() noexcept { return shared(sendUSBEvent2); }

/// What a callback returns for a failure, and what stands for one where none is set.
inline constexpr int32_t kCallbackFailed = -1;

/// Bytes of an event that come before its payload.
inline constexpr uint32_t kEventHead = 8;

}  // namespace kvo_hws
