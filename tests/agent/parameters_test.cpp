// The parameter text. A start without a remote service or without a focused station parses all of it and does nothing else.
#include <kvo_hws/agent.h>

#include "agent/agent_fixture.h"
#include "support/syslog_capture.h"

#include <arpa/inet.h>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

using agent_test::Host;
using testing::ElementsAre;

int start(const std::string &parameters)
{
    void *instance = nullptr;
    const int result = KVO_HWS_startupEmbHwsClient(parameters.c_str(), &instance, Host::callback);
    EXPECT_EQ(instance, nullptr) << "not written unless the agent starts";
    EXPECT_EQ(gCmdCallback, nullptr);
    return result;
}

/// The agent's fields after parsing this text.
EmbKvoInst read(const std::string &parameters)
{
    EXPECT_EQ(start(parameters), -9);
    return *gEmbKvoInst;
}

TEST(Parameters, have_defaults)
{
    std::memset(&gEmbKvoInst->focusKvoIp, 0x5A, offsetof(EmbKvoInst, session) - offsetof(EmbKvoInst, focusKvoIp));
    const EmbKvoInst agent = read("");
    EXPECT_EQ(agent.focusKvoIp, 0U);
    EXPECT_STREQ(agent.focusKvoName, "");
    EXPECT_EQ(agent.remoteKvoHwsIp, 0U);
    EXPECT_EQ(agent.remoteSession, 0U);
    EXPECT_THAT(agent.reserved, ElementsAre(0, 0, 0));
    EXPECT_EQ(agent.kvoIndex, 1U);
    EXPECT_EQ(agent.mcpFlag, 0U);
    EXPECT_EQ(agent.channelOnFocus, 1U);
    EXPECT_STREQ(agent.screenOnFocus, "");
    EXPECT_EQ(agent.suspendLock, 0U);
    EXPECT_EQ(agent.suspendPrio, 1U);
    EXPECT_EQ(agent.startupActive, 1U);
    EXPECT_EQ(agent.startupPrio, 2U);
}

TEST(Parameters, are_read_line_by_line)
{
    const EmbKvoInst agent =
        read("focusKvoIp=10.0.0.5\nfocusKvoName=station 5\nkvoIndex=6\nmcpFlag=7\nscreenOnFocus=main = left\n"
             "channelOnFocus=8\nsuspendLock=9\nsuspendPrio=10\nstartupActive=11\nstartupPrio=12\n"
             "remoteSession=13");
    EXPECT_EQ(agent.focusKvoIp, inet_addr("10.0.0.5"));
    EXPECT_STREQ(agent.focusKvoName, "station 5");
    EXPECT_EQ(agent.kvoIndex, 6U);
    EXPECT_EQ(agent.mcpFlag, 7U);
    EXPECT_STREQ(agent.screenOnFocus, "main = left");
    EXPECT_EQ(agent.channelOnFocus, 8U);
    EXPECT_EQ(agent.suspendLock, 9U);
    EXPECT_EQ(agent.suspendPrio, 10U);
    EXPECT_EQ(agent.startupActive, 11U);
    EXPECT_EQ(agent.startupPrio, 12U);
    EXPECT_EQ(agent.remoteSession, 3U) << "one of ten";
    EXPECT_EQ(read("remoteKvoHwsIp=10.0.0.6\n").remoteKvoHwsIp, inet_addr("10.0.0.6"));
}

TEST(Parameters, are_reset_by_each_start)
{
    read("focusKvoIp=10.0.0.5\nscreenOnFocus=main\nkvoIndex=6\n");
    const EmbKvoInst agent = read("mcpFlag=1\n");
    EXPECT_EQ(agent.focusKvoIp, 0U);
    EXPECT_STREQ(agent.screenOnFocus, "");
    EXPECT_EQ(agent.kvoIndex, 1U);
}

