// Every command over the wire: what the remote side is answered, what the local service is asked, and what the host is told.
#include <kvo_hws/agent.h>

#include "agent/agent_fixture.h"
#include "agent/own_session.h"
#include "support/failing_allocations.h"
#include "support/system_calls.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <mutex>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using agent_test::Agent;
using agent_test::Host;
using agent_test::kSession;
using agent_test::OwnSession;
using agent_test::parameters;
using agent_test::Replies;
using agent_test::serves;
using support::RemoteService;
using support::ScriptedService;
using support::WithSystemCalls;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kMcp = "mcpFlag=2\n";  // not 0, that is all

/// A command of the table and what comes of it, without line ends.
struct Command {
    std::string request;
    std::string answer;             ///< with a control panel, where that matters; a host's 1
    std::string asked = {};         ///< of the local service
    std::string reply = {};         ///< of the local service
    std::string withoutPanel = {};  ///< the answer where there is no control panel, and then the service is not asked
    std::string told = {};          ///< to the host
    std::string answerTo0 = {};
    std::string answerToOther = {};
};

Command refused(const std::string &request, const std::string &answer = "bad request") { return {request, answer}; }

Command asks(const std::string &request, const std::string &asked, const std::string &reply, const std::string &answer)
{
    return {request, answer, asked, reply};
}

Command asksPanel(const std::string &request, const std::string &asked, const std::string &reply, const std::string &answer,
                  const std::string &withoutPanel)
{
    return {request, answer, asked, reply, withoutPanel};
}

Command tellsHost(const std::string &request, const std::string &told, const std::string &answerTo1,
                  const std::string &answerTo0, const std::string &answerToOther = "failed")
{
    return {request, answerTo1, {}, {}, {}, told, answerTo0, answerToOther};
}

