// A USB event or status of the library as kvoctl shows it: a word, and the fields of its record by their names.
#pragma once

#include "property.h"

#include <kvo_hws/usbevents.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kvoctl {

/// Texts are the daemon's bytes.
struct UsbEventField {
    std::string key;
    Value value;
};

struct UsbEvent {
    std::string word;
    uint32_t code;
    std::vector<UsbEventField> fields{};

    /// Whether it tells of a device, not of how the activation goes.
    [[nodiscard]] bool isOfDevice() const noexcept { return !fields.empty(); }
    /// Whether nothing comes after it.
    [[nodiscard]] bool isEnd() const noexcept;
};

/// Of the newer callback.
UsbEvent usbEvent(const UsbEventV2 &event);
/// Of the older callback.
UsbEvent usbEvent(uint32_t code, const void *record);

/// One line for people: 'new code=10 ip_address="10.0.0.5" ...'.
std::string textLine(const UsbEvent &event);
/// One line for programs: a JSON object.
std::string jsonLine(const UsbEvent &event);

/// Variables for a program, "KVO_USB_IP_ADDRESS=10.0.0.5", with the texts as they are.
std::vector<std::string> environment(const UsbEvent &event);
/// How they all begin.
inline constexpr const char *kUsbEnvironment = "KVO_USB_";

}  // namespace kvoctl
