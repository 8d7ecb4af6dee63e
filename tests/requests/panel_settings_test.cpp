// The panel settings, row by row.
#include <kvo_hws/requests.h>

#include "support/request_rows.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using support::kStation;
using support::RequestCase;
using support::Rows;
using support::stores;
using support::storesNothing;

class PanelSettings : public testing::TestWithParam<RequestCase> {};

TEST_P(PanelSettings, behave_as_their_row) { support::check(GetParam()); }

const std::string kInvalidLevel = "invalid backlight brightness level (0 ... 100)";
const std::string kUnsupportedMode = "unsupported backlight brightness mode (0 ... 1)";
const std::string kUnknown = "unknown error sending request";

INSTANTIATE_TEST_SUITE_P(
    SetBacklightBrightness, PanelSettings,
    testing::ValuesIn(
        Rows("set backlight brightness", "setBacklightBrightness=40 0A000005",
             [] { return KVO_HWS_setBacklightBrightness(kStation, 40); })
            .on("ok", 1)
            .sends("setBacklightBrightness=0 0A000005", [] { return KVO_HWS_setBacklightBrightness(kStation, 0); })
            .sends("setBacklightBrightness=100 0A000005", [] { return KVO_HWS_setBacklightBrightness(kStation, 100); })
            .refused([] { return KVO_HWS_setBacklightBrightness(kStation, 101); }, -3, kInvalidLevel)
            .refused([] { return KVO_HWS_setBacklightBrightness(kStation, 0xFFFFFFFF); }, -3, kInvalidLevel)
            .rows()),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    SetBacklightBrightnessV2, PanelSettings,
    testing::ValuesIn(Rows("set backlight brightness V2", "setBacklightBrightnessV2=40 1 0A000005",
                           [] { return KVO_HWS_setBacklightBrightnessV2(kStation, 40, 1); })
                          .on("ok", 1)
                          .on("bad request", -5, kUnsupportedMode)
                          .on("not active", -6, "backlight not active")
                          .unknown("bad request ")
                          .sends("setBacklightBrightnessV2=100 0 0A000005",
                                 [] { return KVO_HWS_setBacklightBrightnessV2(kStation, 100, 0); })
                          .refused([] { return KVO_HWS_setBacklightBrightnessV2(kStation, 101, 0); }, -3, kInvalidLevel)
                          .refused([] { return KVO_HWS_setBacklightBrightnessV2(kStation, 101, 2); }, -3, kInvalidLevel)
                          .refused([] { return KVO_HWS_setBacklightBrightnessV2(kStation, 100, 2); }, -4, kUnsupportedMode)
                          .rows()),
    support::nameOf);

Rows::Call level(uint32_t expected)
{
    return stores<uint32_t>([](uint32_t *out) { return KVO_HWS_getBacklightBrightnessV2(kStation, out, 0); }, expected);
}