/// The whole table in its order.
const std::vector<Command> kCommands = {
    {"show-panel-size", "width=1024 height=768 depth=32"},
    {"show-hwid", "hwid=1.2.3.4:89abcdef"},
    asks("show-input-devices", "showInputDevice=0500000A", "kbd=1 mouse=2 touch=3 vkbd=4", "kbd=1 mouse=2 touch=3 vkbd=4"),
    refused("set-backlight=5", "failed: EMB-KVO backlight not supported"),
    refused("set-backlight-brightness=5", "failed: EMB-KVO backlight brightness not supported"),
    refused("set-backlight-brightness-v2=5", "failed: EMB-KVO backlight brightness V2 not supported"),
    refused("get-backlight-brightness-v2=5", "failed: EMB-KVO backlight brightness not supported"),
    tellsHost("set-darken=1", "set-darken=1", "ok", "failed"),
    {"set-disable-numlock=1", "ok"},
    {"set-disable-capslock=0", "ok"},
    {"get-disable-numlock", "disable-numlock=1"},
    {"get-disable-capslock", "disable-capslock=0"},
    asks("get-station-type", "getStationType=0500000A", "stationtype -1", "station-type=-1"),
    asks("get-sw-capslock", "getSwCapsLock=0500000A", "swcapslock -1", "sw-capslock=-1"),
    asks("set-sw-capslock=-1", "setSwCapsLock=-1 0500000A", "ok", "ok"),
    {"get-kvo-name", "EmbKVO_000000000000"},
    {"get-kvo-priority", "Priority=21:22"},
    {"get-kvo-startup-active", "startup-active=23"},
    {"get-kvo-startup-prio", "startup-prio=24"},
    {"set-channel-info=Line 1, hall B", "ok"},
    {"get-channel-info", "channel-info=Line 1, hall B"},
    {"get-screen-on-focus", "screen-on-focus=main screen"},
    {"get-channel-on-focus", "channel-on-focus=25"},
    {"get-t2m2n", "1:2,3"},
    asksPanel("get-mcpaddr", "getMCPAddress=0500000A", "mcpaddr=17", "mcpaddr=17", "mcpaddr=255"),
    asksPanel("set-mcpaddr=18", "setMCPAddress=\"18\" 0500000A", "ok", "ok", "ok"),
    {"get-kvoindex", "kvoindex=26"},
    {"set-kvoindex=26", "ok"},
    asksPanel("get-dckaddr", "getDCKAddress=0500000A", "dckaddr=19", "dckaddr=19", "dckaddr=255"),
    asksPanel("get-dckenable", "getDCKEnable=0500000A", "dckenable=1", "dckenable=1", "dckenable=0"),
    asksPanel("set-dckenable=1", "setDCKEnable=\"1\" 0500000A", "ok", "ok", "ok"),
    asksPanel("get-cksindex", "getKVOCksIndex=0500000A", "cksindex=20", "cksindex=20", "cksindex=255"),
    asksPanel("set-cksindex=20", "setKVOCksIndex=\"20\" 0500000A", "ok", "ok", "ok"),
    asks("invalidate-calibration", "invalidateTouch=0500000A", "ok", "ok"),
    asks("get-rv4mode", "getRV4Mode=0500000A", "rv4mode=1", "rv4mode=1"),
    asks("set-rv4mode=1", "setRV4Mode=\"1\" 0500000A", "ok", "ok"),
    refused("get-calibparam"),
    refused("set-calibparam=1"),
    refused("simulate-mcp=1"),
    refused("enable-mcp=1"),
    refused("reboot"),
    tellsHost("show-viewer-active", "show-viewer-active", "active=1", "active=0"),
    tellsHost("show-current-server", "show-viewer-active", "vncserver=127.0.0.1:3", "none", "none"),
    refused("start-viewer=10.0.0.9 1 2"),
    refused("start-configured-viewer=1"),
    tellsHost("stop-viewer-preempt", "stop-viewer-preempt", "ok", "not running"),
    tellsHost("stop-viewer-noclean", "stop-viewer-noclean", "ok", "not running"),
    tellsHost("stop-viewer", "stop-viewer", "ok", "not running"),
    tellsHost("activate-me", "activate-me", "ok", "busy"),
    {"servername=main station", "ok"},
    tellsHost("set-statusline=1,2,Hello, world", "set-statusline=1,2,Hello, world", "ok", "failed"),
    {"ping", "pong"},
    asks("get-softkey-type", "getSoftkeyType=0500000A", "softkey-type=A0", "softkey-type=160"),
    asks("get-keyboard-caps", "getKeyBoardCaps=0500000A", "keyboard-caps=1F", "keyboard-caps=31"),
    asks("get-hardware-caps", "getHardwareCaps=0500000A", "hardware-caps=FFFFFFFE", "hardware-caps=4294967294"),
    asks("get-panel-oem-layout", "getPaneOemLayout=0500000A", "panel-oem-layout=LAYOUT7", "panel-oem-layout=LAYOUT7"),
    asks("get-panel-rotation", "getPanelRotation=0500000A", "panel-rotation=4", "panel-rotation=4"),
    {"set-usb-lock=1:9", "ok"},
    asks("get-usb-lock", "getUsbLock=0500000A", "usb-lock=1:9", "usb-lock=1:9"),
    refused("sync-times=1"),
};

const std::string kHostParameters = "suspendLock=21\nsuspendPrio=22\nstartupActive=23\nstartupPrio=24\nchannelOnFocus=25\n"
                                    "kvoIndex=26\nscreenOnFocus=main screen\n";

Replies allReplies()
{
    Replies replies;
    for (const Command &command : kCommands) {
        if (!command.asked.empty()) {
            replies.emplace(command.asked, command.reply);
        }
    }
    return replies;
}

