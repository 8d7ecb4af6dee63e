// A USB device of the plant: its fields as plant files, the control socket and the command line use them, and its event texts.
#pragma once

#include "kvosim/base/arguments.h"

#include <kvo_hws/codecs.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace kvosim {

/// A device as the daemon stores it. eventText() sets the station's address in a copy.
struct UsbDevice {
    UsbDeviceSource source{};
    UsbDaemonContext context{};
};

struct UsbTextKey {
    std::span<char> (*member)(UsbDevice &device);
    bool required;  ///< must not be empty
};

struct UsbNumberKey {
    uint32_t highest;
    uint32_t (*get)(const UsbDevice &device);
    void (*set)(UsbDevice &device, uint32_t value);
};

/// The raw bytes, written as hexadecimal digits.
struct UsbBytesKey {};

struct UsbKey {
    std::string_view name;
    std::variant<UsbTextKey, UsbNumberKey, UsbBytesKey> kind;
    std::string_view description;
};

std::span<const UsbKey> usbKeys();
/// Null if the key does not exist.
const UsbKey *findUsbKey(std::string_view name);

/// Returns a number or a text.
Value read(const UsbKey &key, UsbDevice device);
/// Stores a value. Returns an empty text, or what is wrong with the value and what is valid. A number may also be a text,
/// decimal or hexadecimal such as "0x1F".
[[nodiscard]] std::string assign(const UsbKey &key, UsbDevice &device, const Value &value);

/// A device with default values. Its identifiers contain the lowest number that makes both unique among @p others.
UsbDevice newUsbDevice(std::span<const UsbDevice> others);

std::string ident2Of(const UsbDevice &device);
std::string ident3Of(const UsbDevice &device);
/// Whether both identifying texts (ident2 and ident3) are the same.
bool sameIdents(const UsbDevice &one, const UsbDevice &other);

/// The connector of a plugged device: "IDENT3:IDENT2", with "_" instead of characters that the connector list does not allow.
std::string connectorOf(const UsbDevice &device);

// ---- Event texts ----

enum class UsbEvent { plugged, removed, stateChanged, refused };

/// The text of an event as the daemon writes it, without the line end.
std::string eventText(UsbEvent event, uint32_t station, const UsbDevice &device);

}  // namespace kvosim
