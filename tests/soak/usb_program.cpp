#include "usb_program.h"

#include "workers.h"
#include "support/own_thread.h"

#include <kvo_hws/result.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include <arpa/inet.h>

using namespace std::chrono_literals;

namespace soak {

namespace {

Share *ourShare = nullptr;
std::atomic<unsigned> endsTold{0};

bool isEnd(uint32_t code)
{
    return code == USB_EVENT_DEACTIVATED || code == USB_EVENT_SERVER_FAILED || code == USB_EVENT_REFUSED ||
           code == USB_EVENT_NO_SERVICE;
}

/// Some calls take their time, some ask the service themselves, some fail.
int32_t take(uint32_t code, const char *station)
{
    if (station == nullptr) {
        endsTold += isEnd(code) ? 1 : 0;
        return 0;
    }
    const uint64_t number = ++ourShare->figures.usbEventsReceived;
    if (inet_addr(station) == INADDR_NONE) {
        ourShare->complaints.add("a USB event came from \"" + std::string(station, strnlen(station, 16)) + '"');
    }
    if (number % 32 == 0) {
        std::this_thread::sleep_for(20ms);
    }
    if (number % 50 == 0) {
        KVO_HWS_isUSBEventsActivated();
    }
    return number % 64 == 0 ? -1 : 0;
}

int32_t older(uint32_t code, void *record)
{
    switch (code) {
    case USB_EVENT_NEW_DEVICE: return take(code, static_cast<UsbDeviceV1 *>(record)->ipAddress);
    case USB_EVENT_REMOVED: return take(code, static_cast<UsbRemoveInfo *>(record)->ipAddress);
    default: return take(code, nullptr);
    }
}

int32_t newer(UsbEventV2 *event)
{
    switch (event->code) {
    case USB_EVENT_NEW_DEVICE:
    case USB_EVENT_DEVICE_REFUSED: return take(event->code, event->payload.device.ipAddress);
    case USB_EVENT_REMOVED: return take(event->code, event->payload.removed.ipAddress);
    case USB_EVENT_STATE: return take(event->code, event->payload.state.ipAddress);
    default: return take(event->code, nullptr);
    }
}

/// On a thread that the library detaches in most cases; where it has nothing to do, it does not.
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
    while (endsTold == 0) {
        std::this_thread::sleep_for(10ms);
    }
    ++worker.figures().usbEnds;
}

void activateAndClose(Worker &worker, std::chrono::milliseconds longestPause)
{
    endsTold = 0;
    int32_t result = 0;
    {
        const Call call(worker.watch, "activateUSBEvents");
        result = worker.random.oneIn(3) ? onDetachedThread([] { return KVO_HWS_activateUSBEvents(older); })
                                        : onDetachedThread([] { return KVO_HWS_activateUSBEventsV2(newer); });
    }
    worker.figures().activations.add(result);
    worker.pause(100ms, 4000ms);
    close(worker);
    worker.pause(0ms, longestPause);
}

/// An activation that the service refuses takes the callback away and leaves the server to the next activation.
void endServerWithoutCallback()
{
    if (__atomic_load_n(&ServerPipeThreadSyncState, __ATOMIC_SEQ_CST) != NOTIFY_STOPPED) {
        onDetachedThread([] { return KillUsbServer(); });
    }
}

}  // namespace

void runUsbProgram(Share &share, Program program, uint64_t seed)
{
    ourShare = &share;
    Crew crew(share, program, seed);
    // The second one takes the events over now and then, and leaves the first one time.
    const auto longestPause = program == kUsbOne ? 500ms : 20s;
    crew.add(
        "USB events", [longestPause](Worker &worker) { activateAndClose(worker, longestPause); },
        [](Worker &) {
            endServerWithoutCallback();
            CloseLogMessages();
        });
    crew.measureRests();
}

}  // namespace soak