/// An agent in a conversation with a remote side, after its start's own questions.
class Conversation {
public:
    explicit Conversation(const std::string &more = "", const Replies &replies = {})
        : service_({serves(replies)}), agent_((setenv("KVO_PLATFORM_INTERFACE", "lo", 1), parameters(more)))
    {
        EXPECT_TRUE(remote_.accept());
        heard_ = service_.requests().size();
    }

    RemoteService &remote() { return remote_; }
    std::string ask(const std::string &request) { return remote_.ask(request); }

    /// What the local service was asked since the last look.
    std::vector<std::string> asked()
    {
        std::vector<std::string> all = service_.requests();
        all.erase(all.begin(), std::next(all.begin(), static_cast<std::ptrdiff_t>(std::exchange(heard_, all.size()))));
        for (std::string &request : all) {
            request.pop_back();
        }
        return all;
    }

private:
    RemoteService remote_{kSession};
    ScriptedService service_;
    Agent agent_;
    std::size_t heard_ = 0;
};

/// The datagrams that a USB lock is sent by.
class Datagrams {
public:
    std::vector<std::string> texts()
    {
        const std::lock_guard guard(lock_);
        return std::exchange(texts_, {});
    }

private:
    ssize_t take(const void *bytes, std::size_t length)
    {
        const std::lock_guard guard(lock_);
        texts_.emplace_back(static_cast<const char *>(bytes), length);
        return static_cast<ssize_t>(length);
    }

    std::mutex lock_;
    std::vector<std::string> texts_;
    WithSystemCalls calls_{
        {.sendto = [this](int, const void *bytes, std::size_t length, const sockaddr *) { return take(bytes, length); }}};
};

std::vector<std::string> listOf(const std::string &text)
{
    return text.empty() ? std::vector<std::string>{} : std::vector<std::string>{text};
}

using Circumstances = std::tuple<bool, std::string, int>;  // a control panel in focus, the tag, what the host says

class EveryCommand : public testing::TestWithParam<Circumstances> {};

TEST_P(EveryCommand, is_answered)
{
    const auto &[panel, tag, said] = GetParam();
    Datagrams datagrams;
    Conversation conversation(kHostParameters + (panel ? kMcp : ""), allReplies());
    Host::says(said);
    for (const Command &command : kCommands) {
        SCOPED_TRACE(command.request);
        std::string answer = command.answer;
        if (!command.told.empty() && said != 1) {
            answer = said == 0 ? command.answerTo0 : command.answerToOther;
        }
        const bool kept = !panel && !command.withoutPanel.empty();
        EXPECT_EQ(conversation.ask(tag + command.request), tag + (kept ? command.withoutPanel : answer));
        EXPECT_EQ(conversation.asked(), listOf(kept ? "" : command.asked));
        EXPECT_EQ(Host::commands(), listOf(command.told));
    }
    EXPECT_EQ(datagrams.texts().size(), 1U) << "the USB lock alone is sent as a datagram";
}

std::string nameOf(const testing::TestParamInfo<Circumstances> &circumstances)
{
    const auto &[panel, tag, said] = circumstances.param;
    return std::string(panel ? "panel" : "no_panel") + (tag.empty() ? "" : "_tagged") + "_host_says_" +
           (said < 0 ? "minus_" : "") + std::to_string(std::abs(said));
}

INSTANTIATE_TEST_SUITE_P(Agent, EveryCommand,
                         testing::Combine(testing::Bool(), testing::Values("", "042:"), testing::Values(1, 0, -1, 2)), nameOf);

TEST(Commands, stand_in_the_table_s_order)
{
    ASSERT_EQ(kCommands.size(), std::size(cmds));
    for (std::size_t row = 0; row < std::size(cmds); ++row) {
        EXPECT_TRUE(kCommands[row].request.starts_with(cmds[row].keyword)) << kCommands[row].request;
    }
}

