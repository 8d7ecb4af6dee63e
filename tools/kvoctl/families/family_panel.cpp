// Subcommands about panels: the backlight of this panel, and the settings of any station's panel.
#include "kvoctl/command_line/station_commands.h"
#include "kvoctl/families/families.h"
#include "kvoctl/families/panel_page.h"

#include <kvo_hws/requests.h>
#include <kvo_hws/service.h>

namespace kvoctl {

namespace {

constexpr uint32_t kBrightest = 100;

Action setUpBacklight(CLI::App &command)
{
    const auto state = kOnOff.addTo(command);
    state.option->required();
    return [=] { return reportDone(KVO_REQUEST(KVO_HWS_setBacklight)(*state.value)); };
}

// ---- Keys that can be disabled ----

const Word kKeyState{"STATE", "enabled or disabled; omit it to show the state", {{"enabled", 0}, {"disabled", 1}}};

// ---- kvoctl panel brightness-v2 ----

constexpr std::array kBrightnessOfModes{"panel brightness-v2 0", "panel brightness-v2 1"};

Action setUpBrightnessV2(CLI::App &command)
{
    const auto station = addStation(command);
    const auto mode = Number<>{"MODE", "0 or 1", 0, kBrightnessOfModes.size() - 1}.addTo(command);
    mode.option->required();
    const auto level = Number<>{"PERCENT", "0 to 100; omit it to show the brightness", 0, kBrightest}.addTo(command);
    return [=] {
        const uint32_t address = stationAddress(*station);
        Property property = tools::stationProperty(kBrightnessOfModes.at(*mode.value));
        if (level.option->count() > 0) {
            return reportDone(KVO_REQUEST(KVO_HWS_setBacklightBrightnessV2)(address, *level.value, *mode.value));
        }
        property.keys = {"brightness_v2"};
        return show(property, address);
    };
}

}  // namespace

void addPanelCommands(CommandLine &commandLine)
{
    Family alone(commandLine, "Panel");
    alone.add("backlight", "Switch this panel's backlight on or off", {"on", "off"}, setUpBacklight);
    alone.add("brightness", "Make a station's panel bright (on) or dark (off)",
              {"10.0.0.5 on", "0A000005 off", "\"Portal mill\" off"},
              requestCommand(KVO_REQUEST(KVO_HWS_setBrightness), kOnOff));

    Family panel(commandLine, kOneStationHeading, "panel", "A station's panel and settings, and its whole state");
    panel.add("show", "Show everything that can be read from a station", {"10.0.0.5", "\"Portal mill\" --json"},
              panelShowCommand());
    panel.add("type", "Show the station's type: 0, 1 or -1", {"10.0.0.5"}, showCommand("panel type"));
    panel.add("brightness", "Set the brightness of the station's backlight", {"10.0.0.5 80"},
              requestCommand(KVO_REQUEST(KVO_HWS_setBacklightBrightness), Number<>{"PERCENT", "0 to 100", 0, kBrightest}));
    panel.add("brightness-v2", "Show or set the brightness of the station's backlight in one of its modes",
              {"10.0.0.5 0", "10.0.0.5 1 80"}, setUpBrightnessV2);
    panel.add("numlock", "Show whether the NumLock key is enabled, or enable or disable it", {"10.0.0.5", "10.0.0.5 disabled"},
              settingCommand("panel numlock", KVO_REQUEST(KVO_HWS_setDisableNumLock), kKeyState));
    panel.add("capslock", "Show whether the CapsLock key is enabled, or enable or disable it",
              {"10.0.0.5", "10.0.0.5 disabled"},
              settingCommand("panel capslock", KVO_REQUEST(KVO_HWS_setDisableCapsLock), kKeyState));
    panel.add("sw-capslock", "Show or set the software CapsLock state", {"10.0.0.5", "10.0.0.5 1", "10.0.0.5 -1"},
              settingCommand("panel sw-capslock", KVO_REQUEST(KVO_HWS_setSwCapsLock),
                             Number<int32_t>{"STATE", "-1, 0 or 1; omit it to show the state", -1, 1}));
    panel.add("rv4-mode", "Show or set the mode of the station's handheld terminal (type RV4)",
              {"10.0.0.5", "10.0.0.5 individual"},
              settingCommand("panel rv4-mode", KVO_REQUEST(KVO_HWS_setRV4Mode),
                             Word{"MODE", "auto or individual; omit it to show the mode", {{"auto", 0}, {"individual", 1}}}));
    panel.add("marovanti", "Show whether the station's panel is a Marovanti panel", {"10.0.0.5"},
              showCommand("panel marovanti"));
}

}  // namespace kvoctl
