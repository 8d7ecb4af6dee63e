// A result is a value or an error; the meaning of an error does not depend on the function.
#include <kvo_hws/result.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using kvo::Errc;
using kvo::Error;
using kvo::Result;

const Error kOutOfRange("KVO_HWS_setBacklightBrightness", -3);

TEST(Result, has_a_value_or_an_error)
{
    const Result<int> five = 5;
    ASSERT_TRUE(five);
    EXPECT_EQ(*five, 5);
    EXPECT_EQ(five.value_or(7), 5);
    const Result<int> none = kOutOfRange;
    ASSERT_FALSE(none);
    EXPECT_EQ(none.value_or(7), 7);
    EXPECT_EQ(none.error().code(), -3);
}

TEST(Result, moves_its_value_out)
{
    Result<std::unique_ptr<int>> owner = std::make_unique<int>(5);
    EXPECT_EQ(*std::move(owner).value(), 5);
}

TEST(Result, of_a_temporary_keeps_its_value_for_a_loop)
{
    const auto texts = [] { return Result<std::vector<std::string>>({std::string(100, 'a'), std::string(100, 'b')}); };
    std::string read;
    for (const std::string &text : texts().value()) {
        read += text.front();
    }
    for (const std::string &text : *texts()) {
        read += text.back();
    }
    EXPECT_EQ(read, "abab");
    static_assert(!std::is_reference_v<decltype(texts().value())> && !std::is_reference_v<decltype(*texts())>);
}

TEST(Result, of_false_is_a_value)
{
    const Result<bool> no = false;
    EXPECT_TRUE(no.has_value());
    EXPECT_FALSE(no.value());
}

TEST(Result, throws_its_error)
{
    const Result<int> number = kOutOfRange;
    EXPECT_THROW((void)number.value(), kvo::Exception);
    const Result<void> nothing = kOutOfRange;
    EXPECT_THROW(nothing.value(), kvo::Exception);
    EXPECT_NO_THROW(Result<void>().value());
}

TEST(Error, has_the_number_the_function_and_the_words_of_the_functions_of_c)
{
    EXPECT_STREQ(kOutOfRange.function(), "KVO_HWS_setBacklightBrightness");
    EXPECT_STREQ(kOutOfRange.reason(), "the level is not one of 0 to 100");
    EXPECT_EQ(kOutOfRange.message(), "the level is not one of 0 to 100 (KVO_HWS_setBacklightBrightness: -3)");
}

struct Meaning {
    const char *name;
    const char *function;
    int code;
    Errc meaning;
};

class Meanings : public testing::TestWithParam<Meaning> {};

TEST_P(Meanings, depend_on_function_and_code)
{
    EXPECT_EQ(Error(GetParam().function, GetParam().code).meaning(), GetParam().meaning);
}

const Meaning kMeanings[] = {
    {"any_failure", "KVO_HWS_getMCPAddress", -1, Errc::failed},
    {"no_service", "KVO_HWS_getMCPAddress", -2, Errc::no_service},
    {"level", "KVO_HWS_setBacklightBrightness", -3, Errc::out_of_range},
    {"list", "KVO_HWS_getDescriptionList", -3, Errc::too_small},
    {"several_stations", "KVO_HWS_getIPbyMCPAddress", -3, Errc::ambiguous},
    {"unknown_mode", "KVO_HWS_isMarovantiPanel", -3, Errc::unknown_reply},
    {"thread", "KVO_HWS_activateUSBEventsV2", -3, Errc::no_thread},
    {"registry_lock", "KVO_HWS_getKVOCurrentListFromRegistry", -4, Errc::timeout},
    {"second_buffer", "KVO_HWS_getCurrentServer", -4, Errc::too_small},
    {"mode", "KVO_HWS_setBacklightBrightnessV2", -4, Errc::out_of_range},
    {"refusal", "KVO_HWS_getUsbConnectorList", -4, Errc::refused},
    {"missing_metric", "KVO_HWS_getStationMetrics", -4, Errc::not_available},
    {"malformed_metric", "KVO_HWS_getStationMetrics", -5, Errc::unknown_reply},
    {"unknown_to_the_station", "KVO_HWS_setBacklightBrightnessV2", -5, Errc::unsupported},
    {"backlight", "KVO_HWS_setBacklightBrightnessV2", -6, Errc::not_active},
    {"server", "KVO_HWS_activateUSBEventsV2", -8, Errc::server_failed},
    {"second_agent", "KVO_HWS_startupEmbHwsClient", -8, Errc::already_running},
    {"busy", "KVO_HWS_getUsbConnectorList", -9, Errc::busy},
    {"host", "KVO_HWS_setUsbLock", -10, Errc::invalid_address},
};

INSTANTIATE_TEST_SUITE_P(Codes, Meanings, testing::ValuesIn(kMeanings), [](const auto &test) { return test.param.name; });

}  // namespace
