// Subcommands about panels: this one's backlight, and the settings of a station's panel.
#include "kvoctl/command_line/station_commands.h"
#include "kvoctl/families/families.h"
#include "kvoctl/families/panel_page.h"
#include "kvoctl/output/readers.h"

#include <kvo_hws/requests.h>
#include <kvo_hws/service.h>

namespace kvoctl {

namespace {

constexpr uint32_t kBrightest = 100;

Action setUpBacklight(CLI::App &command)
{
    const auto state = kOnOff.addTo(command);
    state.option->required();
    return [=] { return done(KVO_HWS_setBacklight(*state.value)); };
}

// ---- Keys that can be disabled ----

constexpr std::array kEnabledDisabled{"enabled", "disabled"};
const Word kKeyState{"STATE", "enabled or disabled; without it the state is shown", {{"enabled", 0}, {"disabled", 1}}};

template <class Read, class Write>
Subcommand lockKey(const char *key, Read read, Write write)
{
    return setting({{key}, word(read, kEnabledDisabled)}, write, {}, kKeyState);
}

// ---- kvoctl panel brightness-v2 ----

constexpr uint32_t kModes = 2;

const std::vector<Meaning> kModeUnknown{{KVO_HWS_NO, "the station does not know this mode"},
                                        {KVO_HWS_UNSUPPORTED, "the station does not know this mode"},
                                        {KVO_HWS_NOT_ACTIVE, "the station's backlight is not active"}};

Property brightness(const std::string &key, uint32_t mode)
{
    const auto read = [mode](uint32_t station) -> Reading {
        uint32_t level = 0;
        const int32_t result = KVO_HWS_getBacklightBrightnessV2(station, &level, mode);
        if (result != KVO_HWS_OK) {
            return {result};
        }
        return {result, {Value{level}}};
    };
    return {{key}, read, kModeUnknown};
}

Action setUpBrightnessV2(CLI::App &command)
{
    const auto station = addStation(command);
    const auto mode = Number<>{"MODE", "0 or 1", 0, kModes - 1}.addTo(command);
    mode.option->required();
    const auto level = Number<>{"PERCENT", "0 to 100; without it the brightness is shown", 0, kBrightest}.addTo(command);
    return [=] {
        const uint32_t address = stationAddress(*station);
        return level.option->count() == 0
                   ? show(brightness("brightness_v2", *mode.value), address)
                   : done(KVO_HWS_setBacklightBrightnessV2(address, *level.value, *mode.value), kModeUnknown);
    };
}

Subcommand brightnessV2()
{
    return {setUpBrightnessV2, {brightness("brightness_v2_mode_0", 0), brightness("brightness_v2_mode_1", 1)}};
}

// ---- The others ----

const std::vector<Meaning> kNoTerminal{{KVO_HWS_NO, "the station has no handheld terminal of this type"}};

const std::vector<Meaning> kMarovantiCodes{{KVO_HWS_OUT_OF_RANGE, "the service answered an unknown mode"},
                                           {KVO_HWS_NOT_AVAILABLE, "the panel was not found, or the service failed"},
                                           {KVO_HWS_UNKNOWN_REPLY, "the service answered something unknown"}};

}  // namespace

void addPanelCommands(CommandLine &commandLine)
{
    Family alone(commandLine, "Panel");
    alone.add("backlight", "Switch this panel's backlight", {"on", "off"}, {setUpBacklight});
    alone.add("brightness", "Make a station's panel bright (on) or dark (off)",
              {"10.0.0.5 on", "0A000005 off", "\"Portal mill\" off"}, order(KVO_HWS_setBrightness, {}, kOnOff));

    Family panel(commandLine, kOneStation, "panel", "A station's panel and its settings; the station's whole state");
    panel.add("show", "Show all that can be read of a station", {"10.0.0.5", "\"Portal mill\" --json"},
              stationPage(commandLine));
    panel.add("type", "Show the station's type: 0, 1 or -1", {"10.0.0.5"},
              showing({{"type"}, numbers(KVO_HWS_getStationType)}));
    panel.add("brightness", "Set the brightness of the station's backlight", {"10.0.0.5 80"},
              order(KVO_HWS_setBacklightBrightness, {}, Number<>{"PERCENT", "0 to 100", 0, kBrightest}));
    panel.add("brightness-v2", "Show or set the brightness of the station's backlight in one of its modes",
              {"10.0.0.5 0", "10.0.0.5 1 80"}, brightnessV2());
    panel.add("numlock", "Show whether the NumLock key is enabled, or enable or disable it", {"10.0.0.5", "10.0.0.5 disabled"},
              lockKey("numlock", KVO_HWS_getDisableNumLock, KVO_HWS_setDisableNumLock));
    panel.add("capslock", "Show whether the CapsLock key is enabled, or enable or disable it",
              {"10.0.0.5", "10.0.0.5 disabled"}, lockKey("capslock", KVO_HWS_getDisableCapsLock, KVO_HWS_setDisableCapsLock));
    panel.add("sw-capslock", "Show or set the software CapsLock state", {"10.0.0.5", "10.0.0.5 1", "10.0.0.5 -1"},
              setting({{"sw_capslock"}, numbers(KVO_HWS_getSwCapsLock)}, KVO_HWS_setSwCapsLock, {},
                      Number<int32_t>{"STATE", "-1, 0 or 1; without it the state is shown", -1, 1}));
    panel.add("rv4-mode", "Show or set the mode of the station's handheld terminal (type RV4)",
              {"10.0.0.5", "10.0.0.5 individual"},
              setting({{"rv4_mode"}, word(KVO_HWS_getRV4Mode, std::array{"auto", "individual"}), kNoTerminal},
                      KVO_HWS_setRV4Mode, kNoTerminal,
                      Word{"MODE", "auto or individual; without it the mode is shown", {{"auto", 0}, {"individual", 1}}}));
    panel.add("marovanti", "Tell whether the station's panel is a Marovanti panel", {"10.0.0.5"},
              showing({{"marovanti"}, yesNo(KVO_HWS_isMarovantiPanel), kMarovantiCodes, true}));
}

}  // namespace kvoctl