TEST(Commands, that_are_the_same_function_have_one_address)
{
    EXPECT_EQ(handle_set_backlight_brightness, handle_get_backlight_brightness_v2);
    EXPECT_NE(handle_set_backlight_brightness, handle_set_backlight_brightness_v2);
    for (const CmdHandler same : {handle_start_viewer, handle_start_configured_viewer, handle_reboot, handle_enable_mcp,
                                  handle_simulate_mcp, handle_set_calibparam, handle_get_calibparam}) {
        EXPECT_EQ(same, handle_sync_times);
    }
}

struct Answered {
    std::string request;
    std::string answer;
    std::string asked = {};
};

void check(Conversation &conversation, const std::vector<Answered> &rows)
{
    for (const Answered &row : rows) {
        SCOPED_TRACE(row.request);
        EXPECT_EQ(conversation.ask(row.request), row.answer);
        EXPECT_EQ(conversation.asked(), listOf(row.asked));
    }
}

TEST(Handlers, tell_what_the_service_does_not)
{
    Conversation conversation(kMcp);
    check(conversation, {{"show-input-devices", "kbd=0 mouse=0 touch=0 vkbd=0", "showInputDevice=0500000A"},
                         {"get-station-type", "failed: station-type not readable", "getStationType=0500000A"},
                         {"get-sw-capslock", "failed: sw-capslock not readable", "getSwCapsLock=0500000A"},
                         {"set-sw-capslock=1", "failed: sw-capslock not writeable", "setSwCapsLock=1 0500000A"},
                         {"get-rv4mode", "failed: rv4 mode not readable", "getRV4Mode=0500000A"},
                         {"set-rv4mode=0", "failed: rv4 mode not writeable", "setRV4Mode=\"0\" 0500000A"},
                         {"get-mcpaddr", "failed: mcp addr not readable", "getMCPAddress=0500000A"},
                         {"set-mcpaddr=1", "failed: mcp addr not writeable", "setMCPAddress=\"1\" 0500000A"},
                         {"get-dckaddr", "failed: dck addr not readable", "getDCKAddress=0500000A"},
                         {"get-dckenable", "failed: dck enable not readable", "getDCKEnable=0500000A"},
                         {"set-dckenable=0", "failed: kvo index not writeable", "setDCKEnable=\"0\" 0500000A"},
                         {"get-cksindex", "failed: cks index not readable", "getKVOCksIndex=0500000A"},
                         {"set-cksindex=1", "failed: cks index not writeable", "setKVOCksIndex=\"1\" 0500000A"},
                         {"invalidate-calibration", "failed", "invalidateTouch=0500000A"},
                         {"get-softkey-type", "failed: softkey type not readable", "getSoftkeyType=0500000A"},
                         {"get-keyboard-caps", "failed: keyboard caps not readable", "getKeyBoardCaps=0500000A"},
                         {"get-hardware-caps", "failed: hardware caps not readable", "getHardwareCaps=0500000A"},
                         {"get-panel-oem-layout", "failed: panel oem layout not readable", "getPaneOemLayout=0500000A"},
                         {"get-panel-rotation", "failed: panel rotation not readable", "getPanelRotation=0500000A"},
                         {"get-usb-lock", "failed: usb lock not readable", "getUsbLock=0500000A"}});
}

TEST(Handlers, tell_that_input_devices_are_malformed)
{
    Conversation conversation("", {{"showInputDevice=0500000A", "kbd=?"}});
    check(conversation, {{"show-input-devices", "failed: input devices not readable", "showInputDevice=0500000A"}});
}

TEST(Handlers, tell_that_there_is_no_touch_screen)
{
    Conversation conversation("", {{"invalidateTouch=0500000A", "no_touchscreen"}});
    check(conversation, {{"invalidate-calibration", "no_touchscreen", "invalidateTouch=0500000A"}});
}

