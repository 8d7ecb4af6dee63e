// A USB event or status of the library as kvoctl shows it: a word, and the fields of its record by their names.
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

    /// Whether it tells of a device, not of how the activation goes.
    [[nodiscard]] bool isOfDevice() const noexcept { return !fields.empty(); }
    /// Whether nothing comes after it.
    [[nodiscard]] bool isEnd() const noexcept;
    /// With the code as its first field.
    [[nodiscard]] Event shown() const;
};

/// Of the newer callback.
UsbEvent usbEvent(const UsbEventV2 &event);
/// Of the older callback.
UsbEvent usbEvent(uint32_t code, const void *record);

/// How the variables of a program that is run for one begin.
inline constexpr const char *kUsbEnvironment = "KVO_USB_";

}  // namespace kvoctl
