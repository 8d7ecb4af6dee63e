// The rules for plugging in and removing devices.
#include "kvosim/plant/usb_ports.h"

#include "common/dotted_address.h"
#include "common/join.h"
#include "kvosim/base/arguments.h"

#include <algorithm>

namespace kvosim {

namespace {

using Devices = std::vector<UsbDevice>;

std::string identsOf(const UsbDevice &device) { return ident2Of(device) + '*' + ident3Of(device); }

/// The quoted identifiers of the devices, separated by commas.
std::string listOf(const Devices &devices)
{
    const auto quoted = [](const UsbDevice &device) { return '"' + identsOf(device) + '"'; };
    return devices.empty() ? "nothing" : tools::join(devices, ", ", quoted);
}

void checkReachable(const Station &station)
{
    if (station.rebooting()) {
        throw tools::Refused(tools::dotted(station.entry.address) +
                             " is rebooting and detects no devices; try again when it is up");
    }
}

Devices::iterator find(const Station &station, const std::string &wanted)
{
    Devices &devices = station.panel.usbDevices;
    const auto matches = [&wanted](const UsbDevice &device) {
        return ident2Of(device) == wanted || ident3Of(device) == wanted || identsOf(device) == wanted;
    };
    const auto found = std::find_if(devices.begin(), devices.end(), matches);
    const std::string what = '"' + wanted + "\" at " + tools::dotted(station.entry.address);
    if (found == devices.end()) {
        throw tools::Refused("no device " + what + "; plugged in there: " + listOf(devices));
    }
    if (std::find_if(found + 1, devices.end(), matches) != devices.end()) {
        throw tools::Refused("several devices match " + what + "; write one of " + listOf(devices));
    }
    return found;
}

}  // namespace

bool usbLocked(const Panel &panel) { return number(split(panel.usbLock, ':').first) != 0U; }

UsbDevice newUsbDeviceFor(const Panel &panel)
{
    UsbDevice device = newUsbDevice(panel.usbDevices);
    if (usbLocked(panel)) {
        static_cast<void>(assign(*findUsbKey("text8"), device, std::string("USB lock")));
    }
    return device;
}

UsbNotification plug(const Station &station, const UsbDevice &device)
{
    checkReachable(station);
    Devices &devices = station.panel.usbDevices;
    if (std::any_of(devices.begin(), devices.end(), [&](const UsbDevice &other) { return sameIdents(device, other); })) {
        throw tools::Refused("a device \"" + identsOf(device) + "\" is already plugged in at " +
                             tools::dotted(station.entry.address) + "; use another ident2 or ident3");
    }
    if (usbLocked(station.panel)) {
        return refuse(station, device);
    }
    devices.push_back(device);
    return {UsbEvent::plugged, station.entry.address, device};
}

UsbNotification refuse(const Station &station, const UsbDevice &device)
{
    checkReachable(station);
    return {UsbEvent::refused, station.entry.address, device};
}

UsbNotification unplug(const Station &station, const std::string &device)
{
    checkReachable(station);
    const auto found = find(station, device);
    UsbNotification notification{UsbEvent::removed, station.entry.address, *found};
    station.panel.usbDevices.erase(found);
    return notification;
}

UsbNotification changeState(const Station &station, const std::string &device, uint32_t state)
{
    checkReachable(station);
    const auto found = find(station, device);
    found->source.state = state;
    return {UsbEvent::stateChanged, station.entry.address, *found};
}

std::string connectorsOf(const Panel &panel)
{
    std::string list = panel.usbConnectors;
    for (const UsbDevice &device : panel.usbDevices) {
        tools::appendTo(list, " ", connectorOf(device));
    }
    return list;
}

}  // namespace kvosim
