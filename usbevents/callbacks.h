// The two callbacks for USB events, and the number of the latest activation or close, which alone may clear the callbacks.
#pragma once

#include <kvo_hws/usbevents.h>

#include "runtime/shared_word.h"

#include <cstddef>
#include <cstdint>

namespace kvo_hws {

inline std::atomic_ref<SendUsbEventV1> olderCallback() noexcept { return shared(sendUSBEvent); }
inline std::atomic_ref<SendUsbEventV2> newerCallback() noexcept { return shared(sendUSBEvent2); }

/// A callback's result for a failure; also the result if no callback is set.
inline constexpr int32_t kCallbackFailed = -1;

/// Number of bytes of an event before its payload.
inline constexpr uint32_t kEventHead = offsetof(UsbEventV2, payload);

/// Numbers a new activation or close, which supersedes all earlier ones. Returns the number, which is not 0.
uintptr_t supersedeActivations() noexcept;

/// The number of the latest activation or close; 0 before the first.
uintptr_t latestActivation() noexcept;

/// Clears both callbacks if @p number is still the latest activation. Returns true if it did.
bool clearCallbacks(uintptr_t number) noexcept;

}  // namespace kvo_hws
