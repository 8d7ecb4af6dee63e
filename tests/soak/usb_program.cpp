#include "usb_program.h"

#include "event_objects.h"
#include "support/own_thread.h"
#include "workers.h"

#include <kvo_hws/result.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include <arpa/inet.h>

using namespace std::chrono_literals;

namespace soak {

namespace {

SharedState *gShared = nullptr;
std::atomic<unsigned> endEvents{0};

bool isEnd(uint32_t code)
{
    return code == USB_EVENT_DEACTIVATED || code == USB_EVENT_SERVER_FAILED || code == USB_EVENT_REFUSED ||
           code == USB_EVENT_NO_SERVICE;
}

/// Handles an event. Some calls are slow, some make a request, some fail.
int32_t handleEvent(uint32_t code, const char *station)
{
    if (station == nullptr) {
        endEvents += isEnd(code) ? 1 : 0;
        return 0;
    }
    const uint64_t number = ++gShared->figures.usbEventsReceived;
    if (inet_addr(station) == INADDR_NONE) {
        gShared->complaints.add("received a USB event from \"" + std::string(station, strnlen(station, 16)) + '"');
    }
    if (number % 32 == 0) {
        std::this_thread::sleep_for(20ms);
    }
    if (number % 50 == 0) {
        KVO_HWS_isUSBEventsActivated();
    }
    return number % 64 == 0 ? -1 : 0;
}

int32_t callbackV1(uint32_t code, void *record)
{
    switch (code) {
    case USB_EVENT_NEW_DEVICE: return handleEvent(code, static_cast<UsbDeviceV1 *>(record)->ipAddress);
    case USB_EVENT_REMOVED: return handleEvent(code, static_cast<UsbRemoveInfo *>(record)->ipAddress);
    default: return handleEvent(code, nullptr);
    }
}

int32_t callbackV2(UsbEventV2 *event)
{
    switch (event->code) {
    case USB_EVENT_NEW_DEVICE:
    case USB_EVENT_DEVICE_REFUSED: return handleEvent(event->code, event->payload.device.ipAddress);
    case USB_EVENT_REMOVED: return handleEvent(event->code, event->payload.removed.ipAddress);
    case USB_EVENT_STATE: return handleEvent(event->code, event->payload.state.ipAddress);
    default: return handleEvent(event->code, nullptr);
    }
}

/// Runs @p work on a separate thread and detaches the thread. The library detaches it in most cases, but not if it has nothing
/// to do.
template <class Work>
int32_t onDetachedThread(Work work)
{
    return support::onOwnThread([work] {
        const int32_t result = work();
        kvo_hws_detach_thread();
        return result;
    });
}

void close(Worker &worker)
{
    int32_t result = 0;
    {
        const Call call(worker.watch, "closeUSBEvents");
        result = onDetachedThread([] { return KVO_HWS_closeUSBEvents(); });
    }
    worker.figures().closes.add(result);
    if (result != KVO_HWS_OK) {
        return;
    }
    const Call call(worker.watch, "the end of the USB events");
    while (endEvents == 0) {
        std::this_thread::sleep_for(10ms);
    }
    ++worker.figures().usbEnds;
}

void activateAndClose(Worker &worker, std::chrono::milliseconds longestPause)
{
    endEvents = 0;
    int32_t result = 0;
    {
        const Call call(worker.watch, "activateUSBEvents");
        result = worker.random.oneIn(3) ? onDetachedThread([] { return KVO_HWS_activateUSBEvents(callbackV1); })
                                        : onDetachedThread([] { return KVO_HWS_activateUSBEventsV2(callbackV2); });
    }
    worker.figures().activations.add(result);
    worker.pause(100ms, 4000ms);
    close(worker);
    worker.pause(0ms, longestPause);
}

void useEvents(Worker &worker, std::chrono::milliseconds longestPause)
{
    if (worker.random.oneIn(2)) {
        useUsbObject(worker, [](const char *station) { return handleEvent(USB_EVENT_STATE, station); });
        worker.pause(0ms, longestPause);
    } else {
        activateAndClose(worker, longestPause);
    }
}

/// If the service refuses an activation, the library clears the callback but keeps the server for the next activation.
void endServerWithoutCallback()
{
    if (__atomic_load_n(&ServerPipeThreadSyncState, __ATOMIC_SEQ_CST) != NOTIFY_STOPPED) {
        onDetachedThread([] { return KillUsbServer(); });
    }
}

}  // namespace

void runUsbProgram(SharedState &shared, Program program, uint64_t seed)
{
    gShared = &shared;
    Workers workers(shared, program, seed);
    // The second program takes the events over now and then, and leaves them to the first one most of the time.
    const auto longestPause = program == kUsbOne ? 500ms : 20s;
    workers.add(
        "USB events", [longestPause](Worker &worker) { useEvents(worker, longestPause); },
        [](Worker &) {
            endServerWithoutCallback();
            CloseLogMessages();
        });
    workers.measureCheckpoints();
}

}  // namespace soak
