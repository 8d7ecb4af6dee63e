// Subcommands about panels: this one's backlight, a station's brightness.
#include "arguments.h"
#include "families.h"
#include "station_argument.h"

#include <kvo_hws/service.h>

namespace kvoctl {

namespace {

Action setUpBacklight(CLI::App &command)
{
    const auto state = addOnOff(command);
    return [=] { return done(KVO_HWS_setBacklight(*state)); };
}

Action setUpBrightness(CLI::App &command)
{
    const auto station = addStation(command, "IPv4 address (10.0.0.5), eight hexadecimal digits (0A000005) or name");
    const auto state = addOnOff(command);
    return [=] { return done(KVO_HWS_setBrightness(stationAddress(*station), *state)); };
}

}  // namespace

void addPanelCommands(CommandLine &commandLine)
{
    Family panel(commandLine, "Panel");
    panel.add("backlight", "Switch this panel's backlight", {"backlight on", "backlight off"}, setUpBacklight);
    panel.add("brightness", "Make a station's panel bright (on) or dark (off)",
              {"brightness 10.0.0.5 on", "brightness 0A000005 off", "brightness \"Portal mill\" off"}, setUpBrightness);
}

}  // namespace kvoctl
