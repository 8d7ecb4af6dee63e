// A station's input devices and display, and its touch screen.
#include <kvo_hws/requests.h>

#include "requests/key_values.h"
#include "requests/values.h"
#include "service/request.h"

namespace {

using kvo_hws::Answer;
using kvo_hws::FindReplyValue;
using kvo_hws::ParseInputDeviceReply;
using kvo_hws::Request;

constexpr const char *kNoTouchScreen = "no touch screen available";
constexpr const char *kDevicesMalformed = "can not parse input devices string";

/// Reads the devices for the first two versions of the request, which report one number for both kinds of touch devices.
auto devices(uint32_t *kbd, uint32_t *mouse, uint32_t *touch, uint32_t *vkbd) noexcept
{
    return [=](const char *reply) -> Answer {
        uint32_t single = 0;
        uint32_t multi = 0;
        if (ParseInputDeviceReply(reply, nullptr, kbd, mouse, &single, &multi, nullptr, vkbd) == kvo_hws::kMalformed) {
            return {KVO_HWS_FAILED, kDevicesMalformed};
        }
        *touch = single + multi;
        return {KVO_HWS_OK};
    };
}

}  // namespace

int32_t KVO_HWS_invalidateTouchScreen(uint32_t station) noexcept
{
    return Request("invalidate touch screen")
        .send("invalidateTouch=%08X", station)
        .on("ok", KVO_HWS_OK)
        .on("no_touchscreen", KVO_HWS_NO, kNoTouchScreen)
        .result();
}

int32_t KVO_HWS_getTouchScreenCalibParam(uint32_t station, int32_t *pressThresh, int32_t *nonlinear) noexcept
{
    return Request("get touch screen calibration parameter")
        .needs(pressThresh, nonlinear)
        .send("getCalibParam=%08X", station)
        .on("no_touchscreen", KVO_HWS_NO, kNoTouchScreen)
        .anyReply([=](const char *reply) -> Answer {
            // A missing key is not an error and its value is 0. So any reply without the keys, even "failed", is a success with
            // two zeros.
            const int first = FindReplyValue(reply, "press_thresh=", pressThresh);
            const int second = FindReplyValue(reply, "nonlinear=", nonlinear);
            if (first == kvo_hws::kMalformed || second == kvo_hws::kMalformed) {
                return {KVO_HWS_FAILED, "can not parse calibration parameter string"};
            }
            return {KVO_HWS_OK};
        })
        .result();
}

int32_t KVO_HWS_setTouchScreenCalibParam(uint32_t station, int32_t pressThresh, int32_t nonlinear) noexcept
{
    return Request("set touch screen calibration parameter")
        .refuse(pressThresh < -1 || nonlinear < -1 || nonlinear > 1, KVO_HWS_OUT_OF_RANGE, {"invalid parameter"})
        .send("setCalibParam=\"%d:%d\" %08X", pressThresh, nonlinear, station)
        .on("ok", KVO_HWS_OK)
        .on("no_touchscreen", KVO_HWS_NO, kNoTouchScreen)
        .result();
}

// The following three requests do not check for "failed": a reply without a known key is a success.

int32_t KVO_HWS_showInputDevice(uint32_t station, uint32_t *kbd, uint32_t *mouse, uint32_t *touch) noexcept
{
    return Request("show input device")
        .needs(kbd, mouse, touch)
        .send("showInputDevice=%08X", station)
        .anyReply(devices(kbd, mouse, touch, nullptr))
        .result();
}

int32_t KVO_HWS_showInputDeviceV2(uint32_t station, uint32_t *kbd, uint32_t *mouse, uint32_t *touch, uint32_t *vkbd) noexcept
{
    return Request("show input device V2")
        .needs(kbd, mouse, touch, vkbd)
        .send("showInputDevice=%08X", station)
        .anyReply(devices(kbd, mouse, touch, vkbd))
        .result();
}

int32_t KVO_HWS_showInputDeviceV3(uint32_t station, uint32_t *mask, uint32_t *kbd, uint32_t *mouse, uint32_t *touch,
                                  uint32_t *multitouch, uint32_t *maxcontacts, uint32_t *vkbd) noexcept
{
    return Request("show input device V3")
        .send("showInputDevice=%08X", station)
        .anyReply([=](const char *reply) -> Answer {
            if (ParseInputDeviceReply(reply, mask, kbd, mouse, touch, multitouch, maxcontacts, vkbd) == kvo_hws::kMalformed) {
                return {KVO_HWS_FAILED, kDevicesMalformed};
            }
            return {KVO_HWS_OK};
        })
        .result();
}

int32_t KVO_HWS_showDPI(uint32_t station, int32_t *dpi) noexcept
{
    return Request("show DPI").needs(dpi).send("showDPI=%08X", station).value("dpi=", kvo_hws::signedDecimal(dpi)).result();
}
