// Commands about what a station's panel is: its metrics and its make.
#include "kvosim/commands/command_table.h"

namespace kvosim {

namespace {

std::string getOemLayout(const StationCall &call)
{
    return call.panel().oemLayout.empty() ? std::string(kUntold) : "panel-oem-layout=" + call.panel().oemLayout;
}

/// Unlike other commands it tells a station that is not there from a request that can not be read.
std::string isMarovantiPanel(ServiceContext &context, std::string_view argument)
{
    const auto address = eightDigits(argument);
    if (!address) {
        return kFailed;
    }
    const auto station = reachable(context.plant, *address);
    return station ? "is-Marovanti-Panel=" + std::to_string(station->panel.marovanti) : kNotFound;
}

}  // namespace

std::span<const Command> metricCommands()
{
    static const Command rows[] = {
        {"getPaneOemLayout=", onStationAlone(getOemLayout)},  // clients ask for it spelt so
        {"getSoftkeyType=", tells("softkey-type=", "softkey_type", Form::hexadecimal)},
        {"getKeyBoardCaps=", tells("keyboard-caps=", "keyboard_caps", Form::hexadecimal)},
        {"getHardwareCaps=", tells("hardware-caps=", "hardware_caps", Form::hexadecimal)},
        {"getPanelRotation=", tells("panel-rotation=", "panel_rotation")},
        {"isMarovantiPanel ", isMarovantiPanel},
    };
    return rows;
}

}  // namespace kvosim
