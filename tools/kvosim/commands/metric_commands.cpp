// Commands for the metrics and the manufacturer of a station's panel.
#include "kvosim/commands/command_table.h"

namespace kvosim {

namespace {

std::string getOemLayout(const StationCall &call)
{
    return call.panel().oemLayout.empty() ? std::string(kNoValue) : "panel-oem-layout=" + call.panel().oemLayout;
}

/// Unlike other commands, it has different replies for an unknown station and for a malformed request.
std::string isMarovantiPanel(ServiceContext &context, std::string_view argument)
{
    const auto address = eightDigits(argument);
    if (!address) {
        return kFailed;
    }
    const auto station = findReachable(context.plant, *address);
    return station ? "is-Marovanti-Panel=" + std::to_string(station->panel.marovanti) : kNotFound;
}

}  // namespace

std::span<const Command> metricCommands()
{
    static const Command rows[] = {
        {"getPaneOemLayout=", onStationWithoutValues(getOemLayout)},  // the misspelling is part of the protocol
        {"getSoftkeyType=", returnsKey("softkey-type=", "softkey_type", Form::hexadecimal)},
        {"getKeyBoardCaps=", returnsKey("keyboard-caps=", "keyboard_caps", Form::hexadecimal)},
        {"getHardwareCaps=", returnsKey("hardware-caps=", "hardware_caps", Form::hexadecimal)},
        {"getPanelRotation=", returnsKey("panel-rotation=", "panel_rotation")},
        {"isMarovantiPanel ", isMarovantiPanel},
    };
    return rows;
}

}  // namespace kvosim