TEST(Handlers, take_numbers_below_256_for_the_control_panel)
{
    Conversation conversation(kMcp, {{"setMCPAddress=\"0\" 0500000A", "ok"},
                                     {"setMCPAddress=\"255\" 0500000A", "ok"},
                                     {"setKVOCksIndex=\"255\" 0500000A", "ok"}});
    check(conversation, {{"set-mcpaddr=", "ok", "setMCPAddress=\"0\" 0500000A"},
                         {"set-mcpaddr=000255", "ok", "setMCPAddress=\"255\" 0500000A"},
                         {"set-cksindex=255", "ok", "setKVOCksIndex=\"255\" 0500000A"}});
    for (const char *const argument : {"256", "4294967297", "99999999999999999999999", "-1", "+1", " 1", "1 ", "0x1", "1a"}) {
        for (const char *const setter : {"set-mcpaddr=", "set-cksindex=", "set-kvoindex="}) {
            check(conversation, {{setter + std::string(argument), "bad request"}});
        }
    }
}

TEST(Handlers, check_numbers_also_where_no_control_panel_is_in_focus)
{
    Conversation conversation;
    check(conversation, {{"set-mcpaddr=", "ok"}, {"set-mcpaddr=256", "bad request"}, {"set-cksindex=x", "bad request"}});
}

TEST(Handlers, keep_the_station_index)
{
    Conversation conversation;
    check(conversation, {{"get-kvoindex", "kvoindex=1"},
                         {"SET-KVOINDEX=7", "ok"},
                         {"get-kvoindex", "kvoindex=7"},
                         {"set-kvoindex=256", "bad request"},
                         {"get-kvoindex", "kvoindex=7"},
                         {"set-kvoindex=", "ok"},
                         {"get-kvoindex", "kvoindex=0"}});
}

TEST(Handlers, take_three_states_of_caps_lock)
{
    Conversation conversation(
        "", {{"setSwCapsLock=-1 0500000A", "ok"}, {"setSwCapsLock=0 0500000A", "ok"}, {"setSwCapsLock=1 0500000A", "ok"}});
    check(conversation, {{"set-sw-capslock=-1", "ok", "setSwCapsLock=-1 0500000A"},
                         {"set-sw-capslock=00", "ok", "setSwCapsLock=0 0500000A"},
                         {"set-sw-capslock=1", "ok", "setSwCapsLock=1 0500000A"}});
    // Digits and minus signs are read as far as they are a number: remote services send what they have in their field.
    check(conversation, {{"set-sw-capslock=", "ok", "setSwCapsLock=0 0500000A"},
                         {"set-sw-capslock=-", "ok", "setSwCapsLock=0 0500000A"},
                         {"set-sw-capslock=--1", "ok", "setSwCapsLock=0 0500000A"},
                         {"set-sw-capslock=1-", "ok", "setSwCapsLock=1 0500000A"},
                         {"set-sw-capslock=-1-2", "ok", "setSwCapsLock=-1 0500000A"}});
    for (const char *const argument : {"2", "-2", "2-", "+1", " 1", "1 ", "1x", "4294967297", "18446744073709551617", "x"}) {
        check(conversation, {{"set-sw-capslock=" + std::string(argument), "bad request"}});
    }
}

TEST(Handlers, look_only_at_the_first_character_of_a_flag)
{
    Conversation conversation(kMcp, {{"setDCKEnable=\"1\" 0500000A", "ok"},
                                     {"setDCKEnable=\"0\" 0500000A", "ok"},
                                     {"setRV4Mode=\"1\" 0500000A", "ok"},
                                     {"setRV4Mode=\"0\" 0500000A", "ok"}});
    check(conversation, {{"set-dckenable=1xyz", "ok", "setDCKEnable=\"1\" 0500000A"},
                         {"set-dckenable=01", "ok", "setDCKEnable=\"0\" 0500000A"},
                         {"set-rv4mode=1xyz", "ok", "setRV4Mode=\"1\" 0500000A"},
                         {"set-rv4mode=00", "ok", "setRV4Mode=\"0\" 0500000A"},
                         {"set-disable-numlock=1xyz", "ok"},
                         {"get-disable-numlock", "disable-numlock=1"}});
    for (const char *const argument : {"", "2", "x1", " 1", "-1"}) {
        for (const char *const setter : {"set-dckenable=", "set-rv4mode=", "set-disable-numlock=", "set-disable-capslock="}) {
            check(conversation, {{setter + std::string(argument), "bad request"}});
        }
    }
}

