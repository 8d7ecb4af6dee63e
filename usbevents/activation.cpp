// Activating and closing USB events. Both stop whatever server runs and leave the talk with the service to a thread; what
// comes of it is told to the callback.
#include <kvo_hws/result.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "runtime/clock.h"
#include "runtime/log.h"
#include "runtime/owners.h"
#include "service/request.h"
#include "usbevents/callbacks.h"
#include "usbevents/server.h"
#include "usbevents/server_state.h"

#include <atomic>
#include <syslog.h>

using namespace std::chrono_literals;

namespace {

constexpr auto kInitPollTime = 100ms;
constexpr auto kCloseTime = 100ms;  // for the thread that asks the service; hosts that exit right after a close rely on it
constexpr int kServerStillRuns = -1;

/// Stopping a server and starting the next one is one step: activations and closes take turns at it. Not held while host code
/// runs.
pthread_mutex_t serverChange = PTHREAD_MUTEX_INITIALIZER;

bool startServer() noexcept { return kvo_hws::serverState().load() == NOTIFY_STOPPED && kvo_hws::startUsbServer(); }

/// One exchange with the service. Returns the status that its answer stands for; @p accepted for "ok".
int32_t askService(const char *command, int32_t accepted) noexcept
{
    return kvo_hws::Request(kvo_hws::kSilent)
        .sendFailureIs(USB_EVENT_NO_SERVICE)
        .send("%s", command)
        .onNoText(USB_EVENT_NO_SERVICE)
        .on("ok", accepted)
        .otherwise(USB_EVENT_REFUSED)
        .result();
}

void sendStatus(int32_t status) noexcept { SendUSBEventCheckNULL_Simple(static_cast<uint32_t>(status)); }

/// One generation of callbacks: its slot, how its statuses reach it, and the label of its messages.
template <class Callback>
struct Generation {
    std::atomic_ref<Callback> slot;
    int32_t (*tell)(uint32_t code) noexcept;
    const char *label;
};

/// The older callback hears of its own activation also where a newer one is set, which all other codes would go to.
int32_t tellOlder(uint32_t code) noexcept { return SendUSBEventCheckNULL_V1(code, nullptr); }

/// How a change of servers went, and which activation or end it was.
struct Change {
    int32_t result;
    uintptr_t number;
};

/// The first half of every change, under its lock: no server.
int32_t stopServer(const char *label) noexcept
{
    if (KillUsbServer() == kServerStillRuns) {
        kvo_hws::debugMessage(label, "can not kill server");
        return KVO_HWS_SERVER_FAILED;
    }
    kvo_hws::debugMessage(label, "kill server");
    return KVO_HWS_OK;
}

/// The second half of an activation: a server, and a thread that asks the service for events.
int32_t startServerAndHelper(const char *label, uintptr_t number) noexcept
{
    if (!startServer()) {
        kvo_hws::debugMessage(label, "can not start server");
        return KVO_HWS_SERVER_FAILED;
    }
    kvo_hws::debugMessage(label, "start server");
    // Without it the callback stays set and the server runs: callers know -3 as what a close puts right.
    return kvo_hws_CreateThread(threadActivateUSBevents, reinterpret_cast<void *>(number)) == 1 ? KVO_HWS_OK
                                                                                                : KVO_HWS_NO_THREAD;
}

template <class Callback>
Change replaceServer(Callback callback, const Generation<Callback> &generation) noexcept
{
    const kvo_hws::Lock lock(serverChange);
    Change change{KVO_HWS_OK, kvo_hws::supersedeActivations()};
    // A close that came in between may have taken it away again; from here on that one is superseded.
    generation.slot.store(callback);
    change.result = stopServer(generation.label);
    if (change.result == KVO_HWS_OK) {
        change.result = startServerAndHelper(generation.label, change.number);
    }
    return change;
}

Change endServer(const char *label) noexcept
{
    const kvo_hws::Lock lock(serverChange);
    const uintptr_t number = kvo_hws::supersedeActivations();
    return {stopServer(label), number};
}

template <class Callback>
int32_t activate(Callback callback, Generation<Callback> generation) noexcept
{
    int32_t result = KVO_HWS_FAILED;
    if (callback == nullptr) {
        kvo_hws::debugMessage(generation.label, "null pointer received");
    } else {
        generation.slot.store(callback);
        generation.tell(USB_EVENT_BEGIN);
        const Change change = replaceServer(callback, generation);
        result = change.result;
        if (result == KVO_HWS_SERVER_FAILED) {
            generation.tell(USB_EVENT_SERVER_FAILED);
            kvo_hws::clearCallbacks(change.number);
        }
    }
    if (result != KVO_HWS_OK) {
        kvo_hws::logAlways(LOG_ERR, "%s - fails with %d", generation.label, result);
    }
    return result;
}

/// A number comes from an activation or close; a host that runs a thread by itself means the last one.
uintptr_t numberOf(void *argument) noexcept
{
    return argument != nullptr ? reinterpret_cast<uintptr_t>(argument) : kvo_hws::latestActivation();
}

}  // namespace

