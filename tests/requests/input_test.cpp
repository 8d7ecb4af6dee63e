// Touch screen, input devices and display, row by row.
#include <kvo_hws/requests.h>

#include "support/request_rows.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using support::kStation;
using support::RequestCase;
using support::Rows;
using support::stores;
using support::storesNothing;

class Input : public testing::TestWithParam<RequestCase> {};

TEST_P(Input, behaves_as_its_row) { support::check(GetParam()); }

constexpr uint32_t kUntouched = support::Out<uint32_t>::kUntouched;
const std::string kNoTouchScreen = "no touch screen available";

INSTANTIATE_TEST_SUITE_P(InvalidateTouchScreen, Input,
                         testing::ValuesIn(Rows("invalidate touch screen", "invalidateTouch=0A000005",
                                                [] { return KVO_HWS_invalidateTouchScreen(kStation); })
                                               .on("ok", 1)
                                               .on("no_touchscreen", 0, kNoTouchScreen)
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    SetCalibration, Input,
    testing::ValuesIn(Rows("set touch screen calibration parameter", "setCalibParam=\"-1:-1\" 0A000005",
                           [] { return KVO_HWS_setTouchScreenCalibParam(kStation, -1, -1); })
                          .on("ok", 1)
                          .on("no_touchscreen", 0, kNoTouchScreen)
                          .sends("setCalibParam=\"0:0\" 0A000005",
                                 [] { return KVO_HWS_setTouchScreenCalibParam(kStation, 0, 0); })
                          .sends("setCalibParam=\"2147483647:1\" 0A000005",
                                 [] { return KVO_HWS_setTouchScreenCalibParam(kStation, 2147483647, 1); })
                          .refused([] { return KVO_HWS_setTouchScreenCalibParam(kStation, -2, 0); }, -3, "invalid parameter")
                          .refused([] { return KVO_HWS_setTouchScreenCalibParam(kStation, 0, 2); }, -3, "invalid parameter")
                          .refused([] { return KVO_HWS_setTouchScreenCalibParam(kStation, 0, -2); }, -3, "invalid parameter")
                          .rows()),
    support::nameOf);

// ---- Replies that are lists of keys and numbers ----

/// A request for a list of keys against one reply: every reply but malformed ones is success, so the frame's rows do not apply.
RequestCase reply(const std::string &name, const std::string &command, const std::string &text, int32_t result, Rows::Call call,
                  std::vector<std::string> messages = {})
{
    return {name, std::move(call), {command + "=0A000005"}, {text}, result, std::move(messages)};
}

Rows::Call calibration(int32_t press, int32_t nonlinear)
{
    return [=] {
        int32_t pressOut = 77;
        int32_t nonlinearOut = 77;
        const int32_t result = KVO_HWS_getTouchScreenCalibParam(kStation, &pressOut, &nonlinearOut);
        EXPECT_EQ(pressOut, press);
        EXPECT_EQ(nonlinearOut, nonlinear);
        return result;
    };
}

const std::string kCalibration = "get touch screen calibration parameter - ";
const std::string kMalformed = kCalibration + "can not parse calibration parameter string";

INSTANTIATE_TEST_SUITE_P(
    GetCalibration, Input,
    testing::Values(
        reply("both", "getCalibParam", "press_thresh=12 nonlinear=-1", 1, calibration(12, -1)),
        reply("other_order_and_others_between", "getCalibParam", "nonlinear=1 x=y\t press_thresh=-1\r", 1, calibration(-1, 1)),
        reply("absent_is_0", "getCalibParam", "nonlinear=1", 1, calibration(0, 1)),
        reply("failed_is_two_zeros", "getCalibParam", "failed", 1, calibration(0, 0)),
        reply("empty_is_two_zeros", "getCalibParam", "", 1, calibration(0, 0)),
        reply("no_touchscreen", "getCalibParam", "no_touchscreen", 0, calibration(77, 77), {kCalibration + kNoTouchScreen}),
        reply("first_malformed_second_still_read", "getCalibParam", "press_thresh=x nonlinear=1", -1, calibration(0, 1),
              {kMalformed}),
        reply("second_malformed", "getCalibParam", "press_thresh=5 nonlinear=1,", -1, calibration(5, 1), {kMalformed}),
        reply("trailing_comma_is_stored_first", "getCalibParam", "press_thresh=5,nonlinear=1", -1, calibration(5, 0),
              {kMalformed}),
        RequestCase{"null_pointers",
                    [] {
                        int32_t value = 0;
                        EXPECT_EQ(KVO_HWS_getTouchScreenCalibParam(kStation, &value, nullptr), -7);
                        return KVO_HWS_getTouchScreenCalibParam(kStation, nullptr, &value);
                    },
                    {},
                    {"asked"},
                    -7,
                    {kCalibration + "null pointer received", kCalibration + "null pointer received"}},
        RequestCase{
            "no_service", calibration(77, 77), {}, {}, -2, {support::kNoConnection, kCalibration + "can not send request"}}),
    support::nameOf);

/// What each output holds afterwards.
struct Devices {
    uint32_t kbd = kUntouched;
    uint32_t mouse = kUntouched;
    uint32_t touch = kUntouched;
    uint32_t vkbd = kUntouched;
    uint32_t multitouch = kUntouched;
    uint32_t maxcontacts = kUntouched;
    uint32_t mask = kUntouched;
    bool operator==(const Devices &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Devices &devices)
{
    return out << std::hex << devices.kbd << ' ' << devices.mouse << ' ' << devices.touch << ' ' << devices.vkbd << ' '
               << devices.multitouch << ' ' << devices.maxcontacts << " mask " << devices.mask;
}

Rows::Call firstGeneration(const Devices &expected)
{
    return [=] {
        Devices devices;
        const int32_t result = KVO_HWS_showInputDevice(kStation, &devices.kbd, &devices.mouse, &devices.touch);
        EXPECT_EQ(devices, expected);
        return result;
    };
}

Rows::Call secondGeneration(const Devices &expected)
{
    return [=] {
        Devices devices;
        const int32_t result = KVO_HWS_showInputDeviceV2(kStation, &devices.kbd, &devices.mouse, &devices.touch, &devices.vkbd);
        EXPECT_EQ(devices, expected);
        return result;
    };
}

Rows::Call thirdGeneration(const Devices &expected)
{
    return [=] {
        Devices devices;
        const int32_t result = KVO_HWS_showInputDeviceV3(kStation, &devices.mask, &devices.kbd, &devices.mouse, &devices.touch,
                                                         &devices.multitouch, &devices.maxcontacts, &devices.vkbd);
        EXPECT_EQ(devices, expected);
        return result;
    };
}

const std::string kCommand = "showInputDevice";
const std::string kAll = "kbd=1 mouse=2 touch=1 multitouch=1 vkbd=0";

std::string malformed(const std::string &generation) { return generation + " - can not parse input devices string"; }

INSTANTIATE_TEST_SUITE_P(
    ShowInputDevice, Input,
    testing::Values(
        reply("all", kCommand, kAll, 1, firstGeneration({.kbd = 1, .mouse = 2, .touch = 2})),
        reply("multitouch_counts_as_touch", kCommand, "multitouch=3", 1, firstGeneration({.touch = 3})),
        reply("no_key_at_all", kCommand, "failed", 1, firstGeneration({.touch = 0})),
        reply("empty", kCommand, "", 1, firstGeneration({.touch = 0})),
        reply("blanks_tabs_and_line_ends", kCommand, "\t kbd=1 \t mouse=2  touch=2\r\r", 1,
              firstGeneration({.kbd = 1, .mouse = 2, .touch = 2})),
        reply("white_space_before_a_number", kCommand, "kbd= 1", 1, firstGeneration({.kbd = 1, .touch = 0})),
        reply("comma_behind_a_number", kCommand, "kbd=1,mouse=2", -1, firstGeneration({}), {malformed("show input device")}),
        reply("no_digit", kCommand, "kbd=x", -1, firstGeneration({}), {malformed("show input device")}),
        reply("earlier_keys_stay_stored", kCommand, "mouse=x kbd=1", -1, firstGeneration({.kbd = 1}),
              {malformed("show input device")}),
        reply("a_malformed_key_that_is_not_asked_for_counts_too", kCommand, "kbd=1 vkbd=x", -1, firstGeneration({.kbd = 1}),
              {malformed("show input device")}),
        reply("the_first_of_two_counts", kCommand, "kbd=1 kbd=2", 1, firstGeneration({.kbd = 1, .touch = 0})),
        reply("malformed_multitouch", kCommand, "kbd=1 multitouch=x", -1, firstGeneration({.kbd = 1}),
              {malformed("show input device")}),
        reply("malformed_maxcontacts", kCommand, "kbd=1 maxcontacts=x", -1, firstGeneration({.kbd = 1}),
              {malformed("show input device")}),
        reply("a_carriage_return_separates_nothing", kCommand, "kbd=1\rmouse=2", 1, firstGeneration({.kbd = 1, .touch = 0})),
        RequestCase{"null_pointers",
                    [] {
                        uint32_t value = 0;
                        EXPECT_EQ(KVO_HWS_showInputDevice(kStation, &value, nullptr, &value), -7);
                        EXPECT_EQ(KVO_HWS_showInputDevice(kStation, &value, &value, nullptr), -7);
                        return KVO_HWS_showInputDevice(kStation, nullptr, &value, &value);
                    },
                    {},
                    {"asked"},
                    -7,
                    std::vector<std::string>(3, "show input device - null pointer received")},
        RequestCase{"no_service",
                    firstGeneration({}),
                    {},
                    {},
                    -2,
                    {support::kNoConnection, "show input device - can not send request"}}),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    ShowInputDeviceV2, Input,
    testing::Values(reply("all", kCommand, kAll, 1, secondGeneration({.kbd = 1, .mouse = 2, .touch = 2, .vkbd = 0})),
                    reply("vkbd_holds_no_kbd", kCommand, "vkbd=4", 1, secondGeneration({.touch = 0, .vkbd = 4})),
                    reply("malformed", kCommand, "kbd=1 vkbd=", -1, secondGeneration({.kbd = 1}),
                          {malformed("show input device V2")}),
                    RequestCase{"null_pointers",
                                [] {
                                    uint32_t value = 0;
                                    EXPECT_EQ(KVO_HWS_showInputDeviceV2(kStation, nullptr, &value, &value, &value), -7);
                                    EXPECT_EQ(KVO_HWS_showInputDeviceV2(kStation, &value, nullptr, &value, &value), -7);
                                    EXPECT_EQ(KVO_HWS_showInputDeviceV2(kStation, &value, &value, nullptr, &value), -7);
                                    return KVO_HWS_showInputDeviceV2(kStation, &value, &value, &value, nullptr);
                                },
                                {},
                                {"asked"},
                                -7,
                                std::vector<std::string>(4, "show input device V2 - null pointer received")},
                    RequestCase{"no_service",
                                secondGeneration({}),
                                {},
                                {},
                                -2,
                                {support::kNoConnection, "show input device V2 - can not send request"}}),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    ShowInputDeviceV3, Input,
    testing::Values(reply("all", kCommand, kAll, 1,
                          thirdGeneration({.kbd = 1, .mouse = 2, .touch = 1, .vkbd = 0, .multitouch = 1, .mask = 0x2F})),
                    reply("multitouch_alone", kCommand, "multitouch=3", 1, thirdGeneration({.multitouch = 3, .mask = 0x08})),
                    reply("maxcontacts", kCommand, "maxcontacts=10", 1, thirdGeneration({.maxcontacts = 10, .mask = 0x10})),
                    reply("no_key_at_all", kCommand, "failed", 1, thirdGeneration({.mask = 0})),
                    reply("malformed_stores_no_mask", kCommand, "kbd=1 touch=?", -1, thirdGeneration({.kbd = 1}),
                          {malformed("show input device V3")}),
                    RequestCase{"every_pointer_may_be_null",
                                [] {
                                    return KVO_HWS_showInputDeviceV3(kStation, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                                     nullptr, nullptr);
                                },
                                {"showInputDevice=0A000005"},
                                {kAll + " maxcontacts=1"},
                                1},
                    RequestCase{"no_service",
                                thirdGeneration({}),
                                {},
                                {},
                                -2,
                                {support::kNoConnection, "show input device V3 - can not send request"}}),
    support::nameOf);

int32_t dpi(int32_t *out) { return KVO_HWS_showDPI(kStation, out); }

INSTANTIATE_TEST_SUITE_P(ShowDPI, Input,
                         testing::ValuesIn(Rows("show DPI", "showDPI=0A000005", storesNothing<int32_t>(dpi))
                                               .value("dpi=96", 1, stores<int32_t>(dpi, 96))
                                               .value("dpi=-1", 1, stores<int32_t>(dpi, -1))
                                               .value("dpi=", 1, stores<int32_t>(dpi, 0))
                                               .on("dpi=96 ", -1)
                                               .on("dpi=x", -1)
                                               .nullPointer([] { return dpi(nullptr); })
                                               .rows()),
                         support::nameOf);

}  // namespace
