// One connection of the USB event server: reads a line, calls the callback, and writes a reply.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "runtime/clock.h"
#include "runtime/log.h"
#include "runtime/owners.h"
#include "service/request.h"
#include "service/socket.h"
#include "usbevents/callbacks.h"
#include "usbevents/server_state.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

using namespace std::chrono_literals;

namespace {

using kvo_hws::kCallbackFailed;
using kvo_hws::kEventHead;

constexpr auto kCloseDelay = 100ms;  // gives the daemon time to read the reply before the close
constexpr int kParsed = 1;

constexpr const char *kOk = "ok";
constexpr const char *kFailed = "failed";
constexpr const char *kNothing = "";
constexpr const char *kUnknownRequest = "unknown request";

using LineBuffer = std::array<char, 1028>;

bool newerIsSet() noexcept { return kvo_hws::newerCallback().load() != nullptr; }
bool olderIsSet() noexcept { return kvo_hws::olderCallback().load() != nullptr; }

// ---- The four events, from the text to the answer ----

/// A zeroed event for the newer callback, with its code and length.
UsbEventV2 eventOf(UsbEventCode code, std::size_t payloadLength) noexcept
{
    UsbEventV2 event = {};
    event.code = code;
    event.length = kEventHead + static_cast<uint32_t>(payloadLength);
    return event;
}

const char *answerTo(int32_t callbackResult) noexcept { return callbackResult == kCallbackFailed ? kFailed : kOk; }

const char *loggedAnswerTo(int32_t callbackResult, const char *step) noexcept
{
    if (callbackResult == kCallbackFailed) {
        kvo_hws::debugValues("%s SendUSBEventCheckNULL fails '%d'", step, callbackResult);
    }
    return answerTo(callbackResult);
}

/// The message contains "New" for a refused device too: log searches rely on the text.
const char *malformed(int code, const char *step) noexcept
{
    kvo_hws::debugValues("%s ConvertText2USBDeviceNew fails %d", step, code);
    return kFailed;
}

const char *newDevice(char *text) noexcept
{
    constexpr const char *kStep = " ExecuteNewUSBDevice";
    if (newerIsSet()) {
        UsbEventV2 event = eventOf(USB_EVENT_NEW_DEVICE, sizeof event.payload.device);
        const int parsed = ConvertCmd2USBDeviceNM(&event.payload.device, text);
        return parsed == kParsed ? loggedAnswerTo(SendUSBEventCheckNULL_V2(&event), kStep) : malformed(parsed, kStep);
    }
    if (olderIsSet()) {
        UsbDeviceV1 device = {};
        const int parsed = ConvertCmd2USBDeviceNew(&device, text);
        return parsed == kParsed ? loggedAnswerTo(SendUSBEventCheckNULL_V1(USB_EVENT_NEW_DEVICE, &device), kStep)
                                 : malformed(parsed, kStep);
    }
    return loggedAnswerTo(kCallbackFailed, kStep);
}

/// Only for the newer callback, like a change of state: the older one has no codes for these events.
const char *refusedDevice(char *text) noexcept
{
    constexpr const char *kStep = " ExecuteIgnoreUSBDevice";
    if (!newerIsSet()) {
        return loggedAnswerTo(kCallbackFailed, kStep);
    }
    // An event for a refused device ends before the flag bits.
    UsbEventV2 event = eventOf(USB_EVENT_DEVICE_REFUSED, offsetof(UsbDeviceInfo, flagBits));
    const int parsed = ConvertCmd2USBDeviceIM(&event.payload.device, text);
    return parsed == kParsed ? loggedAnswerTo(SendUSBEventCheckNULL_V2(&event), kStep) : malformed(parsed, kStep);
}

const char *changedState(char *text) noexcept
{
    UsbEventV2 event = eventOf(USB_EVENT_STATE, sizeof event.payload.state);
    return ConvertCmd2USBDeviceCS(&event.payload.state, text) == kParsed ? answerTo(SendUSBEventCheckNULL_V2(&event)) : kFailed;
}

/// The reply to a malformed removal is an empty line, not "failed": daemons distinguish it from a callback that failed.
const char *removedDevice(char *text) noexcept
{
    if (newerIsSet()) {
        UsbEventV2 event = eventOf(USB_EVENT_REMOVED, sizeof event.payload.removed);
        return ConvertCmd2USBDeviceRM(&event.payload.removed, text) == kParsed ? answerTo(SendUSBEventCheckNULL_V2(&event))
                                                                               : kNothing;
    }
    if (olderIsSet()) {
        // The older callback expects an area of the same size for all its records.
        union {
            UsbRemoveInfo removed;
            UsbDeviceV1 area;
        } record = {};
        return ConvertCmd2USBDeviceRemove(&record.removed, text) == kParsed
                   ? answerTo(SendUSBEventCheckNULL_V1(USB_EVENT_REMOVED, &record))
                   : kNothing;
    }
    return kFailed;
}

struct EventText {
    std::string_view keyword;
    const char *(*execute)(char *text) noexcept;
};

constexpr EventText kEventTexts[] = {
    {"newUSBdevice", newDevice},
    {"removeUSBdevice", removedDevice},
    {"changeStateUSBdevice", changedState},
    {"ignoreUSBdevice", refusedDevice},
};

// ---- The control word ----

/// Another program takes over the events. It receives them even if the service refuses, because it takes the socket path.
const char *handOver() noexcept
{
    const uintptr_t number = kvo_hws::supersedeActivations();
    const int32_t result = kvo_hws::Request(kvo_hws::kSilent).send("deactivateUSBEvents").on("ok", KVO_HWS_OK).result();
    SendUSBEventCheckNULL_Simple(USB_EVENT_DEACTIVATED);
    // If a newer activation has taken the events back, its own server must keep running.
    if (kvo_hws::clearCallbacks(number)) {
        kvo_hws::suicide().store(1);
    }
    return result == KVO_HWS_OK ? kOk : kFailed;
}

// ---- The connection ----

/// Events are recognised by the beginning of the text, the control word by the whole text.
const char *execute(char *text) noexcept
{
    for (const EventText &event : kEventTexts) {
        if (std::string_view(text).starts_with(event.keyword)) {
            return event.execute(text);
        }
    }
    return std::string_view(text) == "suicide" ? handOver() : kUnknownRequest;
}

const char *receiveAndExecute(int socket) noexcept
{
    LineBuffer line{};
    if (ReadSocket(socket, line.data()) != 1) {
        SendDLLDebugMessage("USB server - received text error");
        return kFailed;
    }
    kvo_hws::debugValues("USB server - received text from client '%s'", line.data());
    return execute(line.data());
}

void serve(const kvo_hws::Descriptor &connection) noexcept
{
    const char *const answer = receiveAndExecute(connection.get());
    kvo_hws::debugValues("USB server - sending text to client '%s'", answer);
    // A failed write is ignored: the client has already closed the connection.
    static_cast<void>(kvo_hws::OutgoingLine(answer).write(connection));
    kvo_hws::pause(kCloseDelay);
}

}  // namespace

void *ConInstThread(void *socket) noexcept
{
    const kvo_hws::NoCancellation wholeLife;
    kvo_hws_detach_thread();
    serve(kvo_hws::Descriptor(static_cast<int>(reinterpret_cast<intptr_t>(socket))));
    if (kvo_hws::suicide().load() != 0) {
        kvo_hws::advanceServer(NOTIFY_RUNNING, NOTIFY_STOP_REQUESTED);
    }
    return nullptr;
}
