// The daemon's event texts about one USB device with a value in every field, and their delivery.
#pragma once

#include "support/usb_events.h"

#include <kvo_hws/codecs.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <memory>
#include <string>

namespace kvoctl_test {

inline UsbDeviceSource deviceSource()
{
    UsbDeviceSource device{};
    const auto fill = [](auto &member, std::string_view text) { text.copy(member, sizeof member); };
    fill(device.ipAddress, "10.0.0.5");
    fill(device.ident2, "Portal mill");
    fill(device.ident3, "1-1.2");
    fill(device.text4, "Stick \"A\"");
    fill(device.text5, "");
    fill(device.text6, "Maker");
    fill(device.text7, "C:\\Stick");
    fill(device.text8, "too much current");
    device.number1 = 1000;
    device.number2 = 4000000000;
    device.number3 = 0x1F;
    device.id1 = 1;
    device.id2 = 0x0A02;
    device.bytes[0] = 0x77;
    return device;
}

inline std::string taken(char *text) { return std::unique_ptr<char, decltype(&std::free)>(text, &std::free).get(); }

inline std::string newText(const UsbDeviceSource &device = deviceSource())
{
    const UsbDaemonContext reporting{1};
    return taken(ConvertUSBDeviceNew2Cmd(&reporting, &device));
}

inline std::string refusedText(const UsbDeviceSource &device = deviceSource())
{
    return taken(ConvertUSBDeviceIM2Cmd(&device));
}

inline std::string stateText(uint32_t state)
{
    UsbDeviceSource device = deviceSource();
    device.state = state;
    return taken(ConvertUSBDeviceCS2Cmd(&device));
}

inline std::string removedText()
{
    UsbStationRecord station{};
    station.address = inet_addr("10.0.0.5");
    std::string_view("Portal mill").copy(station.text, sizeof station.text);
    return taken(ConvertUSBDeviceRemove2Cmd(&station, "1-1.2"));
}

/// The watching program's answer to an event: "ok" or "failed".
inline std::string deliver(const std::string &text)
{
    const std::string answer = support::usbServerReply(text + "\n");
    return answer.substr(0, answer.find('\n'));
}

}  // namespace kvoctl_test
