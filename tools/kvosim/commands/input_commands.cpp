// Commands for a station's input devices, its touch screen and its display.
#include "kvosim/commands/command_table.h"

#include "common/join.h"

namespace kvosim {

namespace {

constexpr const char *kNoTouchScreen = "no_touchscreen";

/// The reply omits a device if the plant gives no value for it.
std::string showInputDevice(const StationCall &call)
{
    std::string reply;
    for (const std::string_view device : {"kbd", "mouse", "touch", "multitouch", "maxcontacts", "vkbd"}) {
        const Value count = read(stationKey(device), call.station);
        if (const auto *number = std::get_if<int64_t>(&count)) {
            tools::appendTo(reply, " ", device);
            reply.append("=").append(std::to_string(*number));
        }
    }
    return reply;
}

std::string getCalibParam(const StationCall &call)
{
    const Panel &panel = call.panel();
    if (!panel.hasTouchScreen()) {
        return kNoTouchScreen;
    }
    return "press_thresh=" + std::to_string(panel.pressThreshold) + " nonlinear=" + std::to_string(panel.nonlinear);
}

std::string setCalibParam(const StationCall &call)
{
    if (!call.panel().hasTouchScreen()) {
        return kNoTouchScreen;
    }
    const auto [first, second] = split(unquoted(call.values).value_or(""), ':');
    const auto threshold = number<int32_t>(first);
    const auto nonlinear = number<int32_t>(second);
    if (!threshold || !nonlinear || *threshold < -1 || *nonlinear < -1 || *nonlinear > 1) {
        return kFailed;
    }
    call.panel().pressThreshold = *threshold;
    call.panel().nonlinear = *nonlinear;
    return kOk;
}

/// -1 means the driver's own value.
std::string invalidateTouch(const StationCall &call)
{
    if (!call.panel().hasTouchScreen()) {
        return kNoTouchScreen;
    }
    call.panel().pressThreshold = -1;
    call.panel().nonlinear = -1;
    return kOk;
}

}  // namespace

std::span<const Command> inputCommands()
{
    static const Command rows[] = {
        {"showInputDevice=", onStationWithoutValues(showInputDevice)},
        {"getCalibParam=", onStationWithoutValues(getCalibParam)},
        {"setCalibParam=", onStation(setCalibParam)},
        {"invalidateTouch=", onStationWithoutValues(invalidateTouch)},
        {"showDPI=", returnsKey("dpi=", "dpi")},
    };
    return rows;
}

}  // namespace kvosim
