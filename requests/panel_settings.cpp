// Settings of a station's panel: backlight, keyboard locks, station type, and the mode of a handheld terminal.
#include <kvo_hws/requests.h>

#include "requests/values.h"
#include "service/request.h"

#include <cstdio>

namespace {

using kvo_hws::Answer;
using kvo_hws::Request;

constexpr uint32_t kBrightest = 100;
constexpr const char *kInvalidLevel = "invalid backlight brightness level (0 ... 100)";
constexpr const char *kUnsupportedMode = "unsupported backlight brightness mode (0 ... 1)";
constexpr const char *kUnknown = "unknown error sending request";

}  // namespace

// In this family an argument out of range has different codes in different functions: -1, -3 and -4. Callers rely on each of
// them.

int32_t KVO_HWS_setBacklightBrightness(uint32_t station, uint32_t level) noexcept
{
    return Request("set backlight brightness")
        .refuse(level > kBrightest, KVO_HWS_OUT_OF_RANGE, {kInvalidLevel})
        .send("setBacklightBrightness=%u %08X", level, station)
        .on("ok", KVO_HWS_OK)
        .result();
}

int32_t KVO_HWS_setBacklightBrightnessV2(uint32_t station, uint32_t level, uint32_t mode) noexcept
{
    return Request("set backlight brightness V2")
        .refuse(level > kBrightest, KVO_HWS_OUT_OF_RANGE, {kInvalidLevel})
        .refuse(mode > 1, KVO_HWS_INVALID_MODE, {kUnsupportedMode})
        .send("setBacklightBrightnessV2=%u %u %08X", level, mode, station)
        .on("ok", KVO_HWS_OK)
        .on("bad request", KVO_HWS_UNSUPPORTED, kUnsupportedMode)
        .on("not active", KVO_HWS_NOT_ACTIVE, "backlight not active")
        .result();
}

int32_t KVO_HWS_getBacklightBrightnessV2(uint32_t station, uint32_t *level, uint32_t mode) noexcept
{
    // The null check logs under the setter's label and returns -3; "failed" has the same result as other unknown replies.
    return Request("set backlight brightness V2")
        .refuse(level == nullptr, KVO_HWS_OUT_OF_RANGE, {"invalid pointer"})
        .label("get backlight brightness V2")
        .refuse(mode > 1, KVO_HWS_INVALID_MODE, {kUnsupportedMode})
        .send("getBacklightBrightnessV2=%u %08X", mode, station)
        .value("backlight-brightness-v2=",
               [=](const char *rest) -> Answer {
                   if (*rest == '\0') {
                       return {KVO_HWS_FAILED, kUnknown};
                   }
                   *level = static_cast<uint32_t>(kvo_hws::readNumber(rest, 10).value);
                   return {KVO_HWS_OK};
               })
        .on("bad request", KVO_HWS_NO)
        .otherwise(KVO_HWS_FAILED, kUnknown)
        .result();
}

int32_t KVO_HWS_setDisableNumLock(uint32_t station, uint32_t disable) noexcept
{
    return Request("set disable NumLock")
        .refuse(disable > 1, KVO_HWS_FAILED, {"invalid mode [0|1]"})
        .send("setDisableNumLock=%u %08X", disable, station)
        .on("ok", KVO_HWS_OK)
        .result();
}

int32_t KVO_HWS_setDisableCapsLock(uint32_t station, uint32_t disable) noexcept
{
    return Request("set disable CapsLock")
        .refuse(disable > 1, KVO_HWS_FAILED, {"invalid mode [0|1]"})
        .send("setDisableCapsLock=%u %08X", disable, station)
        .on("ok", KVO_HWS_OK)
        .result();
}

int32_t KVO_HWS_getDisableNumLock(uint32_t station, uint32_t *disable) noexcept
{
    return Request("get disable NumLock")
        .needs(disable)
        .send("getDisableNumLock=%08X", station)
        .stores("disable numlock 0", disable, 0)
        .stores("disable numlock 1", disable, 1)
        .result();
}

int32_t KVO_HWS_getDisableCapsLock(uint32_t station, uint32_t *disable) noexcept
{
    // Sic: "diable" is the daemon's spelling.
    return Request("get disable CapsLock")
        .needs(disable)
        .send("getDisableCapsLock=%08X", station)
        .stores("diable capslock 0", disable, 0)
        .stores("diable capslock 1", disable, 1)
        .result();
}

int32_t KVO_HWS_getStationType(uint32_t station, int32_t *type) noexcept
{
    if (type == nullptr) {
        const kvo_hws::NoCancellation wholeLine;
        std::fputs("pimode == NULL\n", stderr);  // the only line that the library prints; part of its interface
    }
    return Request("get Station Type")
        .needs(type)
        .send("getStationType=%08X", station)
        .stores("stationtype 0", type, 0)
        .stores("stationtype 1", type, 1)
        .stores("stationtype -1", type, -1)
        .result();
}

int32_t KVO_HWS_getSwCapsLock(uint32_t station, int32_t *state) noexcept
{
    return Request("get Sw CapsLock")
        .needs(state)
        .send("getSwCapsLock=%08X", station)
        .stores("swcapslock 0", state, 0)
        .stores("swcapslock 1", state, 1)
        .stores("swcapslock -1", state, -1)
        .result();
}

int32_t KVO_HWS_setSwCapsLock(uint32_t station, int32_t state) noexcept
{
    return Request("set Sw CapsLock")
        .refuse(state < -1 || state > 1, KVO_HWS_FAILED, {"invalid mode [0|1|-1]"})
        .send("setSwCapsLock=%d %08X", state, station)
        .on("ok", KVO_HWS_OK)
        .result();
}

int32_t KVO_HWS_getRV4Mode(uint32_t station, uint32_t *mode) noexcept
{
    return Request("get RV4 mode")
        .needs(mode)
        .send("getRV4Mode=%08X", station)
        .value("rv4mode=",
               [=](const char *rest) -> Answer {
                   const auto [value, end] = kvo_hws::readNumber(rest, 10);
                   *mode = static_cast<uint32_t>(value);  // stored before the check: callers see the value in both cases
                   if (*end != '\0') {
                       return {KVO_HWS_FAILED, "can not parse RV4 mode string"};
                   }
                   return {KVO_HWS_OK};
               })
        .on("not_a_rv4", KVO_HWS_NO, "not a RV4")
        .result();
}

int32_t KVO_HWS_setRV4Mode(uint32_t station, uint32_t mode) noexcept
{
    return Request("set RV4 mode")
        .refuse(mode > 1, KVO_HWS_OUT_OF_RANGE, {"invalid parameter (0 \"auto\" or 1 \"individual\")"})
        .send("setRV4Mode=\"%u\" %08X", mode, station)
        .on("ok", KVO_HWS_OK)
        .on("not_a_rv4", KVO_HWS_NO, "not a RV4")
        .result();
}
