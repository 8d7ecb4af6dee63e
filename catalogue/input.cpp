// Touch screen, input devices and display.
#include "catalogue/catalogue.h"

#include <kvo_hws/requests.h>

namespace catalogue {

namespace {

const char *const kNoTouchScreen = "no touch screen available";

std::vector<Request> touchScreen()
{
    const char *const malformed = "can not parse calibration parameter string";
    return {
        CATALOGUE_REQUEST(KVO_HWS_invalidateTouchScreen, "invalidate touch screen")
            .asks("invalidateTouch=0A000005", {station})
            .on("ok", 1)
            .on("no_touchscreen", 0, kNoTouchScreen)
            .kvoctl("touch invalidate", {kHere})
            .wire("`invalidateTouch=`*station*", "`ok`, `no_touchscreen`, `failed`", "discards the touch calibration")
            .cpp("Station::invalidate_touch_screen")
            .python("Panel.invalidate_touch_screen"),

        CATALOGUE_REQUEST(KVO_HWS_setTouchScreenCalibParam, "set touch screen calibration parameter")
            .asks("setCalibParam=\"-1:-1\" 0A000005", {station, -1, -1})
            .on("ok", 1)
            .on("no_touchscreen", 0, kNoTouchScreen)
            .sends("setCalibParam=\"0:0\" 0A000005", {station, 0, 0})
            .sends("setCalibParam=\"2147483647:1\" 0A000005", {station, 2147483647, 1})
            .refuses({station, -2, 0}, -3, "invalid parameter")
            .refuses({station, 0, 2}, -3, "invalid parameter")
            .refuses({station, 0, -2}, -3, "invalid parameter")
            .soak({1, 0, -1, -2})
            .kvoctl("touch calibration", {kHere, "-1", "-1"})
            .wire("`setCalibParam=\"`*n*`:`*n*`\" `*station*", "`ok`, `no_touchscreen`, `failed`",
                  "sets the touch calibration: the press threshold, -1 or more, and nonlinear, -1 to 1")
            .cpp("Station::set_touch_screen_calib_param")
            .python("Panel.set_calibration"),

        // The keys may have any order, with other keys between them. A missing key has the value 0. Values before an error
        // stay stored.
        CATALOGUE_REQUEST(KVO_HWS_getTouchScreenCalibParam, "get touch screen calibration parameter")
            .asks("getCalibParam=0A000005", {station, out, out})
            .takesAnyReply()
            .on("press_thresh=12 nonlinear=-1", 1, {12, -1})
            .on("nonlinear=1 x=y\t press_thresh=-1\r", 1, {-1, 1})
            .on("nonlinear=1", 1, {0, 1})
            .on("failed", 1, {0, 0})
            .on("", 1, {0, 0})
            .on("no_touchscreen", 0, kNoTouchScreen)
            .on("press_thresh=x nonlinear=1", -1, {0, 1}, malformed)
            .on("press_thresh=5 nonlinear=1,", -1, {5, 1}, malformed)
            .on("press_thresh=5,nonlinear=1", -1, {5, 0}, malformed)
            .nullPointer({station, out, nullptr})
            .nullPointer({station, nullptr, out})
            .soak({1, 0, -1, -2})
            .kvoctl("touch calibration", {kHere})
            .shows("press_thresh=40 nonlinear=-1", "press_threshold  40\nnonlinear        -1\n",
                   R"({"press_threshold": 40, "nonlinear": -1})")
            .shows("failed", "press_threshold  0\nnonlinear        0\n", R"({"press_threshold": 0, "nonlinear": 0})")
            .wire("`getCalibParam=`*station*", "`press_thresh=`*n*` nonlinear=`*n*, `no_touchscreen`, `failed`",
                  "returns the touch calibration; -1 means the driver's own value")
            .cpp("Station::touch_screen_calib_param")
            .python("Panel.get_calibration"),
    };
}

const std::string kDevices = "kbd=1 mouse=2 touch=1 multitouch=1 vkbd=0";
const char *const kMalformed = "can not parse input devices string";

// Each newer version has more outputs. Only the third version has separate numbers for both kinds of touch screens.
Request firstGeneration()
{
    return CATALOGUE_REQUEST(KVO_HWS_showInputDevice, "show input device")
        .asks("showInputDevice=0A000005", {station, out, out, out})
        .takesAnyReply()
        .on(kDevices, 1, {1, 2, 2})
        .on("multitouch=3", 1, {nothing, nothing, 3})
        .on("failed", 1, {nothing, nothing, 0})
        .on("", 1, {nothing, nothing, 0})
        .on("\t kbd=1 \t mouse=2  touch=2\r\r", 1, {1, 2, 2})
        .on("kbd= 1", 1, {1, nothing, 0})
        .on("kbd=1,mouse=2", -1, kMalformed)
        .on("kbd=x", -1, kMalformed)
        .on("mouse=x kbd=1", -1, {1}, kMalformed)
        .on("kbd=1 vkbd=x", -1, {1}, kMalformed)  // also for a key that has no output
        .on("kbd=1 kbd=2", 1, {1, nothing, 0})
        .on("kbd=1 multitouch=x", -1, {1}, kMalformed)
        .on("kbd=1 maxcontacts=x", -1, {1}, kMalformed)
        .on("kbd=1\rmouse=2", 1, {1, nothing, 0})
        .nullPointer({station, out, nullptr, out})
        .nullPointer({station, out, out, nullptr})
        .nullPointer({station, nullptr, out, out})
        .kvoctl("input devices", {kHere, "--v1"})
        .shows("mouse=2 touch=1 multitouch=1", "keyboards  -\nmice       2\ntouch      2\n",
               R"({"keyboards": null, "mice": 2, "touch": 2})")
        .wire("`showInputDevice=`*station*", "items, `failed`",
              "returns the numbers of input devices: `kbd=`*n* `mouse=`*n* `touch=`*n* `multitouch=`*n* `maxcontacts=`*n* "
              "`vkbd=`*n*, separated by spaces; any item may be missing")
        .cpp("Station::show_input_device")
        .python("Panel.count_input_devices");
}

Request secondGeneration()
{
    return CATALOGUE_REQUEST(KVO_HWS_showInputDeviceV2, "show input device V2")
        .asks("showInputDevice=0A000005", {station, out, out, out, out})
        .takesAnyReply()
        .on(kDevices, 1, {1, 2, 2, 0})
        .on("vkbd=4", 1, {nothing, nothing, 0, 4})
        .on("kbd=1 vkbd=", -1, {1}, kMalformed)
        .nullPointer({station, nullptr, out, out, out})
        .nullPointer({station, out, nullptr, out, out})
        .nullPointer({station, out, out, nullptr, out})
        .nullPointer({station, out, out, out, nullptr})
        .kvoctl("input devices", {kHere, "--v2"})
        .shows("kbd=1 mouse=0 vkbd=1",
               "keyboards          1\nmice               0\ntouch              0\nvirtual_keyboards  1\n",
               R"({"keyboards": 1, "mice": 0, "touch": 0, "virtual_keyboards": 1})")
        .cpp("Station::show_input_device_v2")
        .python("Panel.count_input_devices_v2");
}

// The mask comes first; every pointer may be null.
Request thirdGeneration()
{
    return CATALOGUE_REQUEST(KVO_HWS_showInputDeviceV3, "show input device V3")
        .asks("showInputDevice=0A000005", {station, out, out, out, out, out, out, out})
        .takesAnyReply()
        .on(kDevices, 1, {0x2F, 1, 2, 1, 1, nothing, 0})
        .on("multitouch=3", 1, {0x08, nothing, nothing, nothing, 3})
        .on("maxcontacts=10", 1, {0x10, nothing, nothing, nothing, nothing, 10})
        .on("failed", 1, {0})
        .on("kbd=1 touch=?", -1, {nothing, 1}, kMalformed)
        .on(kDevices + " maxcontacts=1", 1)
        .given({station, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr})
        .soak({1, -1, -2})
        .kvoctl("input devices", {kHere})
        .shows("kbd=1 mouse=2 touch=1 multitouch=1 maxcontacts=10 vkbd=0",
               "keyboards          1\nmice               2\ntouch              1\nmultitouch         1\n"
               "max_contacts       10\nvirtual_keyboards  0\n",
               R"({"keyboards": 1, "mice": 2, "touch": 1, "multitouch": 1, "max_contacts": 10, "virtual_keyboards": 0})")
        .shows("mouse=2",
               "keyboards          -\nmice               2\ntouch              -\nmultitouch         -\n"
               "max_contacts       -\nvirtual_keyboards  -\n",
               R"({"keyboards": null, "mice": 2, "touch": null, "multitouch": null, "max_contacts": null,
             "virtual_keyboards": null})")
        .cpp("Station::show_input_device_v3")
        .python("Panel.get_input_devices");
}

Request dotsPerInch()
{
    return CATALOGUE_REQUEST(KVO_HWS_showDPI, "show DPI")
        .asks("showDPI=0A000005", {station, out})
        .on("dpi=96", 1, {96})
        .on("dpi=-1", 1, {-1})
        .on("dpi=", 1, {0})
        .on("dpi=96 ", -1)
        .on("dpi=x", -1)
        .nullPointer({station, nullptr})
        .soak({1, -1, -2})
        .kvoctl("input dpi", {kHere})
        .shows("dpi=96", "96\n", R"({"dpi": 96})")
        .wire("`showDPI=`*station*", "`dpi=`*number*, `none`, `failed`", "returns the display's resolution in dots per inch")
        .cpp("Station::show_dpi")
        .python("Panel.get_dpi");
}

}  // namespace

Family input()
{
    return {"input", joined({touchScreen(), {firstGeneration(), secondGeneration(), thirdGeneration(), dotsPerInch()}})};
}

}  // namespace catalogue
