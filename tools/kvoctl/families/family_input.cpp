// Subcommands about a station's input devices and display, and its touch screen.
#include "kvoctl/command_line/station_commands.h"
#include "kvoctl/families/families.h"

#include <kvo_hws/requests.h>

namespace kvoctl {

namespace {

// ---- kvoctl input devices ----

/// The initial value of a count. The library leaves it unchanged if the service does not report the count. It cannot be a real
/// count: no station has so many devices.
constexpr uint32_t kNotReported = 0xFFFFFFFF;

Value number(uint32_t value) { return Value{value == kNotReported ? Document(nullptr) : Document(value)}; }

template <class... Counts>
tools::Reader counts(Request<uint32_t, Counts *...> request)
{
    return [request](uint32_t station) -> Reading {
        std::tuple<Counts...> values{Counts{kNotReported}...};
        const Result result = std::apply([&](Counts &...value) { return request(station, &value...); }, values);
        return {result, std::apply([](Counts... value) { return std::vector<Value>{number(value)...}; }, values)};
    };
}

const Property kDevicesV1{{"keyboards", "mice", "touch"}, counts(KVO_REQUEST(KVO_HWS_showInputDevice))};
const Property kDevicesV2{{"keyboards", "mice", "touch", "virtual_keyboards"}, counts(KVO_REQUEST(KVO_HWS_showInputDeviceV2))};

Action setUpDevices(CLI::App &command)
{
    const auto station = addStation(command);
    auto *first = addFlag(command, "--v1", "Use the first version of the request: one number for touch devices of both kinds");
    auto *second = addFlag(command, "--v2", "Use the second version of the request: with virtual keyboards");
    first->excludes(second);
    return [=] {
        const Property &property = first->count() > 0    ? kDevicesV1
                                   : second->count() > 0 ? kDevicesV2
                                                         : tools::stationProperty("input devices");
        return show(property, stationAddress(*station));
    };
}

}  // namespace

void addInputCommands(CommandLine &commandLine)
{
    Family input(commandLine, kOneStationHeading, "input", "A station's input devices and display");
    input.add("devices", "Count the station's input devices", {"10.0.0.5", "10.0.0.5 --v1"}, setUpDevices);
    input.add("dpi", "Show the resolution of the station's display in dots per inch", {"10.0.0.5"}, showCommand("input dpi"));

    Family touch(commandLine, kOneStationHeading, "touch", "A station's touch screen");
    touch.add("calibration", "Show or set the calibration: the press threshold and the nonlinear mode",
              {"10.0.0.5", "10.0.0.5 40 1", "10.0.0.5 -1 -1"},
              settingCommand("touch calibration", KVO_REQUEST(KVO_HWS_setTouchScreenCalibParam),
                             Number<int32_t>{"THRESHOLD", "-1 or more; omit it to show the calibration", -1},
                             Number<int32_t>{"NONLINEAR", "-1, 0 or 1", -1, 1}));
    touch.add("invalidate", "Discard the calibration", {"10.0.0.5"},
              requestCommand(KVO_REQUEST(KVO_HWS_invalidateTouchScreen)));
}

}  // namespace kvoctl