// The null check speaks in the setter's name and is -3; "failed" is an unknown reply here.
INSTANTIATE_TEST_SUITE_P(GetBacklightBrightnessV2, PanelSettings,
                         testing::ValuesIn(Rows("get backlight brightness V2", "getBacklightBrightnessV2=0 0A000005",
                                                storesNothing<uint32_t>([](uint32_t *out) {
                                                    return KVO_HWS_getBacklightBrightnessV2(kStation, out, 0);
                                                }))
                                               .value("backlight-brightness-v2=55", 1, level(55))
                                               .value("backlight-brightness-v2=55x", 1, level(55))
                                               .value("backlight-brightness-v2=4000", 1, level(4000))
                                               .value("backlight-brightness-v2=055", 1, level(55))
                                               .value("backlight-brightness-v2=x", 1, level(0))
                                               .on("backlight-brightness-v2=", -1, kUnknown)
                                               .on("bad request", 0)
                                               .failedIs(-1, kUnknown)
                                               .sends(
                                                   "getBacklightBrightnessV2=1 0A000005",
                                                   [] {
                                                       uint32_t out = 0;
                                                       return KVO_HWS_getBacklightBrightnessV2(kStation, &out, 1);
                                                   },
                                                   "backlight-brightness-v2=1")
                                               .refused([] { return KVO_HWS_getBacklightBrightnessV2(kStation, nullptr, 2); },
                                                        -3, "invalid pointer", "set backlight brightness V2")
                                               .refused(
                                                   [] {
                                                       uint32_t out = 0;
                                                       return KVO_HWS_getBacklightBrightnessV2(kStation, &out, 2);
                                                   },
                                                   -4, kUnsupportedMode)
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    SetDisableNumLock, PanelSettings,
    testing::ValuesIn(Rows("set disable NumLock", "setDisableNumLock=1 0A000005",
                           [] { return KVO_HWS_setDisableNumLock(kStation, 1); })
                          .on("ok", 1)
                          .sends("setDisableNumLock=0 0A000005", [] { return KVO_HWS_setDisableNumLock(kStation, 0); })
                          .refused([] { return KVO_HWS_setDisableNumLock(kStation, 2); }, -1, "invalid mode [0|1]")
                          .rows()),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    SetDisableCapsLock, PanelSettings,
    testing::ValuesIn(Rows("set disable CapsLock", "setDisableCapsLock=1 0A000005",
                           [] { return KVO_HWS_setDisableCapsLock(kStation, 1); })
                          .on("ok", 1)
                          .sends("setDisableCapsLock=0 0A000005", [] { return KVO_HWS_setDisableCapsLock(kStation, 0); })
                          .refused([] { return KVO_HWS_setDisableCapsLock(kStation, 2); }, -1, "invalid mode [0|1]")
                          .rows()),
    support::nameOf);

int32_t numLock(uint32_t *out) { return KVO_HWS_getDisableNumLock(kStation, out); }

INSTANTIATE_TEST_SUITE_P(GetDisableNumLock, PanelSettings,
                         testing::ValuesIn(Rows("get disable NumLock", "getDisableNumLock=0A000005",
                                                storesNothing<uint32_t>(numLock))
                                               .value("disable numlock 0", 1, stores<uint32_t>(numLock, 0))
                                               .value("disable numlock 1", 1, stores<uint32_t>(numLock, 1))
                                               .unknown("disable numlock 2")
                                               .unknown("disable numlock 1 ")
                                               .unknown("diable numlock 1")
                                               .nullPointer([] { return numLock(nullptr); })
                                               .rows()),
                         support::nameOf);

int32_t capsLock(uint32_t *out) { return KVO_HWS_getDisableCapsLock(kStation, out); }

// The daemon sends it spelt so; the right spelling is unknown.
INSTANTIATE_TEST_SUITE_P(GetDisableCapsLock, PanelSettings,
                         testing::ValuesIn(Rows("get disable CapsLock", "getDisableCapsLock=0A000005",
                                                storesNothing<uint32_t>(capsLock))
                                               .value("diable capslock 0", 1, stores<uint32_t>(capsLock, 0))
                                               .value("diable capslock 1", 1, stores<uint32_t>(capsLock, 1))
                                               .unknown("disable capslock 1")
                                               .nullPointer([] { return capsLock(nullptr); })
                                               .rows()),
                         support::nameOf);

int32_t stationType(int32_t *out) { return KVO_HWS_getStationType(kStation, out); }

INSTANTIATE_TEST_SUITE_P(GetStationType, PanelSettings,
                         testing::ValuesIn(Rows("get Station Type", "getStationType=0A000005",
                                                storesNothing<int32_t>(stationType))
                                               .value("stationtype 0", 1, stores<int32_t>(stationType, 0))
                                               .value("stationtype 1", 1, stores<int32_t>(stationType, 1))
                                               .value("stationtype -1", 1, stores<int32_t>(stationType, -1))
                                               .unknown("stationtype 2")
                                               .nullPointer([] {
                                                   testing::internal::CaptureStderr();
                                                   const int32_t result = stationType(nullptr);
                                                   EXPECT_EQ(testing::internal::GetCapturedStderr(), "pimode == NULL\n");
                                                   return result;
                                               })
                                               .rows()),
                         support::nameOf);

int32_t swCapsLock(int32_t *out) { return KVO_HWS_getSwCapsLock(kStation, out); }

INSTANTIATE_TEST_SUITE_P(GetSwCapsLock, PanelSettings,
                         testing::ValuesIn(Rows("get Sw CapsLock", "getSwCapsLock=0A000005", storesNothing<int32_t>(swCapsLock))
                                               .value("swcapslock 0", 1, stores<int32_t>(swCapsLock, 0))
                                               .value("swcapslock 1", 1, stores<int32_t>(swCapsLock, 1))
                                               .value("swcapslock -1", 1, stores<int32_t>(swCapsLock, -1))
                                               .unknown("swcapslock 2")
                                               .nullPointer([] { return swCapsLock(nullptr); })
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    SetSwCapsLock, PanelSettings,
    testing::ValuesIn(Rows("set Sw CapsLock", "setSwCapsLock=-1 0A000005", [] { return KVO_HWS_setSwCapsLock(kStation, -1); })
                          .on("ok", 1)
                          .sends("setSwCapsLock=0 0A000005", [] { return KVO_HWS_setSwCapsLock(kStation, 0); })
                          .sends("setSwCapsLock=1 0A000005", [] { return KVO_HWS_setSwCapsLock(kStation, 1); })
                          .refused([] { return KVO_HWS_setSwCapsLock(kStation, -2); }, -1, "invalid mode [0|1|-1]")
                          .refused([] { return KVO_HWS_setSwCapsLock(kStation, 2); }, -1, "invalid mode [0|1|-1]")
                          .rows()),
    support::nameOf);

int32_t rv4Mode(uint32_t *out) { return KVO_HWS_getRV4Mode(kStation, out); }

INSTANTIATE_TEST_SUITE_P(
    GetRV4Mode, PanelSettings,
    testing::ValuesIn(Rows("get RV4 mode", "getRV4Mode=0A000005", storesNothing<uint32_t>(rv4Mode))
                          .value("rv4mode=0", 1, stores<uint32_t>(rv4Mode, 0))
                          .value("rv4mode=1", 1, stores<uint32_t>(rv4Mode, 1))
                          .value("rv4mode=7", 1, stores<uint32_t>(rv4Mode, 7))
                          .value("rv4mode=", 1, stores<uint32_t>(rv4Mode, 0))
                          .value("rv4mode=1 ", -1, stores<uint32_t>(rv4Mode, 1), "can not parse RV4 mode string")
                          .value("rv4mode=x", -1, stores<uint32_t>(rv4Mode, 0), "can not parse RV4 mode string")
                          .on("not_a_rv4", 0, "not a RV4")
                          .nullPointer([] { return rv4Mode(nullptr); })
                          .rows()),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    SetRV4Mode, PanelSettings,
    testing::ValuesIn(Rows("set RV4 mode", "setRV4Mode=\"1\" 0A000005", [] { return KVO_HWS_setRV4Mode(kStation, 1); })
                          .on("ok", 1)
                          .on("not_a_rv4", 0, "not a RV4")
                          .sends("setRV4Mode=\"0\" 0A000005", [] { return KVO_HWS_setRV4Mode(kStation, 0); })
                          .refused([] { return KVO_HWS_setRV4Mode(kStation, 2); }, -3,
                                   "invalid parameter (0 \"auto\" or 1 \"individual\")")
                          .rows()),
    support::nameOf);

}  // namespace
