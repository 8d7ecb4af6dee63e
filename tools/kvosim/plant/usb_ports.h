// Plugging in and removing USB devices of a station. Each function that does so returns the notification for the program that
// receives USB events. If a change is impossible, it throws Refused and changes nothing.
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

/// Whether the station refuses devices: the first number of its USB lock is not 0.
bool usbLocked(const Panel &panel);

/// A device with default values that can be plugged in.
UsbDevice newUsbDeviceFor(const Panel &panel);

/// Plugs in a device. While the USB lock is set, the device is refused and not plugged in.
UsbNotification plug(const Station &station, const UsbDevice &device);
/// Reports a device that the station refuses.
UsbNotification refuse(const Station &station, const UsbDevice &device);

// A plugged device is named by its ident2, its ident3, or by "IDENT2*IDENT3" if neither is unique.
UsbNotification unplug(const Station &station, const std::string &device);
UsbNotification changeState(const Station &station, const std::string &device, uint32_t state);

/// All connectors as in the connector lists: those of the key usb_connectors, then those of plugged devices.
std::string connectorsOf(const Panel &panel);

}  // namespace kvosim
