// The basic requests, row by row.
#include <kvo_hws/service.h>

#include "support/request_table.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

using support::kNoConnection;
using support::RequestCase;

constexpr uint32_t kStation = 0x0A000005;

class BasicRequest : public testing::TestWithParam<RequestCase> {};

TEST_P(BasicRequest, behaves_as_its_row) { support::check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    SetDebugLevel, BasicRequest,
    testing::Values(
        RequestCase{"none", [] { return KVO_HWS_setDebugLevel(0); }, {"setDebugLevel=DEBUG_LEVEL_NONE"}, {"ok"}, 1},
        RequestCase{"level_1", [] { return KVO_HWS_setDebugLevel(1); }, {"setDebugLevel=DEBUG_LEVEL_I"}, {"ok"}, 1},
        RequestCase{"level_2", [] { return KVO_HWS_setDebugLevel(2); }, {"setDebugLevel=DEBUG_LEVEL_II"}, {"ok"}, 1},
        RequestCase{"level_3_asks_nobody", [] { return KVO_HWS_setDebugLevel(3); }, {}, {"ok"}, -1},
        RequestCase{"negative_asks_nobody", [] { return KVO_HWS_setDebugLevel(-1); }, {}, {"ok"}, -1},
        RequestCase{
            "failed_is_silent", [] { return KVO_HWS_setDebugLevel(0); }, {"setDebugLevel=DEBUG_LEVEL_NONE"}, {"failed"}, -1},
        RequestCase{
            "unknown_is_silent", [] { return KVO_HWS_setDebugLevel(0); }, {"setDebugLevel=DEBUG_LEVEL_NONE"}, {"ok "}, -1},
        RequestCase{"no_service", [] { return KVO_HWS_setDebugLevel(0); }, {}, {}, -2, {kNoConnection}}),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    GetDebugLevel, BasicRequest,
    testing::Values(RequestCase{"none", KVO_HWS_getDebugLevel, {"getDebugLevel"}, {"DEBUG_LEVEL_NONE"}, 0},
                    RequestCase{"level_1", KVO_HWS_getDebugLevel, {"getDebugLevel"}, {"DEBUG_LEVEL_I"}, 1},
                    RequestCase{"level_2", KVO_HWS_getDebugLevel, {"getDebugLevel"}, {"DEBUG_LEVEL_II"}, 2},
                    RequestCase{"unknown_is_silent", KVO_HWS_getDebugLevel, {"getDebugLevel"}, {"DEBUG_LEVEL_III"}, -1},
                    RequestCase{"failed_is_silent", KVO_HWS_getDebugLevel, {"getDebugLevel"}, {"failed"}, -1},
                    RequestCase{"empty_is_silent", KVO_HWS_getDebugLevel, {"getDebugLevel"}, {""}, -1},
                    RequestCase{"no_service", KVO_HWS_getDebugLevel, {}, {}, -2, {kNoConnection}}),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    RegistryLock, BasicRequest,
    testing::Values(
        RequestCase{"lock", KVO_HWS_lockKVORegData, {"lockKVORegData"}, {"ok"}, 1},
        RequestCase{"lock_busy", KVO_HWS_lockKVORegData, {"lockKVORegData"}, {"busy"}, 0},
        RequestCase{"lock_failed", KVO_HWS_lockKVORegData, {"lockKVORegData"}, {"failed"}, -1},
        RequestCase{"lock_unknown", KVO_HWS_lockKVORegData, {"lockKVORegData"}, {"busy "}, -1},
        RequestCase{"lock_without_a_service_is_not_told_apart", KVO_HWS_lockKVORegData, {}, {}, -1, {kNoConnection}},
        RequestCase{"unlock", KVO_HWS_unlockKVORegData, {"unlockKVORegData"}, {"ok"}, 1},
        RequestCase{"unlock_failed", KVO_HWS_unlockKVORegData, {"unlockKVORegData"}, {"failed"}, -1},
        RequestCase{"unlock_knows_no_busy", KVO_HWS_unlockKVORegData, {"unlockKVORegData"}, {"busy"}, -1},
        RequestCase{"unlock_without_a_service_is_not_told_apart", KVO_HWS_unlockKVORegData, {}, {}, -1, {kNoConnection}}),
    support::nameOf);

int32_t backlightOn() { return KVO_HWS_setBacklight(1); }
const std::string kStray = "get KVO HWS version - can not allocate memory";