TEST(Handlers, look_at_a_flag_also_where_no_control_panel_is_in_focus)
{
    Conversation conversation;
    check(conversation, {{"set-dckenable=1", "ok"}, {"set-dckenable=2", "bad request"}});
}

TEST(Handlers, keep_each_key_flag_for_itself)
{
    Conversation conversation;
    check(conversation, {{"get-disable-numlock", "disable-numlock=0"},
                         {"get-disable-capslock", "disable-capslock=0"},
                         {"set-disable-numlock=1", "ok"},
                         {"get-disable-numlock", "disable-numlock=1"},
                         {"get-disable-capslock", "disable-capslock=0"}});
    EXPECT_EQ(gEmbKvoInst->session.keyFlags, 2U);
    check(conversation, {{"set-disable-capslock=1", "ok"},
                         {"set-disable-numlock=0", "ok"},
                         {"get-disable-numlock", "disable-numlock=0"},
                         {"get-disable-capslock", "disable-capslock=1"}});
    EXPECT_EQ(gEmbKvoInst->session.keyFlags, 4U);
}

TEST(Handlers, replace_the_channel_info)
{
    Conversation conversation;
    EXPECT_EQ(hws_channel_info, nullptr);
    check(conversation, {{"get-channel-info", "channel-info="},
                         {"set-channel-info=one", "ok"},
                         {"set-channel-info=two: 50% = \"half\"", "ok"},
                         {"get-channel-info", "channel-info=two: 50% = \"half\""}});
    EXPECT_STREQ(hws_channel_info, "two: 50% = \"half\"");
    check(conversation, {{"set-channel-info=", "ok"}, {"get-channel-info", "channel-info="}});
    EXPECT_EQ(hws_channel_info, nullptr);
}

TEST(Handlers, keep_the_remote_side_s_name)
{
    Conversation conversation;
    const HmiServer &server = gEmbKvoInst->server;
    EXPECT_EQ(server.name, nullptr);
    check(conversation, {{"servername=alpha", "ok"}, {"servername=beta.plant", "ok"}});
    EXPECT_STREQ(server.name, "beta.plant");
    check(conversation, {{"servername=", "ok"}});
    EXPECT_EQ(server.name, nullptr);
}

bool isStationKnown() { return OwnSession().replyTo(handle_show_panel_size).starts_with("width="); }

TEST(Handlers, that_get_no_memory_keep_the_channel_info)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    OwnSession own;
    EXPECT_EQ(own.replyTo(handle_set_channel_info, "one"), "ok\r\n");
    std::string argument = "two";
    {
        const support::FailingAllocations none;
        handle_set_channel_info(&own.session, nullptr, argument.data());
    }
    EXPECT_EQ(own.heard(), "failed: out of memory\r\n");
    EXPECT_STREQ(hws_channel_info, "one");
    EXPECT_EQ(own.replyTo(handle_set_channel_info, ""), "ok\r\n");
}

TEST(Handlers, that_get_no_memory_have_no_remote_name)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    OwnSession own;
    EXPECT_EQ(own.replyTo(handle_servername, "alpha"), "ok\r\n");
    std::string argument = "beta";
    {
        const support::FailingAllocations none;
        handle_servername(&own.session, nullptr, argument.data());
    }
    EXPECT_EQ(own.heard(), "ok\r\n");
    EXPECT_EQ(own.server.name, nullptr);
}