TEST(Parameters, that_are_unknown_are_skipped)
{
    const EmbKvoInst agent = read("\n\nkvoindex=6\n kvoIndex=7\nxkvoIndex=8\nkvoIndex 9\nkvoIndex\n=\nanything\nmcpFlag=2\n");
    EXPECT_EQ(agent.kvoIndex, 1U);
    EXPECT_EQ(agent.mcpFlag, 2U);
}

TEST(Parameters, use_the_last_of_two_values)
{
    EXPECT_EQ(read("kvoIndex=6\nkvoIndex=7\n").kvoIndex, 7U);
    EXPECT_STREQ(read("focusKvoName=alpha\nfocusKvoName=b\n").focusKvoName, "b");
}

TEST(Parameters, parse_numbers_up_to_the_first_other_character)
{
    EXPECT_EQ(read("kvoIndex=6x7\n").kvoIndex, 6U);
    EXPECT_EQ(read("kvoIndex=6\r\n").kvoIndex, 6U);
    EXPECT_EQ(read("kvoIndex=\n7\n").kvoIndex, 0U) << "not the number of the next line";
    EXPECT_EQ(read("kvoIndex=x\n").kvoIndex, 0U);
    EXPECT_EQ(read("kvoIndex=0x10\n").kvoIndex, 0U);
    EXPECT_EQ(read("kvoIndex=4294967295\n").kvoIndex, 4294967295U);
    EXPECT_EQ(read("remoteSession=29\n").remoteSession, 9U);
    EXPECT_EQ(read("remoteSession=4294967297\n").remoteSession, sizeof(long) == 8 ? 7U : 5U) << "the whole number counts";
    EXPECT_EQ(read("remoteSession=99999999999999999999\n").remoteSession, 5U) << "limited to the largest number";
    EXPECT_EQ(read("kvoIndex=" + std::string(60, '0') + "5\n").kvoIndex, 5U);
}

TEST(Parameters, treat_an_invalid_address_as_missing)
{
    for (const char *const address : {"", "x", "10.0.0.256", "10.0.0.5.6", "10.0.0.5x", "300.1.1.1", "station"}) {
        EXPECT_EQ(read("focusKvoIp=10.0.0.5\nfocusKvoIp=" + std::string(address) + "\n").focusKvoIp, 0U) << address;
    }
    EXPECT_EQ(read("focusKvoIp=10.0.0.5\r\n").focusKvoIp, inet_addr("10.0.0.5")) << "files with other line ends";
    EXPECT_EQ(start("focusKvoIp=10.0.0.5\nremoteKvoHwsIp=10.0.0.300\n"), -9);
}

TEST(Parameters, truncate_texts_to_their_fields)
{
    const std::string text(200, 't');
    const EmbKvoInst agent = read("focusKvoName=" + text + "\nscreenOnFocus=" + text + "\nkvoIndex=6\n");
    EXPECT_STREQ(agent.focusKvoName, std::string(127, 't').c_str());
    EXPECT_STREQ(agent.screenOnFocus, std::string(127, 't').c_str());
    EXPECT_EQ(agent.remoteKvoHwsIp, 0U) << "the field after it";
    EXPECT_EQ(agent.kvoIndex, 6U);
    EXPECT_STREQ(read("focusKvoName=" + std::string(127, 't')).focusKvoName, std::string(127, 't').c_str());
}

TEST(Parameters, need_a_focused_station_and_a_remote_service)
{
    const support::MessagesOn messages;
    for (const char *const incomplete :
         {"", "focusKvoIp=10.0.0.5\n", "focusKvoName=st1\n", "remoteKvoHwsIp=127.0.0.1\n",
          "focusKvoIp=0.0.0.0\nremoteKvoHwsIp=127.0.0.1\n", "focusKvoName=\nremoteKvoHwsIp=127.0.0.1\n",
          "focusKvoIp=10.0.0.5\nremoteKvoHwsIp=0.0.0.0\n"}) {
        const support::SyslogCapture capture;
        EXPECT_EQ(start(incomplete), -9) << incomplete;
        EXPECT_THAT(capture.texts(), ElementsAre("KVO_HWS DLL - parseParameter - obligatory parameter missed"));
    }
}

}  // namespace
