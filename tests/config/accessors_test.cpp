// The accessors of the configuration, before and after reading a file.
#include <kvo_hws/config.h>
#include <kvo_hws/runtime.h>

#include "config/read.h"
#include "support/syslog_capture.h"

#include <arpa/inet.h>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <syslog.h>
#include <vector>

namespace {

using config_test::Read;
using support::LogLine;
using support::SyslogCapture;
using testing::ElementsAre;

struct Accessor {
    const char *name;
    std::function<int()> call;
    int notRead;
    std::string message;
};

std::ostream &operator<<(std::ostream &out, const Accessor &row) { return out << row.name; }

char textOut[300];
uint32_t wordOut;
uint16_t shortOut;

const std::vector<Accessor> kAccessors = {
    {"interface_ip", [] { return GetInterfaceIP(textOut, &wordOut); }, -2,
     "config dat not set ==> no IP address for interface '(null)' available"},
    {"port", [] { return GetPortNumber(&shortOut); }, -1, "no port number available"},
    {"session", [] { return GetSessionNumber(&wordOut); }, -1, "no port number available"},
    {"name", [] { return GetRHZName(textOut); }, -1, "no RHZ/JDL name available"},
    {"backlight", [] { return GetBacklightMode(&wordOut); }, -1, "no backlight mode available"},
    {"brightness", [] { return GetBrightnessMode(&wordOut); }, -1, "no brightness mode available"},
    {"backlight_brightness", [] { return GetBacklightBrightnessMode(&wordOut); }, -1, "no backlight brightness mode available"},
    {"registry_path", [] { return GetRegistryPath(textOut); }, -1, "no registry path available"}};

class Accessors : public testing::TestWithParam<Accessor> {};

TEST_P(Accessors, return_nothing_before_the_file_is_read)
{
    sConfData = {};
    std::memset(textOut, '#', sizeof textOut);
    wordOut = 0x5A5A5A5A;
    shortOut = 0x5A5A;
    const SyslogCapture capture;
    EXPECT_EQ(GetParam().call(), GetParam().notRead);
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"", LOG_ERR, GetParam().message}));
    EXPECT_EQ(std::string(textOut, sizeof textOut), std::string(sizeof textOut, '#'));
    EXPECT_EQ(wordOut, 0x5A5A5A5AU);
    EXPECT_EQ(shortOut, 0x5A5A);
}

INSTANTIATE_TEST_SUITE_P(Of, Accessors, testing::ValuesIn(kAccessors),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(AccessorValues, are_the_values_of_the_file)
{
    const Read file("interface = lo\nport = 5852\nname = Lathe 3\nbacklight = all\nbrightness = none\n"
                    "backlight_brightness = what\nregistry_path = /data\n");
    const SyslogCapture capture;
    EXPECT_EQ(GetInterfaceIP(textOut, &wordOut), 0);
    EXPECT_STREQ(textOut, "127.0.0.1");
    EXPECT_EQ(wordOut, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(GetPortNumber(&shortOut), 0);
    EXPECT_EQ(shortOut, 5852);
    EXPECT_EQ(GetSessionNumber(&wordOut), 0);
    EXPECT_EQ(wordOut, 2U);
    EXPECT_EQ(GetRHZName(textOut), 0);
    EXPECT_STREQ(textOut, "Lathe 3");
    EXPECT_EQ(GetBacklightMode(&wordOut), 0);
    EXPECT_EQ(wordOut, 0U);
    EXPECT_EQ(GetBrightnessMode(&wordOut), 0);
    EXPECT_EQ(wordOut, 2U);
    EXPECT_EQ(GetBacklightBrightnessMode(&wordOut), 0);
    EXPECT_EQ(wordOut, 255U);
    EXPECT_EQ(GetRegistryPath(textOut), 0);
    EXPECT_STREQ(textOut, "/data/");
    EXPECT_THAT(capture.lines(), testing::IsEmpty());
}

TEST(AccessorValues, report_an_interface_without_an_address)
{
    const Read file("interface = eth7\n");
    const SyslogCapture capture;
    EXPECT_EQ(GetInterfaceIP(textOut, &wordOut), -1);
    ASSERT_EQ(capture.lines().size(), 1U);
    EXPECT_EQ(capture.lines()[0].priority, LOG_ERR);
    EXPECT_THAT(capture.lines()[0].text,
                testing::MatchesRegex("GetIpByInterface fails with -?[0-9]+ ==> no IP address for interface 'eth7' available"));
}

TEST(AccessorValues, start_with_session_0)
{
    const Read file("");
    EXPECT_EQ(GetSessionNumber(&wordOut), 0);
    EXPECT_EQ(wordOut, 0U);
}

TEST(AccessorValues, log_the_configured_interface_although_no_file_was_read)
{
    char name[] = "eth9";
    sConfData = {};
    sConfData.interface = name;
    const SyslogCapture capture;
    EXPECT_EQ(GetInterfaceIP(textOut, &wordOut), -2);
    EXPECT_THAT(capture.texts(), ElementsAre("config dat not set ==> no IP address for interface 'eth9' available"));
    sConfData = {};
}

TEST(AccessorValues, wrap_around_if_the_port_is_below_that_of_session_0)
{
    const Read file("port = 5849\n");
    EXPECT_EQ(GetSessionNumber(&wordOut), 0);
    EXPECT_EQ(wordOut, 0xFFFFFFFFU);
}

}  // namespace
