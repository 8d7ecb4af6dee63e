// Reading the station in focus.
#include <kvo_hws/agent.h>

#include "agent/own_session.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"

#include <arpa/inet.h>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

using support::MessagesOn;
using support::ScriptedService;
using support::SyslogCapture;
using testing::ElementsAre;

const std::string kStation = "0A000005 00000400 00000300 00000020 00000003 st1 00000000 00000000 00000001 00000002 00000003 "
                             "00000004 89ABCDEF ";

class FocusStation : public testing::Test {
protected:
    void SetUp() override
    {
        gFocusKvoIp = inet_addr("10.0.0.5");
        std::memset(gFocusName, 0, sizeof gFocusName);
    }
};

TEST_F(FocusStation, is_read_by_its_address)
{
    const ScriptedService service({support::replies(kStation), support::replies("1:2,3")});
    EXPECT_EQ(init_fb(), 0);
    EXPECT_THAT(service.requests(), ElementsAre("getExDescByIP 0500000A\n", "getKVOt2m2n=0A000005\n"))
        << "the address as inet_aton stores it, then the address of the description";
    EXPECT_EQ(gFocusKvoIp, 0x0A000005U);
}

TEST_F(FocusStation, is_read_by_its_name_without_an_address)
{
    gFocusKvoIp = 0;
    std::strcpy(gFocusName, "st1");
    const ScriptedService service({support::replies(kStation), support::replies("1:2,3")});
    EXPECT_EQ(init_fb(), 0);
    EXPECT_THAT(service.requests(), ElementsAre("getExDescByName st1\n", "getKVOt2m2n=0A000005\n"));
    EXPECT_EQ(gFocusKvoIp, 0x0A000005U);
}

TEST_F(FocusStation, is_named_in_the_message_when_not_found)
{
    const MessagesOn messages;
    {
        const ScriptedService service({support::replies("not found")});
        const SyslogCapture capture;
        EXPECT_EQ(init_fb(), -1);
        EXPECT_THAT(capture.texts(), ElementsAre("init_fb - getDescriptionEx(IP 10.0.0.5) fails with 0"));
        EXPECT_EQ(gFocusKvoIp, inet_addr("10.0.0.5")) << "unchanged";
    }
    gFocusKvoIp = 0;
    std::memset(gFocusName, 'n', sizeof gFocusName - 1);
    const ScriptedService service({support::replies("not found")});
    const SyslogCapture capture;
    EXPECT_EQ(init_fb(), -1);
    EXPECT_EQ(capture.texts().back(), ("init_fb - getDescriptionEx(" + std::string(256, 'n')).substr(0, 255));
}

TEST_F(FocusStation, cannot_be_read_without_a_service)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(init_fb(), -1);
    EXPECT_EQ(capture.texts().back(), "init_fb - getDescriptionEx(IP 10.0.0.5) fails with -2");
}

TEST_F(FocusStation, cannot_be_read_if_the_service_refuses_its_assignment)
{
    const MessagesOn messages;
    const ScriptedService service({support::replies(kStation), support::replies("failed")});
    const SyslogCapture capture;
    EXPECT_EQ(init_fb(), -1);
    // The description's address, lowest-addressed byte first.
    EXPECT_EQ(capture.texts().back(), "init_fb - getKVOT2M2N(IP 5.0.0.10) fails with -1");
    EXPECT_EQ(gFocusKvoIp, 0x0A000005U);
}

/// Needs its own process: the station of another test would still be known.
TEST_F(FocusStation, is_known_after_its_description_was_read)
{
    agent_test::OwnSession own;
    const std::string size = "width=1024 height=768 depth=32\r\n";
    {
        const ScriptedService service({support::replies(kStation), support::replies("failed")});
        EXPECT_EQ(init_fb(), -1);
        EXPECT_EQ(own.replyTo(handle_show_panel_size), size) << "although its assignment is not";
    }
    EXPECT_EQ(init_fb(), -1) << "there is no service";
    EXPECT_EQ(own.replyTo(handle_show_panel_size), size) << "unchanged";
}

TEST_F(FocusStation, takes_an_assignment_of_any_length)
{
    const ScriptedService service({support::replies(kStation), support::replies(std::string(100'000, 'x'))});
    EXPECT_EQ(init_fb(), 0) << "cut to its buffer; the address sanitizer would report an overflow";
}

}  // namespace
