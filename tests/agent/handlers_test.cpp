// Handlers with single values, without memory, without a host, and with a service that does not know the answer.
#include <kvo_hws/agent.h>

#include "agent/agent_fixture.h"
#include "agent/connected_agent.h"
#include "agent/own_session.h"
#include "support/failing_allocations.h"
#include "support/scripted_service.h"
#include "support/system_calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

namespace {

using agent_test::ConnectedAgent;
using agent_test::Datagrams;
using agent_test::Host;
using agent_test::kMcp;
using agent_test::listOf;
using agent_test::OwnSession;
using support::ScriptedService;
using support::WithSystemCalls;
using testing::ElementsAre;
using testing::IsEmpty;

struct Answered {
    std::string request;
    std::string answer;
    std::string serviceRequest = {};
};

void check(ConnectedAgent &agent, const std::vector<Answered> &rows)
{
    for (const Answered &row : rows) {
        SCOPED_TRACE(row.request);
        EXPECT_EQ(agent.ask(row.request), row.answer);
        EXPECT_EQ(agent.serviceRequests(), listOf(row.serviceRequest));
    }
}

TEST(Handlers, report_that_the_service_has_no_answer)
{
    ConnectedAgent agent(kMcp);
    check(agent, {{"show-input-devices", "kbd=0 mouse=0 touch=0 vkbd=0", "showInputDevice=0500000A"},
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

TEST(Handlers, report_malformed_input_devices)
{
    ConnectedAgent agent("", {{"showInputDevice=0500000A", "kbd=?"}});
    check(agent, {{"show-input-devices", "failed: input devices not readable", "showInputDevice=0500000A"}});
}

TEST(Handlers, report_a_missing_touch_screen)
{
    ConnectedAgent agent("", {{"invalidateTouch=0500000A", "no_touchscreen"}});
    check(agent, {{"invalidate-calibration", "no_touchscreen", "invalidateTouch=0500000A"}});
}

TEST(Handlers, accept_numbers_below_256_for_the_control_panel)
{
    ConnectedAgent agent(kMcp, {{"setMCPAddress=\"0\" 0500000A", "ok"},
                                {"setMCPAddress=\"255\" 0500000A", "ok"},
                                {"setKVOCksIndex=\"255\" 0500000A", "ok"}});
    check(agent, {{"set-mcpaddr=", "ok", "setMCPAddress=\"0\" 0500000A"},
                  {"set-mcpaddr=000255", "ok", "setMCPAddress=\"255\" 0500000A"},
                  {"set-cksindex=255", "ok", "setKVOCksIndex=\"255\" 0500000A"}});
    for (const char *const argument : {"256", "4294967297", "99999999999999999999999", "-1", "+1", " 1", "1 ", "0x1", "1a"}) {
        for (const char *const setter : {"set-mcpaddr=", "set-cksindex=", "set-kvoindex="}) {
            check(agent, {{setter + std::string(argument), "bad request"}});
        }
    }
}

TEST(Handlers, check_numbers_without_a_control_panel_too)
{
    ConnectedAgent agent;
    check(agent, {{"set-mcpaddr=", "ok"}, {"set-mcpaddr=256", "bad request"}, {"set-cksindex=x", "bad request"}});
}

TEST(Handlers, store_the_station_index)
{
    ConnectedAgent agent;
    check(agent, {{"get-kvoindex", "kvoindex=1"},
                  {"SET-KVOINDEX=7", "ok"},
                  {"get-kvoindex", "kvoindex=7"},
                  {"set-kvoindex=256", "bad request"},
                  {"get-kvoindex", "kvoindex=7"},
                  {"set-kvoindex=", "ok"},
                  {"get-kvoindex", "kvoindex=0"}});
}

TEST(Handlers, accept_three_states_of_caps_lock)
{
    ConnectedAgent agent(
        "", {{"setSwCapsLock=-1 0500000A", "ok"}, {"setSwCapsLock=0 0500000A", "ok"}, {"setSwCapsLock=1 0500000A", "ok"}});
    check(agent, {{"set-sw-capslock=-1", "ok", "setSwCapsLock=-1 0500000A"},
                  {"set-sw-capslock=00", "ok", "setSwCapsLock=0 0500000A"},
                  {"set-sw-capslock=1", "ok", "setSwCapsLock=1 0500000A"}});
    // The argument may contain only digits and minus signs. It is parsed up to the first character that does not continue the
    // number, because remote services send their input field unchanged.
    check(agent, {{"set-sw-capslock=", "ok", "setSwCapsLock=0 0500000A"},
                  {"set-sw-capslock=-", "ok", "setSwCapsLock=0 0500000A"},
                  {"set-sw-capslock=--1", "ok", "setSwCapsLock=0 0500000A"},
                  {"set-sw-capslock=1-", "ok", "setSwCapsLock=1 0500000A"},
                  {"set-sw-capslock=-1-2", "ok", "setSwCapsLock=-1 0500000A"}});
    for (const char *const argument : {"2", "-2", "2-", "+1", " 1", "1 ", "1x", "4294967297", "18446744073709551617", "x"}) {
        check(agent, {{"set-sw-capslock=" + std::string(argument), "bad request"}});
    }
}

TEST(Handlers, read_only_the_first_character_of_a_flag)
{
    ConnectedAgent agent(kMcp, {{"setDCKEnable=\"1\" 0500000A", "ok"},
                                {"setDCKEnable=\"0\" 0500000A", "ok"},
                                {"setRV4Mode=\"1\" 0500000A", "ok"},
                                {"setRV4Mode=\"0\" 0500000A", "ok"}});
    check(agent, {{"set-dckenable=1xyz", "ok", "setDCKEnable=\"1\" 0500000A"},
                  {"set-dckenable=01", "ok", "setDCKEnable=\"0\" 0500000A"},
                  {"set-rv4mode=1xyz", "ok", "setRV4Mode=\"1\" 0500000A"},
                  {"set-rv4mode=00", "ok", "setRV4Mode=\"0\" 0500000A"},
                  {"set-disable-numlock=1xyz", "ok"},
                  {"get-disable-numlock", "disable-numlock=1"}});
    for (const char *const argument : {"", "2", "x1", " 1", "-1"}) {
        for (const char *const setter : {"set-dckenable=", "set-rv4mode=", "set-disable-numlock=", "set-disable-capslock="}) {
            check(agent, {{setter + std::string(argument), "bad request"}});
        }
    }
}

TEST(Handlers, check_a_flag_without_a_control_panel_too)
{
    ConnectedAgent agent;
    check(agent, {{"set-dckenable=1", "ok"}, {"set-dckenable=2", "bad request"}});
}

TEST(Handlers, store_each_key_flag_separately)
{
    ConnectedAgent agent;
    check(agent, {{"get-disable-numlock", "disable-numlock=0"},
                  {"get-disable-capslock", "disable-capslock=0"},
                  {"set-disable-numlock=1", "ok"},
                  {"get-disable-numlock", "disable-numlock=1"},
                  {"get-disable-capslock", "disable-capslock=0"}});
    EXPECT_EQ(gEmbKvoInst->session.keyFlags, 2U);
    check(agent, {{"set-disable-capslock=1", "ok"},
                  {"set-disable-numlock=0", "ok"},
                  {"get-disable-numlock", "disable-numlock=0"},
                  {"get-disable-capslock", "disable-capslock=1"}});
    EXPECT_EQ(gEmbKvoInst->session.keyFlags, 4U);
}

TEST(Handlers, replace_the_channel_info)
{
    ConnectedAgent agent;
    EXPECT_EQ(hws_channel_info, nullptr);
    check(agent, {{"get-channel-info", "channel-info="},
                  {"set-channel-info=one", "ok"},
                  {"set-channel-info=two: 50% = \"half\"", "ok"},
                  {"get-channel-info", "channel-info=two: 50% = \"half\""}});
    EXPECT_STREQ(hws_channel_info, "two: 50% = \"half\"");
    check(agent, {{"set-channel-info=", "ok"}, {"get-channel-info", "channel-info="}});
    EXPECT_EQ(hws_channel_info, nullptr);
}

TEST(Handlers, store_the_name_of_the_remote_side)
{
    ConnectedAgent agent;
    const HmiServer &server = gEmbKvoInst->server;
    EXPECT_EQ(server.name, nullptr);
    check(agent, {{"servername=alpha", "ok"}, {"servername=beta.plant", "ok"}});
    EXPECT_STREQ(server.name, "beta.plant");
    check(agent, {{"servername=", "ok"}});
    EXPECT_EQ(server.name, nullptr);
}

bool isStationKnown() { return OwnSession().replyTo(handle_show_panel_size).starts_with("width="); }

TEST(Handlers, keep_the_channel_info_when_out_of_memory)
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
    EXPECT_EQ(own.received(), "failed: out of memory\r\n");
    EXPECT_STREQ(hws_channel_info, "one");
    EXPECT_EQ(own.replyTo(handle_set_channel_info, ""), "ok\r\n");
}

TEST(Handlers, have_no_remote_name_when_out_of_memory)
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
    EXPECT_EQ(own.received(), "ok\r\n");
    EXPECT_EQ(own.server.name, nullptr);
}

TEST(Handlers, report_the_largest_numbers)
{
    ConnectedAgent agent("suspendLock=4294967295\nsuspendPrio=4294967295\nstartupActive=4294967294\nstartupPrio=4294967295\n"
                         "channelOnFocus=4294967295\n",
                         {{"getSoftkeyType=0500000A", "softkey-type=FFFFFFFE"},
                          {"getExDescByIP 0500000A", "0500000A FFFFFFFF 00000300 00000020 00000003 st1 00000000 00000000 "
                                                     "FFFFFFFF 00000002 00000003 00000004 0000000A "}});
    check(agent, {{"get-kvo-priority", "Priority=4294967295:-1"},
                  {"get-kvo-startup-active", "startup-active=4294967294"},
                  {"get-kvo-startup-prio", "startup-prio=4294967295"},
                  {"get-channel-on-focus", "channel-on-focus=4294967295"},
                  {"get-softkey-type", "softkey-type=4294967294", "getSoftkeyType=0500000A"},
                  {"show-panel-size", "width=-1 height=768 depth=32"},
                  {"show-hwid", "hwid=4294967295.2.3.4:0000000a"}});
}

TEST(Handlers, report_a_long_assignment_completely)
{
    const std::string text(1023, 't');
    ConnectedAgent agent("", {{"getKVOt2m2n=0500000A", text}});
    check(agent, {{"get-t2m2n", text}});
}

TEST(Handlers, fail_or_reply_nothing_before_a_station_was_read)
{
    // Needs its own process: the station of another agent would still be known.
    if (isStationKnown()) {
        GTEST_SKIP() << "another test of this process has read a station; run it alone";
    }
    OwnSession own;
    EXPECT_EQ(own.replyTo(handle_show_panel_size), "failed: panel size not readable\r\n");
    EXPECT_EQ(own.replyTo(handle_show_hwid, "", "007:"), "007:failed: hwid not readable\r\n");
    EXPECT_EQ(own.replyTo(handle_get_t2m2n), "\r\n");
}

TEST(Handlers, refuse_host_commands_without_a_host)
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

TEST(Handlers, treat_an_exception_of_the_host_as_a_failure)
{
    ConnectedAgent agent;
    Host::setAnswer([](const std::string &) -> int { throw 1; });
    check(agent, {{"stop-viewer", "failed"}, {"ping", "pong"}});
}

TEST(Handlers, truncate_commands_for_the_host)
{
    ConnectedAgent agent;
    Host::setAnswer(1);
    // The longest line has 256 bytes with its end, and the command's text is never longer than the request.
    const std::string longest(254 - std::string("set-darken=").size(), 'd');
    check(agent, {{"set-darken=" + longest, "ok"}});
    EXPECT_THAT(Host::commands(), ElementsAre("set-darken=" + longest));

    OwnSession own;
    EXPECT_EQ(own.replyTo(handle_set_darken, std::string(300, 'd')), "ok\r\n");
    EXPECT_EQ(own.replyTo(handle_set_statusline, "1,2," + std::string(300, 's')), "ok\r\n");
    EXPECT_THAT(Host::commands(),
                ElementsAre("set-darken=" + std::string(244, 'd'), "set-statusline=1,2," + std::string(236, 's')))
        << "255 characters in total";
}

TEST(Handlers, forward_a_status_line)
{
    ConnectedAgent agent;
    Host::setAnswer(1);
    const std::map<std::string, std::string> hostCommands = {
        {"1,2,Hello\r", "1,2,Hello"},
        {"1,2,Hel\rlo", "1,2,Hel"},
        {"1,2,", "1,2,"},
        {" 1,\t-2,%s %n", " 1,\t-2,%s %n"},
        {"+1,2,a,b", "+1,2,a,b"},
        {"99999999999999999999,1,x", "99999999999999999999,1,x"},
    };
    for (const auto &[argument, command] : hostCommands) {
        check(agent, {{"set-statusline=" + argument, "ok"}});
        EXPECT_THAT(Host::commands(), ElementsAre("set-statusline=" + command));
    }
    for (const char *const argument : {"", "1", "1,", "1,2", "1;2,x", ",2,x", "1,,x", "1 ,2,x", "1,2 ,x", "a,2,x", "1,2.,x"}) {
        check(agent, {{"set-statusline=" + std::string(argument), "bad request"}});
    }
    EXPECT_THAT(Host::commands(), IsEmpty());
}

TEST(Handlers, cut_a_status_line_at_its_line_feed)
{
    ConnectedAgent agent;
    Host::setAnswer(1);
    OwnSession own;
    EXPECT_EQ(own.replyTo(handle_set_statusline, "1,2,Hel\nlo"), "ok\r\n");
    EXPECT_THAT(Host::commands(), ElementsAre("set-statusline=1,2,Hel"));
}

TEST(Handlers, send_the_usb_lock_for_the_focused_station)
{
    Datagrams datagrams;
    ConnectedAgent agent;
    check(agent, {{"set-usb-lock=0:4294967295", "ok"}, {"set-usb-lock= 1: 7x", "ok"}});
    EXPECT_THAT(datagrams.texts(), ElementsAre("setUsbLock=\"0:-1\" 10.0.0.5\n", "setUsbLock=\"1:7\" 10.0.0.5\n"));
    for (const char *const argument : {"2:0", "", "1", "1:", ":1", "x:1", "1 :2", "1;2"}) {
        check(agent, {{"set-usb-lock=" + std::string(argument), "bad request"}});
    }
    EXPECT_THAT(datagrams.texts(), IsEmpty());
}

TEST(Handlers, report_that_the_usb_lock_could_not_be_sent)
{
    const WithSystemCalls calls{{.sendto = [](int, const void *, std::size_t, const sockaddr *) { return ssize_t{-1}; }}};
    ConnectedAgent agent;
    check(agent, {{"set-usb-lock=1:0", "failed: usb lock not writeable"}});
}

TEST(Metrics, unknown_to_the_service_are_reported_as_none_without_a_line_end)
{
    ConnectedAgent agent("", {{"getSoftkeyType=0500000A", "none"},
                              {"getKeyBoardCaps=0500000A", "none"},
                              {"getHardwareCaps=0500000A", "none"},
                              {"getPaneOemLayout=0500000A", "none"},
                              {"getPanelRotation=0500000A", "none"}});
    agent.remote().send("get-softkey-type\r\nget-keyboard-caps\n001:get-hardware-caps\r\nget-panel-oem-layout\r\n"
                        "get-panel-rotation\r\nping\r\n");
    EXPECT_EQ(agent.remote().line(), "nonenone001:nonenonenonepong\r\n");
}

TEST(Metrics, of_the_display_are_reported_with_the_key_of_the_softkey_type)
{
    const ScriptedService service({support::replies("dpi=96"), support::replies("none"), support::replies("failed")});
    OwnSession own;
    EXPECT_EQ(own.replyTo(handle_get_display_dpi), "softkey-type=96\r\n");
    EXPECT_EQ(own.replyTo(handle_get_display_dpi), "none");
    EXPECT_EQ(own.replyTo(handle_get_display_dpi), "failed: display dpi not readable\r\n");
    for (const HwsCommand &command : cmds) {
        EXPECT_NE(command.handler, handle_get_display_dpi) << "no command of the remote side has this handler";
    }
}

}  // namespace