TEST(Handlers, tell_numbers_as_large_as_they_come)
{
    Conversation conversation(
        "suspendLock=4294967295\nsuspendPrio=4294967295\nstartupActive=4294967294\nstartupPrio=4294967295\n"
        "channelOnFocus=4294967295\n",
        {{"getSoftkeyType=0500000A", "softkey-type=FFFFFFFE"},
         {"getExDescByIP 0500000A", "0500000A FFFFFFFF 00000300 00000020 00000003 st1 00000000 00000000 "
                                    "FFFFFFFF 00000002 00000003 00000004 0000000A "}});
    check(conversation, {{"get-kvo-priority", "Priority=4294967295:-1"},
                         {"get-kvo-startup-active", "startup-active=4294967294"},
                         {"get-kvo-startup-prio", "startup-prio=4294967295"},
                         {"get-channel-on-focus", "channel-on-focus=4294967295"},
                         {"get-softkey-type", "softkey-type=4294967294", "getSoftkeyType=0500000A"},
                         {"show-panel-size", "width=-1 height=768 depth=32"},
                         {"show-hwid", "hwid=4294967295.2.3.4:0000000a"}});
}

TEST(Handlers, tell_the_station_s_text_whole)
{
    const std::string text(1023, 't');
    Conversation conversation("", {{"getKVOt2m2n=0500000A", text}});
    check(conversation, {{"get-t2m2n", text}});
}

TEST(Handlers, know_nothing_of_a_station_that_was_never_read)
{
    // Alone in its process: another agent's station would still be known.
    if (isStationKnown()) {
        GTEST_SKIP() << "another test of this process has read a station; run it alone";
    }
    OwnSession own;
    EXPECT_EQ(own.replyTo(handle_show_panel_size), "failed: panel size not readable\r\n");
    EXPECT_EQ(own.replyTo(handle_show_hwid, "", "007:"), "007:failed: hwid not readable\r\n");
    EXPECT_EQ(own.replyTo(handle_get_t2m2n), "\r\n");
}

TEST(Handlers, refuse_what_needs_a_host_where_there_is_none)
{
    OwnSession own;
    ASSERT_EQ(gCmdCallback, nullptr);
    for (const CmdHandler handler :
         {handle_stop_viewer, handle_stop_viewer_preempt, handle_stop_viewer_noclean, handle_activate_me, handle_set_darken,
          handle_show_viewer_active, handle_show_current_server}) {
        EXPECT_EQ(own.replyTo(handler, "1"), "bad request\r\n");
    }
    EXPECT_EQ(own.replyTo(handle_set_statusline, "1,2,x"), "bad request\r\n");
}

TEST(Handlers, count_a_host_s_exception_as_a_failure)
{
    Conversation conversation;
    Host::says([](const std::string &) -> int { throw 1; });
    check(conversation, {{"stop-viewer", "failed"}, {"ping", "pong"}});
}

TEST(Handlers, cut_what_the_host_is_told)
{
    Conversation conversation;
    Host::says(1);
    // The longest line is 256 bytes with its end; the command's text is never longer than the request.
    const std::string longest(254 - std::string("set-darken=").size(), 'd');
    check(conversation, {{"set-darken=" + longest, "ok"}});
    EXPECT_THAT(Host::commands(), ElementsAre("set-darken=" + longest));

    OwnSession own;
    EXPECT_EQ(own.replyTo(handle_set_darken, std::string(300, 'd')), "ok\r\n");
    EXPECT_EQ(own.replyTo(handle_set_statusline, "1,2," + std::string(300, 's')), "ok\r\n");
    EXPECT_THAT(Host::commands(),
                ElementsAre("set-darken=" + std::string(244, 'd'), "set-statusline=1,2," + std::string(236, 's')))
        << "255 characters in all";
}