INSTANTIATE_TEST_SUITE_P(
    SetBacklight, BasicRequest,
    testing::Values(
        RequestCase{"on", backlightOn, {"setBacklight=1"}, {"ok"}, 1, {kStray}},
        RequestCase{"off", [] { return KVO_HWS_setBacklight(0); }, {"setBacklight=0"}, {"ok"}, 1, {kStray}},
        RequestCase{"unknown_mode",
                    [] { return KVO_HWS_setBacklight(2); },
                    {},
                    {"ok"},
                    -1,
                    {"set backlight - unknown mode", "set backlight - can not send request"}},
        RequestCase{"carriage_return_is_removed", backlightOn, {"setBacklight=1"}, {"ok\r"}, 1, {kStray}},
        RequestCase{
            "failed", backlightOn, {"setBacklight=1"}, {"failed"}, -1, {kStray, "set backlight - error sending request"}},
        RequestCase{"trailing_blank",
                    backlightOn,
                    {"setBacklight=1"},
                    {"ok "},
                    -1,
                    {kStray, "set backlight - unknown error sending request"}},
        RequestCase{
            "empty", backlightOn, {"setBacklight=1"}, {""}, -1, {kStray, "set backlight - unknown error sending request"}},
        RequestCase{"no_service", backlightOn, {}, {}, -2, {kNoConnection, "set backlight - can not send request"}}),
    support::nameOf);

int32_t brightnessOn() { return KVO_HWS_setBrightness(kStation, 1); }

INSTANTIATE_TEST_SUITE_P(
    SetBrightness, BasicRequest,
    testing::Values(
        RequestCase{"bright", brightnessOn, {"setBrightness=1 0A000005"}, {"ok"}, 1},
        RequestCase{"dark", [] { return KVO_HWS_setBrightness(0xFEDCBA98, 0); }, {"setBrightness=0 FEDCBA98"}, {"ok"}, 1},
        RequestCase{"unknown_mode",
                    [] { return KVO_HWS_setBrightness(kStation, 2); },
                    {},
                    {"ok"},
                    -1,
                    {"set brightness - unknown mode", "set brightness - can not send request"}},
        RequestCase{
            "failed", brightnessOn, {"setBrightness=1 0A000005"}, {"failed"}, -1, {"set brightness - error sending request"}},
        RequestCase{"failed_with_a_blank",
                    brightnessOn,
                    {"setBrightness=1 0A000005"},
                    {"failed "},
                    -1,
                    {"set brightness - unknown error sending request"}},
        RequestCase{"unknown",
                    brightnessOn,
                    {"setBrightness=1 0A000005"},
                    {"OK"},
                    -1,
                    {"set brightness - unknown error sending request"}},
        RequestCase{
            "empty", brightnessOn, {"setBrightness=1 0A000005"}, {""}, -1, {"set brightness - unknown error sending request"}},
        RequestCase{"no_service", brightnessOn, {}, {}, -2, {kNoConnection, "set brightness - can not send request"}}),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    IsInitComplete, BasicRequest,
    testing::Values(
        RequestCase{"yes", KVO_HWS_isInitComplete, {"isInitComplete"}, {"yes"}, 1},
        RequestCase{"no", KVO_HWS_isInitComplete, {"isInitComplete"}, {"no"}, 0},
        RequestCase{
            "failed", KVO_HWS_isInitComplete, {"isInitComplete"}, {"failed"}, -1, {"is init complete - error sending request"}},
        RequestCase{"unknown_is_not_told_apart",
                    KVO_HWS_isInitComplete,
                    {"isInitComplete"},
                    {"maybe"},
                    -1,
                    {"is init complete - error sending request"}},
        RequestCase{
            "no_service", KVO_HWS_isInitComplete, {}, {}, -2, {kNoConnection, "is init complete - can not send request"}}),
    support::nameOf);

INSTANTIATE_TEST_SUITE_P(
    KillDaemon, BasicRequest,
    testing::Values(RequestCase{"ok", KVO_HWS_killDaemon, {"killDaemon"}, {"ok"}, 1},
                    RequestCase{"failed_counts_too", KVO_HWS_killDaemon, {"killDaemon"}, {"failed"}, 1},
                    RequestCase{"empty_counts_too", KVO_HWS_killDaemon, {"killDaemon"}, {""}, 1},
                    RequestCase{
                        "no_service", KVO_HWS_killDaemon, {}, {}, -2, {kNoConnection, "kill daemon - can not send request"}}),
    support::nameOf);

TEST(BasicRequests, a_broken_exchange_is_minus_1_and_says_so)
{
    const support::ScriptedService service({support::closesAfterRequest()});
    const support::MessagesOn messages;
    const support::SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_isInitComplete(), -1);
    EXPECT_EQ(KVO_HWS_killDaemon(), -1);
    const std::string broken = "command socket - can not read from socket";
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{broken, "is init complete - can not send request", broken,
                                                         "kill daemon - can not send request"}));
}

TEST(BasicRequests, log_nothing_while_the_debug_messages_are_off)
{
    const support::SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_isInitComplete(), -2);
    EXPECT_EQ(KVO_HWS_setBacklight(7), -1);
    EXPECT_THAT(capture.lines(), testing::IsEmpty());
}

// ---- Versions ----

