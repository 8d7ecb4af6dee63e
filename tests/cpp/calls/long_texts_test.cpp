// Texts in replies arrive whole, whatever their length.
#include <kvo_hws/kvo_hws.hpp>

#include "support/catalogue_service.h"
#include "support/syslog_capture.h"

#include <gmock/gmock.h>
#include <string>

namespace {

using kvo::Errc;
using kvo::Service;
using kvo::Station;
using support::replies;
using support::ScriptedService;

const Station kStation("10.0.0.5");

struct Text {
    const char *name;
    std::string key;  ///< the beginning of the reply
    kvo::Result<std::string> (*read)();
    bool asked_again;  ///< a text that does not fit is asked again
};

const Text kTexts[] = {
    {"screen_on_focus", "screen-on-focus=", [] { return kStation.screen_on_focus(); }, false},
    {"t2m2n", "", [] { return kStation.t2m2n(); }, false},
    {"version", "", [] { return Service::version(); }, false},
    {"connectors", "usb-connector-list=", [] { return Service::usb_connector_list(); }, true},
    {"connectors_of_a_station", "usb-connector-list-one=", [] { return kStation.usb_connector_list(); }, true},
    {"channel_info", "channel-info=",
     []() -> kvo::Result<std::string> {
         const auto info = kStation.channel_info();
         return info ? kvo::Result<std::string>(info->value()) : info.error();
     },
     true},
};

class LongTexts : public testing::TestWithParam<Text> {};

TEST_P(LongTexts, arrive_whole)
{
    // Sizes around that of the first buffer, and far beyond the buffers that programs in C have.
    for (const std::size_t length : {1U, 255U, 256U, 4094U, 4095U, 4096U, 4097U, 70000U, 999990U}) {
        const std::string text(length, 'x');
        const ScriptedService service({replies(GetParam().key + text)});
        const auto read = GetParam().read();
        ASSERT_TRUE(read) << length << ": " << read.error().message();
        EXPECT_TRUE(*read == text) << length << " bytes were " << read->size();
        EXPECT_EQ(service.requests().size(), GetParam().asked_again && length > 4095 ? 2U : 1U) << length;
    }
}

TEST_P(LongTexts, have_a_bound_if_they_are_asked_again)
{
    if (GetParam().asked_again) {
        const ScriptedService service({replies(GetParam().key + std::string(1000001, 'x'))});
        const auto read = GetParam().read();
        ASSERT_FALSE(read);
        EXPECT_EQ(read.error().meaning(), Errc::too_small);
        EXPECT_EQ(service.requests().size(), 1U);
    } else {
        const std::string text(20000000, 'x');
        const ScriptedService service({replies(GetParam().key + text)});
        EXPECT_TRUE(GetParam().read().value_or("") == text);
    }
}

INSTANTIATE_TEST_SUITE_P(Replies, LongTexts, testing::ValuesIn(kTexts), [](const auto &test) { return test.param.name; });

TEST(LongTexts, that_grow_are_asked_again)
{
    std::size_t length = 4000;
    const ScriptedService service({support::answersWith([&length](const std::string &) {
        length += 200;
        return "channel-info=" + std::string(length, 'x');
    })});
    const auto info = kStation.channel_info();
    ASSERT_FALSE(info);
    EXPECT_EQ(info.error().meaning(), Errc::too_small);
    EXPECT_EQ(service.requests().size(), 8U);
}

// An unknown reply of any length is an error, and the message is the one of the function of C.
TEST(LongTexts, without_the_key_are_unknown)
{
    const support::MessagesOn messages;
    const support::SyslogCapture capture;
    const ScriptedService service({replies(std::string(100000, 'x'))});
    const auto screen = kStation.screen_on_focus();
    ASSERT_FALSE(screen);
    EXPECT_STREQ(screen.error().function(), "KVO_HWS_getKVOScreenOnFocus");
    EXPECT_THAT(capture.texts(), testing::ElementsAre("get KVO screen on focus - unknown error sending request"));
}

}  // namespace
