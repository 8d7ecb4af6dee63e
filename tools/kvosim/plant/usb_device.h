// A USB device of the plant: its fields as plant files, the control socket and the command line spell them, and the event texts
// that tell of it.
#pragma once

#include "kvosim/base/arguments.h"

#include <kvo_hws/codecs.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace kvosim {

/// As the daemon keeps it; the station's address is set when it is told of.
struct UsbDevice {
    UsbDeviceSource source{};
    UsbDaemonContext context{};
};

struct UsbTextKey {
    std::span<char> (*member)(UsbDevice &device);
    bool needed;  ///< not empty
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
    std::string_view meaning;
};

std::span<const UsbKey> usbKeys();
/// Null when there is no such key.
const UsbKey *findUsbKey(std::string_view name);

/// A number or a text.
Value read(const UsbKey &key, UsbDevice device);
/// Empty when the value was stored; else what is wrong with it, and what would be right. Numbers may be texts, also "0x1F".
[[nodiscard]] std::string assign(const UsbKey &key, UsbDevice &device, const Value &value);

/// A device with the lowest number that tells it apart from @p others at its station.
UsbDevice newUsbDevice(std::span<const UsbDevice> others);

std::string ident2Of(const UsbDevice &device);
std::string ident3Of(const UsbDevice &device);
/// Whether the two texts that tell devices of a station apart are the same.
bool sameIdents(const UsbDevice &one, const UsbDevice &other);

/// The connector that a plugged device makes: "IDENT3:IDENT2", with "_" in place of what the connector list can not hold.
std::string connectorOf(const UsbDevice &device);

// ---- Event texts ----

enum class UsbEvent { plugged, removed, stateChanged, refused };

/// The text of an event, as the daemon writes it, without its line end.
std::string eventText(UsbEvent event, uint32_t station, const UsbDevice &device);

}  // namespace kvosim