TEST(Handlers, pass_a_status_line_on)
{
    Conversation conversation;
    Host::says(1);
    const std::map<std::string, std::string> told = {
        {"1,2,Hello\r", "1,2,Hello"},
        {"1,2,Hel\rlo", "1,2,Hel"},
        {"1,2,", "1,2,"},
        {" 1,\t-2,%s %n", " 1,\t-2,%s %n"},
        {"+1,2,a,b", "+1,2,a,b"},
        {"99999999999999999999,1,x", "99999999999999999999,1,x"},
    };
    for (const auto &[argument, command] : told) {
        check(conversation, {{"set-statusline=" + argument, "ok"}});
        EXPECT_THAT(Host::commands(), ElementsAre("set-statusline=" + command));
    }
    for (const char *const argument : {"", "1", "1,", "1,2", "1;2,x", ",2,x", "1,,x", "1 ,2,x", "1,2 ,x", "a,2,x", "1,2.,x"}) {
        check(conversation, {{"set-statusline=" + std::string(argument), "bad request"}});
    }
    EXPECT_THAT(Host::commands(), IsEmpty());
}

TEST(Handlers, cut_a_status_line_at_its_line_feed)
{
    Conversation conversation;
    Host::says(1);
    OwnSession own;
    EXPECT_EQ(own.replyTo(handle_set_statusline, "1,2,Hel\nlo"), "ok\r\n");
    EXPECT_THAT(Host::commands(), ElementsAre("set-statusline=1,2,Hel"));
}

TEST(Handlers, send_the_usb_lock_for_the_station_in_focus)
{
    Datagrams datagrams;
    Conversation conversation;
    check(conversation, {{"set-usb-lock=0:4294967295", "ok"}, {"set-usb-lock= 1: 7x", "ok"}});
    EXPECT_THAT(datagrams.texts(), ElementsAre("setUsbLock=\"0:-1\" 10.0.0.5\n", "setUsbLock=\"1:7\" 10.0.0.5\n"));
    for (const char *const argument : {"2:0", "", "1", "1:", ":1", "x:1", "1 :2", "1;2"}) {
        check(conversation, {{"set-usb-lock=" + std::string(argument), "bad request"}});
    }
    EXPECT_THAT(datagrams.texts(), IsEmpty());
}

TEST(Handlers, tell_that_the_usb_lock_could_not_be_sent)
{
    const WithSystemCalls calls{{.sendto = [](int, const void *, std::size_t, const sockaddr *) { return ssize_t{-1}; }}};
    Conversation conversation;
    check(conversation, {{"set-usb-lock=1:0", "failed: usb lock not writeable"}});
}

TEST(Metrics, that_the_service_does_not_know_are_four_letters_without_a_line_end)
{
    Conversation conversation("", {{"getSoftkeyType=0500000A", "none"},
                                   {"getKeyBoardCaps=0500000A", "none"},
                                   {"getHardwareCaps=0500000A", "none"},
                                   {"getPaneOemLayout=0500000A", "none"},
                                   {"getPanelRotation=0500000A", "none"}});
    conversation.remote().send("get-softkey-type\r\nget-keyboard-caps\n001:get-hardware-caps\r\nget-panel-oem-layout\r\n"
                               "get-panel-rotation\r\nping\r\n");
    EXPECT_EQ(conversation.remote().line(), "nonenone001:nonenonenonepong\r\n");
}

TEST(Metrics, of_the_display_are_told_under_the_softkey_s_key)
{
    const ScriptedService service({support::replies("dpi=96"), support::replies("none"), support::replies("failed")});
    OwnSession own;
    EXPECT_EQ(own.replyTo(handle_get_display_dpi), "softkey-type=96\r\n");
    EXPECT_EQ(own.replyTo(handle_get_display_dpi), "none");
    EXPECT_EQ(own.replyTo(handle_get_display_dpi), "failed: display dpi not readable\r\n");
    for (const HwsCommand &command : cmds) {
        EXPECT_NE(command.handler, handle_get_display_dpi) << "the remote side has no command for it";
    }
}

}  // namespace
