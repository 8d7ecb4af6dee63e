// Commands for the settings of a station's panel.
#include "kvosim/commands/command_table.h"

namespace kvosim {

namespace {

constexpr const char *kNoHandheld = "not_a_rv4";

/// The key for the brightness of a backlight mode; null if the station does not have the mode.
const StationKey *levelKey(const Panel &panel, std::string_view mode)
{
    const auto value = number(mode);
    if (!value || int64_t{*value} >= panel.backlightModes) {
        return nullptr;
    }
    return &stationKey(*value == 0 ? "backlight_brightness" : "backlight_brightness_mode1");
}

std::string setBacklightBrightnessV2(const StationCall &call)
{
    const auto [level, mode] = split(call.values, ' ');
    const auto value = number<int64_t>(level);
    if (!value || !number(mode)) {
        return kFailed;
    }
    const StationKey *key = levelKey(call.panel(), mode);
    if (key == nullptr) {
        return kBadRequest;
    }
    if (call.panel().backlight == 0) {
        return "not active";
    }
    return assign(*key, call.station, *value).empty() ? kOk : kFailed;
}

std::string getBacklightBrightnessV2(const StationCall &call)
{
    if (!number(call.values)) {
        return kFailed;
    }
    const StationKey *key = levelKey(call.panel(), call.values);
    return key == nullptr ? kBadRequest
                          : "backlight-brightness-v2=" + std::to_string(std::get<int64_t>(read(*key, call.station)));
}

/// A command for the handheld terminal of a station. Not every station has one.
Handler onHandheld(const Handler &handle)
{
    return [handle](ServiceContext &context, std::string_view arguments) -> std::string {
        const auto check = onStation([](const StationCall &call) { return call.panel().handheld == 0 ? kNoHandheld : kOk; });
        const std::string checked = check(context, arguments);
        return checked == kOk ? handle(context, arguments) : checked;
    };
}

}  // namespace

std::span<const Command> panelCommands()
{
    static const Command rows[] = {
        {"setBrightness=", setsKey("brightness")},
        {"setBacklightBrightness=", setsKey("backlight_brightness")},
        {"setBacklightBrightnessV2=", onStation(setBacklightBrightnessV2)},
        {"getBacklightBrightnessV2=", onStation(getBacklightBrightnessV2)},
        {"setDisableNumLock=", setsKey("disable_num_lock")},
        {"getDisableNumLock=", returnsKey("disable numlock ", "disable_num_lock")},
        {"setDisableCapsLock=", setsKey("disable_caps_lock")},
        {"getDisableCapsLock=",
         returnsKey("diable capslock ", "disable_caps_lock")},  // the misspelling is part of the protocol
        {"getStationType=", returnsKey("stationtype ", "station_type")},
        {"setSwCapsLock=", setsKey("sw_caps_lock")},
        {"getSwCapsLock=", returnsKey("swcapslock ", "sw_caps_lock")},
        {"setRV4Mode=", onHandheld(setsKey("rv4_mode", Quotes::around))},
        {"getRV4Mode=", onHandheld(returnsKey("rv4mode=", "rv4_mode"))},
    };
    return rows;
}

}  // namespace kvosim
