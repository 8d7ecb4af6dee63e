// The state of one station: the settings of its panel, the connected devices, and what it displays.
#pragma once

#include "kvosim/plant/plant_clock.h"
#include "kvosim/plant/usb_device.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvosim {

/// A number for which the plant may give no value.
using OptionalNumber = std::optional<int64_t>;

/// All members except the last two are keys of plant files; station_keys.cpp has their names and ranges.
struct Panel {
    // The panel itself
    int64_t brightness = 1;  ///< 0 dark, 1 bright
    int64_t backlight = 1;   ///< 0 off, 1 on
    int64_t backlightModes = 2;
    int64_t backlightBrightness = 100;  ///< percent, in mode 0
    int64_t backlightBrightnessMode1 = 100;
    int64_t disableNumLock = 0;
    int64_t disableCapsLock = 0;
    int64_t swCapsLock = 0;
    int64_t stationType = 0;
    int64_t handheld = 0;
    int64_t rv4Mode = 0;
    int64_t marovanti = 1;

    // Addresses; 0 means none
    int64_t mcpAddress = 0;
    int64_t dckAddress = 0;
    int64_t kvoIndex = 0;
    int64_t dckEnable = 0;
    int64_t cksIndex = 0;
    int64_t cksFixed = 0;
    std::string simulatedMcpKey;
    std::string enabledMcpKey;

    // Viewer, status line and reboot
    std::string viewer;  ///< "server:display" while it runs
    int64_t viewerBusy = 0;
    std::string statusLine;
    int64_t statusValue1 = 0;
    int64_t statusValue2 = 0;
    int64_t rebootTime = 0;  ///< ms

    // Focus, startup and channels
    int64_t focusBusy = 0;
    std::string priority;
    int64_t startupActive = 0;
    int64_t startupPrio = 0;
    int64_t channelOnFocus = 1;
    std::string screenOnFocus;
    std::string t2m2n;
    std::string channelInfo;

    // Input devices and touch screen
    OptionalNumber keyboards = 1;
    OptionalNumber mice = 1;
    OptionalNumber touchScreens = 1;
    OptionalNumber multiTouchScreens = 0;
    OptionalNumber maxContacts;
    OptionalNumber virtualKeyboards = 0;
    int64_t pressThreshold = -1;
    int64_t nonlinear = -1;

    // USB
    std::string usbLock = "0:0";
    std::string usbConnectors;
    int64_t usbScanning = 0;

    // Metrics
    std::string oemLayout;
    OptionalNumber softkeyType;
    OptionalNumber keyboardCaps;
    OptionalNumber dpi;
    OptionalNumber hardwareCaps;
    OptionalNumber rotation;

    std::vector<UsbDevice> usbDevices;  ///< the devices that are plugged in
    PlantClock::TimePoint rebootsUntil{};

    /// @p clock is that of the plant.
    [[nodiscard]] bool rebooting(const PlantClock &clock) const { return clock.now() < rebootsUntil; }
    [[nodiscard]] bool hasTouchScreen() const { return touchScreens.value_or(0) + multiTouchScreens.value_or(0) > 0; }
};

}  // namespace kvosim
