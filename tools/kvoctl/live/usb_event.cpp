// Names the fields of the library's records, in the order in which the daemon sends them.
#include "kvoctl/live/usb_event.h"

#include "common/join.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace kvoctl {

namespace {

std::string hexadecimal(unsigned number, int digits)
{
    char text[sizeof "0xFFFFFFFF"];
    std::snprintf(text, sizeof text, "0x%0*X", digits, number);
    return text;
}

Value bits(unsigned number, int digits) { return {number, hexadecimal(number, digits)}; }

template <std::size_t Size>
Value text(const char (&member)[Size])
{
    return {std::string(member, strnlen(member, Size))};
}

/// The bytes in the format of the wire: pairs of digits with spaces between them.
template <std::size_t Size>
Value bytes(const uint8_t (&member)[Size])
{
    Value value{Document::array()};
    for (const uint8_t byte : member) {
        value.document.push_back(byte);
        tools::appendTo(value.shownAs, " ", hexadecimal(byte, 2).substr(2));
    }
    return value;
}

/// The fields with which all records begin.
template <class Record>
Fields commonFields(const Record &record)
{
    return {{"ip_address", text(record.ipAddress)}, {"ident2", text(record.ident2)}, {"ident3", text(record.ident3)}};
}

Fields operator+(Fields first, const Fields &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Fields newDevice(const UsbDeviceInfo &device)
{
    return commonFields(device) + Fields{{"text4", text(device.text4)},           {"text5", text(device.text5)},
                                         {"text6", text(device.text6)},           {"text7", text(device.text7)},
                                         {"number1", {device.number1}},           {"number2", {device.number2}},
                                         {"flag_word", bits(device.flagWord, 8)}, {"flag_bits", bits(device.flagBits, 1)}};
}

/// The member noText5 is left out: the caller sets it, and it does not describe the device.
Fields olderNewDevice(const UsbDeviceV1 &device)
{
    return commonFields(device) + Fields{{"text4", text(device.text4)}, {"text5", text(device.text5)},
                                         {"text6", text(device.text6)}, {"text7", text(device.text7)},
                                         {"number1", {device.number1}}, {"id1", {device.id1}},
                                         {"bytes", bytes(device.bytes)}};
}

Fields refusedDevice(const UsbDeviceInfo &device)
{
    return commonFields(device) + Fields{{"text4", text(device.text4)}, {"text5", text(device.text5)},
                                         {"text8", text(device.text8)}, {"number1", {device.number1}},
                                         {"number2", {device.number2}}, {"number3", {device.number3}}};
}

std::string wordOf(uint32_t code)
{
    switch (code) {
    case USB_EVENT_ACTIVATED: return "activated";
    case USB_EVENT_DEACTIVATED: return "deactivated";
    case USB_EVENT_BEGIN: return "begin";
    case USB_EVENT_NEW_DEVICE: return "new";
    case USB_EVENT_REMOVED: return "removed";
    case USB_EVENT_STATE: return "state";
    case USB_EVENT_DEVICE_REFUSED: return "refused";
    case USB_EVENT_SERVER_FAILED: return "server_failed";
    case USB_EVENT_REFUSED: return "service_refused";
    case USB_EVENT_NO_SERVICE: return "no_service";
    default: return "unknown";
    }
}

Fields fieldsOf(const UsbEventV2 &event)
{
    switch (event.code) {
    case USB_EVENT_NEW_DEVICE: return newDevice(event.payload.device);
    case USB_EVENT_REMOVED: return commonFields(event.payload.removed);
    case USB_EVENT_STATE: return commonFields(event.payload.state) + Fields{{"state", {event.payload.state.state}}};
    case USB_EVENT_DEVICE_REFUSED: return refusedDevice(event.payload.device);
    default: return {};
    }
}

Fields fieldsOf(uint32_t code, const void *record)
{
    switch (code) {
    case USB_EVENT_NEW_DEVICE: return olderNewDevice(*static_cast<const UsbDeviceV1 *>(record));
    case USB_EVENT_REMOVED: return commonFields(*static_cast<const UsbRemoveInfo *>(record));
    default: return {};
    }
}

}  // namespace

bool UsbEvent::isEnd() const noexcept
{
    return code == USB_EVENT_DEACTIVATED || code == USB_EVENT_SERVER_FAILED || code == USB_EVENT_REFUSED ||
           code == USB_EVENT_NO_SERVICE;
}

UsbEvent usbEvent(const UsbEventV2 &event) { return {wordOf(event.code), event.code, fieldsOf(event)}; }

UsbEvent usbEvent(uint32_t code, const void *record) { return {wordOf(code), code, fieldsOf(code, record)}; }

Event UsbEvent::toEvent() const { return {word, Fields{{"code", {code}}} + fields}; }

}  // namespace kvoctl