int32_t KVO_HWS_activateUSBEvents(SendUsbEventV1 callback) noexcept
{
    return activate<SendUsbEventV1>(callback, {kvo_hws::olderCallback(), tellOlder, "activate USB events"});
}

int32_t KVO_HWS_activateUSBEventsV2(SendUsbEventV2 callback) noexcept
{
    return activate<SendUsbEventV2>(callback,
                                    {kvo_hws::newerCallback(), SendUSBEventCheckNULL_Simple, "activate USB events V2"});
}

int32_t KVO_HWS_closeUSBEvents() noexcept
{
    constexpr const char *kLabel = "deactivate USB events";
    if (kvo_hws::olderCallback().load() == nullptr && kvo_hws::newerCallback().load() == nullptr) {
        kvo_hws::debugMessage(kLabel, "events not activated");
        return KVO_HWS_NO_EVENTS;
    }
    SendUSBEventCheckNULL_Simple(USB_EVENT_BEGIN);
    const Change change = endServer(kLabel);
    if (change.result != KVO_HWS_OK) {
        SendUSBEventCheckNULL_Simple(USB_EVENT_SERVER_FAILED);
        kvo_hws::clearCallbacks(change.number);
        return change.result;
    }
    // Without a thread the service is not told and the callback stays set, so that closing again tells it.
    kvo_hws_CreateThread(threadDeactivateUSBevents, reinterpret_cast<void *>(change.number));
    kvo_hws::pause(kCloseTime);
    return KVO_HWS_OK;
}

int32_t KVO_HWS_isUSBEventsActivated() noexcept
{
    return kvo_hws::Request(kvo_hws::kSilent)
        .sendFailureIs(KVO_HWS_FAILED)
        .send("isUSBEventsActivated")
        .on("yes", KVO_HWS_OK)
        .on("no", KVO_HWS_NO)
        .result();
}

void *threadActivateUSBevents(void *argument) noexcept
{
    kvo_hws_detach_thread();
    const uintptr_t number = numberOf(argument);
    // However long the service takes: only an activation that was superseded has nothing left to ask for, or to report.
    const auto superseded = [number] { return kvo_hws::latestActivation() != number; };
    while (KVO_HWS_isInitComplete() != KVO_HWS_OK && !superseded()) {
        kvo_hws::pause(kInitPollTime);
    }
    if (superseded()) {
        return nullptr;
    }
    const int32_t status = askService("activateUSBEvents", USB_EVENT_ACTIVATED);
    if (superseded()) {
        return nullptr;
    }
    sendStatus(status);
    if (status != USB_EVENT_ACTIVATED) {
        kvo_hws::clearCallbacks(number);
    }
    return nullptr;
}

void *threadDeactivateUSBevents(void *argument) noexcept
{
    kvo_hws_detach_thread();
    const uintptr_t number = numberOf(argument);
    // Notified even if it was superseded: the caller of the close waits for it.
    sendStatus(askService("deactivateUSBEvents", USB_EVENT_DEACTIVATED));
    kvo_hws::clearCallbacks(number);
    return nullptr;
}
