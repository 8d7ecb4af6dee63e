// Every command over the wire: the reply to the remote side, the request to the local service, and the call of the host.
#include <kvo_hws/agent.h>

#include "agent/agent_fixture.h"
#include "agent/connected_agent.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

namespace {

using agent_test::Agent;
using agent_test::ConnectedAgent;
using agent_test::Datagrams;
using agent_test::Host;
using agent_test::kMcp;
using agent_test::listOf;
using agent_test::Replies;

/// A command of the table with all its effects. The texts have no line ends.
struct Command {
    std::string request;
    std::string answer;               ///< the answer with a control panel, if the host returns 1
    std::string serviceRequest = {};  ///< request to the local service
    std::string reply = {};           ///< the reply of the local service
    std::string withoutPanel = {};    ///< the answer without a control panel; the service then receives no request
    std::string hostCommand = {};     ///< the command that the host receives
    std::string answerTo0 = {};
    std::string answerToOther = {};
};

Command refused(const std::string &request, const std::string &answer = "bad request") { return {request, answer}; }

Command queries(const std::string &request, const std::string &serviceRequest, const std::string &reply,
                const std::string &answer)
{
    return {request, answer, serviceRequest, reply};
}

Command queriesPanel(const std::string &request, const std::string &serviceRequest, const std::string &reply,
                     const std::string &answer, const std::string &withoutPanel)
{
    return {request, answer, serviceRequest, reply, withoutPanel};
}

Command callsHost(const std::string &request, const std::string &hostCommand, const std::string &answerTo1,
                  const std::string &answerTo0, const std::string &answerToOther = "failed")
{
    return {request, answerTo1, {}, {}, {}, hostCommand, answerTo0, answerToOther};
}

/// The whole table in order.
const std::vector<Command> kCommands = {
    {"show-panel-size", "width=1024 height=768 depth=32"},
    {"show-hwid", "hwid=1.2.3.4:89abcdef"},
    queries("show-input-devices", "showInputDevice=0500000A", "kbd=1 mouse=2 touch=3 vkbd=4", "kbd=1 mouse=2 touch=3 vkbd=4"),
    refused("set-backlight=5", "failed: EMB-KVO backlight not supported"),
    refused("set-backlight-brightness=5", "failed: EMB-KVO backlight brightness not supported"),
    refused("set-backlight-brightness-v2=5", "failed: EMB-KVO backlight brightness V2 not supported"),
    refused("get-backlight-brightness-v2=5", "failed: EMB-KVO backlight brightness not supported"),
    callsHost("set-darken=1", "set-darken=1", "ok", "failed"),
    {"set-disable-numlock=1", "ok"},
    {"set-disable-capslock=0", "ok"},
    {"get-disable-numlock", "disable-numlock=1"},
    {"get-disable-capslock", "disable-capslock=0"},
    queries("get-station-type", "getStationType=0500000A", "stationtype -1", "station-type=-1"),
    queries("get-sw-capslock", "getSwCapsLock=0500000A", "swcapslock -1", "sw-capslock=-1"),
    queries("set-sw-capslock=-1", "setSwCapsLock=-1 0500000A", "ok", "ok"),
    {"get-kvo-name", "EmbKVO_000000000000"},
    {"get-kvo-priority", "Priority=21:22"},
    {"get-kvo-startup-active", "startup-active=23"},
    {"get-kvo-startup-prio", "startup-prio=24"},
    {"set-channel-info=Line 1, hall B", "ok"},
    {"get-channel-info", "channel-info=Line 1, hall B"},
    {"get-screen-on-focus", "screen-on-focus=main screen"},
    {"get-channel-on-focus", "channel-on-focus=25"},
    {"get-t2m2n", "1:2,3"},
    queriesPanel("get-mcpaddr", "getMCPAddress=0500000A", "mcpaddr=17", "mcpaddr=17", "mcpaddr=255"),
    queriesPanel("set-mcpaddr=18", "setMCPAddress=\"18\" 0500000A", "ok", "ok", "ok"),
    {"get-kvoindex", "kvoindex=26"},
    {"set-kvoindex=26", "ok"},
    queriesPanel("get-dckaddr", "getDCKAddress=0500000A", "dckaddr=19", "dckaddr=19", "dckaddr=255"),
    queriesPanel("get-dckenable", "getDCKEnable=0500000A", "dckenable=1", "dckenable=1", "dckenable=0"),
    queriesPanel("set-dckenable=1", "setDCKEnable=\"1\" 0500000A", "ok", "ok", "ok"),
    queriesPanel("get-cksindex", "getKVOCksIndex=0500000A", "cksindex=20", "cksindex=20", "cksindex=255"),
    queriesPanel("set-cksindex=20", "setKVOCksIndex=\"20\" 0500000A", "ok", "ok", "ok"),
    queries("invalidate-calibration", "invalidateTouch=0500000A", "ok", "ok"),
    queries("get-rv4mode", "getRV4Mode=0500000A", "rv4mode=1", "rv4mode=1"),
    queries("set-rv4mode=1", "setRV4Mode=\"1\" 0500000A", "ok", "ok"),
    refused("get-calibparam"),
    refused("set-calibparam=1"),
    refused("simulate-mcp=1"),
    refused("enable-mcp=1"),
    refused("reboot"),
    callsHost("show-viewer-active", "show-viewer-active", "active=1", "active=0"),
    callsHost("show-current-server", "show-viewer-active", "vncserver=127.0.0.1:3", "none", "none"),
    refused("start-viewer=10.0.0.9 1 2"),
    refused("start-configured-viewer=1"),
    callsHost("stop-viewer-preempt", "stop-viewer-preempt", "ok", "not running"),
    callsHost("stop-viewer-noclean", "stop-viewer-noclean", "ok", "not running"),
    callsHost("stop-viewer", "stop-viewer", "ok", "not running"),
    callsHost("activate-me", "activate-me", "ok", "busy"),
    {"servername=main station", "ok"},
    callsHost("set-statusline=1,2,Hello, world", "set-statusline=1,2,Hello, world", "ok", "failed"),
    {"ping", "pong"},
    queries("get-softkey-type", "getSoftkeyType=0500000A", "softkey-type=A0", "softkey-type=160"),
    queries("get-keyboard-caps", "getKeyBoardCaps=0500000A", "keyboard-caps=1F", "keyboard-caps=31"),
    queries("get-hardware-caps", "getHardwareCaps=0500000A", "hardware-caps=FFFFFFFE", "hardware-caps=4294967294"),
    queries("get-panel-oem-layout", "getPaneOemLayout=0500000A", "panel-oem-layout=LAYOUT7", "panel-oem-layout=LAYOUT7"),
    queries("get-panel-rotation", "getPanelRotation=0500000A", "panel-rotation=4", "panel-rotation=4"),
    {"set-usb-lock=1:9", "ok"},
    queries("get-usb-lock", "getUsbLock=0500000A", "usb-lock=1:9", "usb-lock=1:9"),
    refused("sync-times=1"),
};

const std::string kHostParameters = "suspendLock=21\nsuspendPrio=22\nstartupActive=23\nstartupPrio=24\nchannelOnFocus=25\n"
                                    "kvoIndex=26\nscreenOnFocus=main screen\n";

Replies allReplies()
{
    Replies replies;
    for (const Command &command : kCommands) {
        if (!command.serviceRequest.empty()) {
            replies.emplace(command.serviceRequest, command.reply);
        }
    }
    return replies;
}

using RequestCase =
    std::tuple<bool, std::string, int>;  // whether the focused station has a control panel, the tag, the host's result

class EveryCommand : public testing::TestWithParam<RequestCase> {};

TEST_P(EveryCommand, has_the_expected_reply_request_and_callback)
{
    const auto &[panel, tag, hostResult] = GetParam();
    Datagrams datagrams;
    ConnectedAgent agent(kHostParameters + (panel ? kMcp : ""), allReplies());
    Host::setAnswer(hostResult);
    for (const Command &command : kCommands) {
        SCOPED_TRACE(command.request);
        std::string answer = command.answer;
        if (!command.hostCommand.empty() && hostResult != 1) {
            answer = hostResult == 0 ? command.answerTo0 : command.answerToOther;
        }
        const bool lacksPanel = !panel && !command.withoutPanel.empty();
        EXPECT_EQ(agent.ask(tag + command.request), tag + (lacksPanel ? command.withoutPanel : answer));
        EXPECT_EQ(agent.serviceRequests(), listOf(lacksPanel ? "" : command.serviceRequest));
        EXPECT_EQ(Host::commands(), listOf(command.hostCommand));
    }
    EXPECT_EQ(datagrams.texts().size(), 1U) << "only the USB lock is sent as a datagram";
}

std::string nameOf(const testing::TestParamInfo<RequestCase> &parameters)
{
    const auto &[panel, tag, hostResult] = parameters.param;
    return std::string(panel ? "panel" : "no_panel") + (tag.empty() ? "" : "_tagged") + "_host_returns_" +
           (hostResult < 0 ? "minus_" : "") + std::to_string(std::abs(hostResult));
}

INSTANTIATE_TEST_SUITE_P(Agent, EveryCommand,
                         testing::Combine(testing::Bool(), testing::Values("", "042:"), testing::Values(1, 0, -1, 2)), nameOf);

TEST(Commands, are_in_the_expected_order)
{
    ASSERT_EQ(kCommands.size(), std::size(cmds));
    for (std::size_t row = 0; row < std::size(cmds); ++row) {
        EXPECT_TRUE(kCommands[row].request.starts_with(cmds[row].keyword)) << kCommands[row].request;
    }
}

TEST(Commands, with_the_same_behaviour_share_one_handler)
{
    EXPECT_EQ(handle_set_backlight_brightness, handle_get_backlight_brightness_v2);
    EXPECT_NE(handle_set_backlight_brightness, handle_set_backlight_brightness_v2);
    for (const CmdHandler same : {handle_start_viewer, handle_start_configured_viewer, handle_reboot, handle_enable_mcp,
                                  handle_simulate_mcp, handle_set_calibparam, handle_get_calibparam}) {
        EXPECT_EQ(same, handle_sync_times);
    }
}

}  // namespace
