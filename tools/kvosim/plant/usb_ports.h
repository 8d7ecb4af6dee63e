// What happens at the USB ports of a station: it changes what is plugged in there, and makes news for the program that has the
// USB events. All functions throw Refused, with nothing changed, where something can not happen.
#pragma once

#include "common/refused.h"
#include "kvosim/plant/plant.h"
#include "kvosim/plant/usb_device.h"

#include <cstdint>
#include <string>

namespace kvosim {

struct UsbNotification {
    UsbEvent event;
    uint32_t station;
    UsbDevice device;

    [[nodiscard]] std::string text() const { return eventText(event, station, device); }
};

/// Whether devices are kept off: the first number of the station's USB lock is not 0.
bool usbLocked(const Panel &panel);

/// A device that could be plugged in, with all defaults.
UsbDevice newUsbDeviceFor(const Panel &panel);

/// A device comes. While the USB lock is set it is refused instead, and not plugged in.
UsbNotification plug(const Station &station, const UsbDevice &device);
/// A device comes and is refused.
UsbNotification refuse(const Station &station, const UsbDevice &device);

// A plugged device is called by its ident2, its ident3, or "IDENT2*IDENT3" where neither is its own.
UsbNotification unplug(const Station &station, const std::string &device);
UsbNotification changeState(const Station &station, const std::string &device, uint32_t state);

/// All connectors as the connector lists tell them: the key usb_connectors, then those that plugged devices make.
std::string connectorsOf(const Panel &panel);

}  // namespace kvosim