/// A text buffer with a pattern, and the size that a caller says it has.
struct TextBuffer {
    explicit TextBuffer(unsigned told) : size(told) { std::memset(bytes, '#', sizeof bytes); }
    [[nodiscard]] std::string untouchedFrom(std::size_t at) const
    {
        return std::string(bytes + at, sizeof bytes - at).find_first_not_of('#') == std::string::npos ? "untouched" : "written";
    }

    char bytes[64];
    unsigned size;
};

RequestCase libraryVersion(const std::string &name, unsigned told, int32_t result, unsigned size, const std::string &text,
                           std::vector<std::string> messages = {})
{
    return {name,
            [=] {
                TextBuffer buffer(told);
                const int32_t code = KVO_HWS_getDLLVersion(buffer.bytes, &buffer.size);
                EXPECT_EQ(buffer.size, size);
                if (text.empty()) {
                    EXPECT_EQ(buffer.untouchedFrom(0), "untouched");
                } else {
                    EXPECT_STREQ(buffer.bytes, text.c_str());
                    EXPECT_EQ(buffer.untouchedFrom(text.size() + 1), "untouched");
                }
                return code;
            },
            {},
            {"asked"},
            result,
            std::move(messages)};
}

INSTANTIATE_TEST_SUITE_P(
    LibraryVersion, BasicRequest,
    testing::Values(libraryVersion("fits_in_13", 13, 1, 13, "V%#.%#.#%.#%"),
                    libraryVersion("fits_in_more", 64, 1, 64, "V%#.%#.#%.#%"),
                    libraryVersion("not_in_12", 12, -1, 12, "", {"get KVO HWS DLL version - not enough memory"}),
                    libraryVersion("not_in_0", 0, -1, 12, "", {"get KVO HWS DLL version - not enough memory"}),
                    RequestCase{"null_buffer",
                                [] {
                                    unsigned size = 64;
                                    return KVO_HWS_getDLLVersion(nullptr, &size);
                                },
                                {},
                                {"asked"},
                                -7,
                                {"get KVO HWS DLL version - null pointer received"}},
                    RequestCase{"null_size",
                                [] {
                                    char buffer[64];
                                    return KVO_HWS_getDLLVersion(buffer, nullptr);
                                },
                                {},
                                {"asked"},
                                -7,
                                {"get KVO HWS DLL version - null pointer received"}}),
    support::nameOf);

RequestCase serviceVersion(const std::string &name, unsigned told, const std::string &reply, int32_t result, unsigned size,
                           std::vector<std::string> messages = {})
{
    return {name,
            [=] {
                TextBuffer buffer(told);
                const int32_t code = KVO_HWS_getKVOHWSVersion(buffer.bytes, &buffer.size);
                EXPECT_EQ(buffer.size, size);
                if (result == 1) {
                    EXPECT_STREQ(buffer.bytes, reply.c_str());
                    EXPECT_EQ(buffer.untouchedFrom(reply.size() + 1), "untouched");
                } else {
                    EXPECT_EQ(buffer.untouchedFrom(0), "untouched");
                }
                return code;
            },
            {"getVersion"},
            {reply},
            result,
            std::move(messages)};
}

INSTANTIATE_TEST_SUITE_P(
    ServiceVersion, BasicRequest,
    testing::Values(serviceVersion("ten_characters_fit_in_11", 11, "V4.7.1-123", 1, 11),
                    serviceVersion("ten_characters_do_not_fit_in_10", 10, "V4.7.1-123", -1, 10,
                                   {"get KVO HWS version - not enough memory"}),
                    serviceVersion("too_small_tells_the_length", 3, "V4.7.1-123", -1, 10,
                                   {"get KVO HWS version - not enough memory"}),
                    serviceVersion("any_text_is_a_version", 64, "failed", 1, 64), serviceVersion("empty", 1, "", 1, 1),
                    serviceVersion("empty_needs_a_byte", 0, "", -1, 0, {"get KVO HWS version - not enough memory"}),
                    RequestCase{"null_buffer",
                                [] {
                                    unsigned size = 64;
                                    return KVO_HWS_getKVOHWSVersion(nullptr, &size);
                                },
                                {},
                                {"asked"},
                                -7,
                                {"get KVO HWS version - null pointer received"}},
                    RequestCase{"null_size",
                                [] {
                                    char buffer[64];
                                    return KVO_HWS_getKVOHWSVersion(buffer, nullptr);
                                },
                                {},
                                {"asked"},
                                -7,
                                {"get KVO HWS version - null pointer received"}},
                    RequestCase{"no_service",
                                [] {
                                    char buffer[64];
                                    unsigned size = 64;
                                    return KVO_HWS_getKVOHWSVersion(buffer, &size);
                                },
                                {},
                                {},
                                -2,
                                {kNoConnection, "get KVO HWS version - can not send request"}}),
    support::nameOf);

}  // namespace
