// Activating and closing USB events. Both stop the running server and start a thread that asks the service. The callback
// receives the outcome.
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
constexpr auto kCloseTime = 100ms;  // time for the thread that asks the service; hosts that exit after a close rely on it
constexpr int kServerStillRuns = -1;

/// Stopping a server and starting the next one is one step: only one activation or close does it at a time. Not locked while
/// the host's callback runs.
pthread_mutex_t serverChange = PTHREAD_MUTEX_INITIALIZER;

bool startServer() noexcept { return kvo_hws::serverState().load() == NOTIFY_STOPPED && kvo_hws::startUsbServer(); }

/// One exchange with the service. Returns the status for its reply; @p accepted for "ok".
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

/// One generation of callbacks: its variable, the function that sends a status to it, and the label of its messages.
template <class Callback>
struct Generation {
    std::atomic_ref<Callback> slot;
    int32_t (*send)(uint32_t code) noexcept;
    const char *label;
};

/// The older callback receives the codes of its own activation even if a newer one is set. All other codes go to the newer one.
int32_t sendToOlder(uint32_t code) noexcept { return SendUSBEventCheckNULL_V1(code, nullptr); }

/// The result of a change of servers, and the number of its activation or close.
struct Change {
    int32_t result;
    uintptr_t number;
};

/// The first half of every change: stops the server. Called with serverChange locked.
int32_t stopServer(const char *label) noexcept
{
    if (KillUsbServer() == kServerStillRuns) {
        kvo_hws::debugMessage(label, "can not kill server");
        return KVO_HWS_SERVER_FAILED;
    }
    kvo_hws::debugMessage(label, "kill server");
    return KVO_HWS_OK;
}

/// The second half of an activation: starts a server and a thread that asks the service for events.
int32_t startServerAndThread(const char *label, uintptr_t number) noexcept
{
    if (!startServer()) {
        kvo_hws::debugMessage(label, "can not start server");
        return KVO_HWS_SERVER_FAILED;
    }
    kvo_hws::debugMessage(label, "start server");
    // If the thread cannot be started, the callback stays set and the server keeps running: callers close after a -3.
    return kvo_hws_CreateThread(threadActivateUSBevents, reinterpret_cast<void *>(number)) == 1 ? KVO_HWS_OK
                                                                                                : KVO_HWS_NO_THREAD;
}

template <class Callback>
Change replaceServer(Callback callback, const Generation<Callback> &generation) noexcept
{
    const kvo_hws::Lock lock(serverChange);
    Change change{KVO_HWS_OK, kvo_hws::supersedeActivations()};
    // A close may have cleared the callback since it was set; that close is superseded now.
    generation.slot.store(callback);
    change.result = stopServer(generation.label);
    if (change.result == KVO_HWS_OK) {
        change.result = startServerAndThread(generation.label, change.number);
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
        generation.send(USB_EVENT_BEGIN);
        const Change change = replaceServer(callback, generation);
        result = change.result;
        if (result == KVO_HWS_SERVER_FAILED) {
            generation.send(USB_EVENT_SERVER_FAILED);
            kvo_hws::clearCallbacks(change.number);
        }
    }
    if (result != KVO_HWS_OK) {
        kvo_hws::logAlways(LOG_ERR, "%s - fails with %d", generation.label, result);
    }
    return result;
}

/// The number from the activation or close; the latest one if a host runs the thread function itself and passes null.
uintptr_t numberOf(void *argument) noexcept
{
    return argument != nullptr ? reinterpret_cast<uintptr_t>(argument) : kvo_hws::latestActivation();
}

}  // namespace

int32_t KVO_HWS_activateUSBEvents(SendUsbEventV1 callback) noexcept
{
    return activate<SendUsbEventV1>(callback, {kvo_hws::olderCallback(), sendToOlder, "activate USB events"});
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
    // If the thread cannot be started, no request is sent and the callback stays set; a second close sends the request.
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
    // Waits for the service without a limit. A superseded activation ends: it has nothing more to ask or to report.
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
    // The status is sent even if this close was superseded: its caller waits for the status.
    sendStatus(askService("deactivateUSBEvents", USB_EVENT_DEACTIVATED));
    kvo_hws::clearCallbacks(number);
    return nullptr;
}
