// The callback variables and the calls of the callbacks. Each call reads a variable once: any thread may clear it at any time.
#include "usbevents/callbacks.h"

#include "runtime/owners.h"

#include <atomic>

SendUsbEventV1 sendUSBEvent = nullptr;
SendUsbEventV2 sendUSBEvent2 = nullptr;

namespace {

using kvo_hws::kCallbackFailed;
using kvo_hws::newerCallback;
using kvo_hws::olderCallback;

/// Protects latest together with the callback variables.
pthread_mutex_t callbackChange = PTHREAD_MUTEX_INITIALIZER;
std::atomic<uintptr_t> latest{0};

/// Calls a host's function. Exceptions and cancellation do not leave this call.
template <class Callback, class... Arguments>
int32_t call(Callback callback, Arguments... arguments) noexcept
{
    if (callback == nullptr) {
        return kCallbackFailed;
    }
    const kvo_hws::NoCancellation wholeCall;  // a cancelled thread must not end in the callback
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

int32_t SendUSBEventCheckNULL_V1(uint32_t code, void *record) noexcept { return call(olderCallback().load(), code, record); }

int32_t SendUSBEventCheckNULL_V2(UsbEventV2 *event) noexcept { return call(newerCallback().load(), event); }

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
