// A USB event or status of the library as kvoctl shows it: a word and the named fields of its record.
#pragma once

#include "kvoctl/live/event.h"

#include <kvo_hws/usbevents.h>

#include <cstdint>
#include <string>

namespace kvoctl {

struct UsbEvent {
    std::string word;
    uint32_t code;
    Fields fields{};

    /// Whether it is about a device rather than the state of the activation.
    [[nodiscard]] bool isDeviceEvent() const noexcept { return !fields.empty(); }
    /// Whether it is the last event of the activation.
    [[nodiscard]] bool isEnd() const noexcept;
    /// The event to show, with the code as its first field.
    [[nodiscard]] Event toEvent() const;
};

/// For the newer callback.
UsbEvent usbEvent(const UsbEventV2 &event);
/// For the older callback.
UsbEvent usbEvent(uint32_t code, const void *record);

/// The prefix of the environment variables of a program that is run for an event.
inline constexpr const char *kUsbVariablePrefix = "KVO_USB_";

}  // namespace kvoctl
