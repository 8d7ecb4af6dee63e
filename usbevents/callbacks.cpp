// The callback slots, and the calls through them. A slot is read once for a call: it may be emptied by any thread at any time.
#include "usbevents/callbacks.h"

#include "runtime/owners.h"

#include <atomic>

SendUsbEventV1 sendUSBEvent = nullptr;
SendUsbEventV2 sendUSBEvent2 = nullptr;

namespace {

using kvo_hws::kCallbackFailed;
using kvo_hws::newerCallback;
using kvo_hws::olderCallback;

/// Guards latest together with the slots that it is about.
pthread_mutex_t callbackChange = PTHREAD_MUTEX_INITIALIZER;
std::atomic<uintptr_t> latest{0};

/// Calls a host's function, from which nothing but its result comes back.
template <class Callback, class... Arguments>
int32_t tell(Callback callback, Arguments... arguments) noexcept
{
    if (callback == nullptr) {
        return kCallbackFailed;
    }
    const kvo_hws::NoCancellation wholeCall;  // a thread that is cancelled must not end in here
    try {
        return callback(arguments...);
    } catch (...) {
        return kCallbackFailed;
    }
}

}  // namespace

int32_t SendUSBEventCheckNULL_Simple(uint32_t code) noexcept
{
    if (newerCallback().load() != nullptr) {
        UsbEventV2 event = {};
        event.code = code;
        event.length = kvo_hws::kEventHead;
        return SendUSBEventCheckNULL_V2(&event);
    }
    return SendUSBEventCheckNULL_V1(code, nullptr);
}

int32_t SendUSBEventCheckNULL_V1(uint32_t code, void *record) noexcept { return tell(olderCallback().load(), code, record); }

int32_t SendUSBEventCheckNULL_V2(UsbEventV2 *event) noexcept { return tell(newerCallback().load(), event); }

void SetFunction_SendUSBEvent_NULL() noexcept
{
    olderCallback().store(nullptr);
    newerCallback().store(nullptr);
}

uintptr_t kvo_hws::supersedeActivations() noexcept
{
    const Lock lock(callbackChange);
    const uintptr_t number = ++latest;
    return number != 0 ? number : ++latest;
}

uintptr_t kvo_hws::latestActivation() noexcept { return latest.load(); }

bool kvo_hws::clearCallbacks(uintptr_t number) noexcept
{
    const Lock lock(callbackChange);
    if (latest.load() != number) {
        return false;
    }
    SetFunction_SendUSBEvent_NULL();
    return true;
}
