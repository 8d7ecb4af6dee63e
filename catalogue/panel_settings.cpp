// The settings of a station's panel.
#include "catalogue/catalogue.h"

#include <kvo_hws/requests.h>

namespace catalogue {

namespace {

const char *const kInvalidLevel = "invalid backlight brightness level (0 ... 100)";
const char *const kUnsupportedMode = "unsupported backlight brightness mode (0 ... 1)";
const char *const kUnknown = "unknown error sending request";

std::vector<Request> brightness()
{
    return {
        CATALOGUE_REQUEST(KVO_HWS_setBacklightBrightness, "set backlight brightness")
            .asks("setBacklightBrightness=40 0A000005", {station, 40})
            .on("ok", 1)
            .sends("setBacklightBrightness=0 0A000005", {station, 0})
            .sends("setBacklightBrightness=100 0A000005", {station, 100})
            .refuses({station, 101}, -3, kInvalidLevel)
            .refuses({station, 0xFFFFFFFF}, -3, kInvalidLevel)
            .soak({1, -1, -2, -3})
            .kvoctl("panel brightness", {kHere, "40"})
            .wire("`setBacklightBrightness=`*number* *station*", "`ok`, `failed`",
                  "sets the brightness of the backlight in mode 0, 0 to 100 percent")
            .cpp("Station::set_backlight_brightness")
            .python("Panel.set_backlight_brightness"),

        CATALOGUE_REQUEST(KVO_HWS_setBacklightBrightnessV2, "set backlight brightness V2")
            .asks("setBacklightBrightnessV2=40 1 0A000005", {station, 40, 1})
            .on("ok", 1)
            .on("bad request", -5, kUnsupportedMode)
            .on("not active", -6, "backlight not active")
            .unknown("bad request ")
            .sends("setBacklightBrightnessV2=100 0 0A000005", {station, 100, 0})
            .refuses({station, 101, 0}, -3, kInvalidLevel)
            .refuses({station, 101, 2}, -3, kInvalidLevel)
            .refuses({station, 100, 2}, -4, kUnsupportedMode)
            .soak({1, -1, -2, -3, -4, -5, -6})
            .kvoctl("panel brightness-v2", {kHere, "1", "40"})
            .wire("`setBacklightBrightnessV2=`*number* *mode* *station*", "`ok`, `bad request`, `not active`, `failed`",
                  "sets the brightness in a mode; `bad request` if the station does not know the mode, `not active` while the "
                  "backlight is off")
            .cpp("Station::set_backlight_brightness_v2")
            .python("Panel.set_backlight_brightness"),

        // The null check logs under the setter's label and returns -3; "failed" is an unknown reply here.
        CATALOGUE_REQUEST(KVO_HWS_getBacklightBrightnessV2, "get backlight brightness V2")
            .asks("getBacklightBrightnessV2=0 0A000005", {station, out, 0})
            .on("backlight-brightness-v2=55", 1, {55})
            .on("backlight-brightness-v2=55x", 1, {55})
            .on("backlight-brightness-v2=4000", 1, {4000})
            .on("backlight-brightness-v2=055", 1, {55})
            .on("backlight-brightness-v2=x", 1, {0})
            .on("backlight-brightness-v2=", -1, kUnknown)
            .on("bad request", 0)
            .failedIs(-1, kUnknown)
            .on("backlight-brightness-v2=1", 1, {1})
            .given({"getBacklightBrightnessV2=1 0A000005"}, {station, out, 1})
            .refuses({station, nullptr, 2}, -3, "invalid pointer", "set backlight brightness V2")
            .refuses({station, out, 2}, -4, kUnsupportedMode)
            .soak({1, 0, -1, -2, -3, -4})
            .kvoctl("panel brightness-v2", {kHere, "0"})
            .shows("backlight-brightness-v2=55", "55\n", R"({"brightness_v2": 55})")
            .wire("`getBacklightBrightnessV2=`*mode* *station*", "`backlight-brightness-v2=`*number*, `bad request`, `failed`",
                  "returns the brightness in a mode; `bad request` if the station does not know the mode")
            .cpp("Station::backlight_brightness_v2")
            .python("Panel.get_backlight_brightness"),
    };
}

std::vector<Request> keys()
{
    return {
        CATALOGUE_REQUEST(KVO_HWS_setDisableNumLock, "set disable NumLock")
            .asks("setDisableNumLock=1 0A000005", {station, 1})
            .on("ok", 1)
            .sends("setDisableNumLock=0 0A000005", {station, 0})
            .refuses({station, 2}, -1, "invalid mode [0|1]")
            .soak({1, -1, -2})
            .kvoctl("panel numlock", {kHere, "disabled"})
            .wire("`setDisableNumLock=0 `*station*, `setDisableNumLock=1 `*station*", "`ok`, `failed`",
                  "disables (1) or enables (0) the NumLock key")
            .cpp("Station::set_disable_num_lock")
            .python("Panel.set_disable_num_lock"),

        CATALOGUE_REQUEST(KVO_HWS_setDisableCapsLock, "set disable CapsLock")
            .asks("setDisableCapsLock=1 0A000005", {station, 1})
            .on("ok", 1)
            .sends("setDisableCapsLock=0 0A000005", {station, 0})
            .refuses({station, 2}, -1, "invalid mode [0|1]")
            .soak({1, -1, -2})
            .kvoctl("panel capslock", {kHere, "disabled"})
            .wire("`setDisableCapsLock=0 `*station*, `setDisableCapsLock=1 `*station*", "`ok`, `failed`",
                  "disables (1) or enables (0) the CapsLock key")
            .cpp("Station::set_disable_caps_lock")
            .python("Panel.set_disable_caps_lock"),

        CATALOGUE_REQUEST(KVO_HWS_getDisableNumLock, "get disable NumLock")
            .asks("getDisableNumLock=0A000005", {station, out})
            .on("disable numlock 0", 1, {0})
            .on("disable numlock 1", 1, {1})
            .unknown("disable numlock 2")
            .unknown("disable numlock 1 ")
            .unknown("diable numlock 1")
            .nullPointer({station, nullptr})
            .soak({1, -1, -2})
            .kvoctl("panel numlock", {kHere})
            .shows("disable numlock 0", "enabled\n", R"({"numlock": "enabled"})")
            .shows("disable numlock 1", "disabled\n", R"({"numlock": "disabled"})")
            .wire("`getDisableNumLock=`*station*", "`disable numlock 0`, `disable numlock 1`, `failed`",
                  "returns 1 if the NumLock key is disabled")
            .cpp("Station::disable_num_lock")
            .python("Panel.get_disable_num_lock"),

        // "diable" is the daemon's spelling; the correct spelling is an unknown reply.
        CATALOGUE_REQUEST(KVO_HWS_getDisableCapsLock, "get disable CapsLock")
            .asks("getDisableCapsLock=0A000005", {station, out})
            .on("diable capslock 0", 1, {0})
            .on("diable capslock 1", 1, {1})
            .unknown("disable capslock 1")
            .nullPointer({station, nullptr})
            .soak({1, -1, -2})
            .kvoctl("panel capslock", {kHere})
            .shows("diable capslock 1", "disabled\n", R"({"capslock": "disabled"})")
            .wire("`getDisableCapsLock=`*station*", "`diable capslock 0`, `diable capslock 1`, `failed`",
                  "returns 1 if the CapsLock key is disabled; the keyword of the reply really is `diable`, and clients know "
                  "no other spelling")
            .cpp("Station::disable_caps_lock")
            .python("Panel.get_disable_caps_lock"),

        CATALOGUE_REQUEST(KVO_HWS_getSwCapsLock, "get Sw CapsLock")
            .asks("getSwCapsLock=0A000005", {station, out})
            .on("swcapslock 0", 1, {0})
            .on("swcapslock 1", 1, {1})
            .on("swcapslock -1", 1, {-1})
            .unknown("swcapslock 2")
            .nullPointer({station, nullptr})
            .soak({1, -1, -2})
            .kvoctl("panel sw-capslock", {kHere})
            .shows("swcapslock -1", "-1\n", R"({"sw_capslock": -1})")
            .wire("`getSwCapsLock=`*station*", "`swcapslock -1`, `swcapslock 0`, `swcapslock 1`, `failed`",
                  "returns the software CapsLock state")
            .cpp("Station::sw_caps_lock")
            .python("Panel.get_sw_caps_lock"),

        CATALOGUE_REQUEST(KVO_HWS_setSwCapsLock, "set Sw CapsLock")
            .asks("setSwCapsLock=-1 0A000005", {station, -1})
            .on("ok", 1)
            .sends("setSwCapsLock=0 0A000005", {station, 0})
            .sends("setSwCapsLock=1 0A000005", {station, 1})
            .refuses({station, -2}, -1, "invalid mode [0|1|-1]")
            .refuses({station, 2}, -1, "invalid mode [0|1|-1]")
            .soak({1, -1, -2})
            .kvoctl("panel sw-capslock", {kHere, "-1"})
            .wire("`setSwCapsLock=`*n* *station*", "`ok`, `failed`", "sets the software CapsLock state; *n* is -1, 0 or 1")
            .cpp("Station::set_sw_caps_lock")
            .python("Panel.set_sw_caps_lock"),
    };
}

std::vector<Request> kindsAndModes()
{
    return {
        // A null pointer is also reported on standard error.
        CATALOGUE_REQUEST(KVO_HWS_getStationType, "get Station Type")
            .asks("getStationType=0A000005", {station, out})
            .on("stationtype 0", 1, {0})
            .on("stationtype 1", 1, {1})
            .on("stationtype -1", 1, {-1})
            .unknown("stationtype 2")
            .nullPointer({station, nullptr})
            .prints("pimode == NULL\n")
            .soak({1, -1, -2})
            .kvoctl("panel type", {kHere})
            .shows("stationtype -1", "-1\n", R"({"type": -1})")
            .shows("stationtype 1", "1\n", R"({"type": 1})")
            .wire("`getStationType=`*station*", "`stationtype -1`, `stationtype 0`, `stationtype 1`, `failed`",
                  "returns the station's type")
            .cpp("Station::station_type")
            .python("Panel.get_station_type"),

        // The number is stored before the check.
        CATALOGUE_REQUEST(KVO_HWS_getRV4Mode, "get RV4 mode")
            .asks("getRV4Mode=0A000005", {station, out})
            .on("rv4mode=0", 1, {0})
            .on("rv4mode=1", 1, {1})
            .on("rv4mode=7", 1, {7})
            .on("rv4mode=", 1, {0})
            .on("rv4mode=1 ", -1, {1}, "can not parse RV4 mode string")
            .on("rv4mode=x", -1, {0}, "can not parse RV4 mode string")
            .on("not_a_rv4", 0, "not a RV4")
            .nullPointer({station, nullptr})
            .soak({1, 0, -1, -2})
            .kvoctl("panel rv4-mode", {kHere})
            .shows("rv4mode=1", "individual\n", R"({"rv4_mode": "individual"})")
            .shows("rv4mode=7", "7\n", R"({"rv4_mode": 7})")
            .wire("`getRV4Mode=`*station*", "`rv4mode=`*number*, `not_a_rv4`, `failed`",
                  "returns the mode of the handheld terminal (type RV4), 0 auto or 1 individual; `not_a_rv4` if the station "
                  "has none")
            .cpp("Station::rv4_mode")
            .python("Panel.get_handheld_mode"),

        CATALOGUE_REQUEST(KVO_HWS_setRV4Mode, "set RV4 mode")
            .asks("setRV4Mode=\"1\" 0A000005", {station, 1})
            .on("ok", 1)
            .on("not_a_rv4", 0, "not a RV4")
            .sends("setRV4Mode=\"0\" 0A000005", {station, 0})
            .refuses({station, 2}, -3, "invalid parameter (0 \"auto\" or 1 \"individual\")")
            .soak({1, 0, -1, -2, -3})
            .kvoctl("panel rv4-mode", {kHere, "individual"})
            .wire("`setRV4Mode=\"0\" `*station*, `setRV4Mode=\"1\" `*station*", "`ok`, `not_a_rv4`, `failed`",
                  "sets the mode of the handheld terminal, 0 auto or 1 individual; `not_a_rv4` if the station has none")
            .cpp("Station::set_rv4_mode")
            .python("Panel.set_handheld_mode"),
    };
}

}  // namespace

Family panelSettings() { return {"panel_settings", joined({brightness(), keys(), kindsAndModes()})}; }

}  // namespace catalogue
