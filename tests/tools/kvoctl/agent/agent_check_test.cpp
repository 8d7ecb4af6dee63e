// "kvoctl agent check": the whole table against a simulated service, and its reports of invalid replies.
#include "support/remote_service.h"
#include "tools/kvoctl/support/kvoctl.h"
#include "tools/kvosim/support/running_service.h"

#include <map>
#include <memory>
#include <regex>

namespace kvoctl_test {

namespace {

using kvosim_test::RunningService;
using support::RemoteService;
using testing::HasSubstr;

constexpr std::string_view kPlant = R"toml(
[[station]]
address = "10.0.0.5"
name = "Lathe 1"
attr1 = 800
attr2 = 600
attr3 = 16
ext = [0, 0, 1, 2, 3, 4, 0xABCD]
mcp_address = 5
dck_address = 21
cks_index = 3
t2m2n = "T1 M1"
softkey_type = 0x10
hardware_caps = 0x0B
panel_rotation = 2
)toml";

const Arguments kCheck{"agent", "check", "--focus", "10.0.0.5"};

Ended check(const Arguments &more, const RunConditions &conditions = {})
{
    Arguments all = kCheck;
    all.insert(all.end(), more.begin(), more.end());
    return kvoctl(all, conditions);
}

/// The rows, indexed by command.
std::map<std::string, Json> rows(const Json &document)
{
    std::map<std::string, Json> found;
    for (const Json &row : document.at("commands")) {
        found[row.at("command").get<std::string>()] = row;
    }
    return found;
}

const std::string kWholeTable =
    R"(COMMAND                       SENT                                  REPLY                                     NOTE
show-panel-size               001:show-panel-size                   width=800 height=600 depth=16
show-hwid                     002:show-hwid                         hwid=1.2.3.4:0000abcd
show-input-devices            003:show-input-devices                kbd=1 mouse=1 touch=1 vkbd=0
set-backlight=                004:set-backlight=1                   failed: EMB-KVO backlight not supported
set-backlight-brightness=     005:set-backlight-brightness=50       failed: EMB-KVO backlight brightness not supported
set-backlight-brightness-v2=  006:set-backlight-brightness-v2=0,50  failed: EMB-KVO backlight brightness V2 not supported
get-backlight-brightness-v2=  007:get-backlight-brightness-v2=0     failed: EMB-KVO backlight brightness not supported
set-darken=                   008:set-darken=0                      ok
set-disable-numlock=          010:set-disable-numlock=0             ok
set-disable-capslock=         012:set-disable-capslock=0            ok
get-disable-numlock           013:get-disable-numlock               disable-numlock=0
get-disable-capslock          014:get-disable-capslock              disable-capslock=0
get-station-type              015:get-station-type                  station-type=0
get-sw-capslock               016:get-sw-capslock                   sw-capslock=0
set-sw-capslock=              018:set-sw-capslock=0                 ok
get-kvo-name                  019:get-kvo-name                      EmbKVO_0123456789AB
get-kvo-priority              020:get-kvo-priority                  Priority=0:1
get-kvo-startup-active        021:get-kvo-startup-active            startup-active=1
get-kvo-startup-prio          022:get-kvo-startup-prio              startup-prio=2
set-channel-info=             024:set-channel-info=                 ok
get-channel-info              025:get-channel-info                  channel-info=
get-screen-on-focus           026:get-screen-on-focus               screen-on-focus=Machine
get-channel-on-focus          027:get-channel-on-focus              channel-on-focus=1
get-t2m2n                     028:get-t2m2n                         T1 M1
get-mcpaddr                   029:get-mcpaddr                       mcpaddr=5
set-mcpaddr=                  031:set-mcpaddr=5                     ok
get-kvoindex                  032:get-kvoindex                      kvoindex=1
set-kvoindex=                 034:set-kvoindex=1                    ok
get-dckaddr                   035:get-dckaddr                       dckaddr=21
get-dckenable                 036:get-dckenable                     dckenable=0
set-dckenable=                038:set-dckenable=0                   ok
get-cksindex                  039:get-cksindex                      cksindex=3
set-cksindex=                 041:set-cksindex=3                    ok
invalidate-calibration                                                                                        skipped: changes a station (--all sends it)
get-rv4mode                   042:get-rv4mode                       failed: rv4 mode not readable
set-rv4mode=                                                                                                  skipped: cannot read the current value (--all sends 0)
get-calibparam                044:get-calibparam                    bad request
set-calibparam=               045:set-calibparam=0,0                bad request
simulate-mcp=                 046:simulate-mcp=0,0                  bad request
enable-mcp=                   047:enable-mcp=0,0                    bad request
reboot                        048:reboot                            bad request
show-viewer-active            049:show-viewer-active                active=1
show-current-server           050:show-current-server               vncserver=127.0.0.1:0
start-viewer=                 051:start-viewer=check                bad request
start-configured-viewer=      052:start-configured-viewer=check     bad request
stop-viewer-preempt           053:stop-viewer-preempt               ok
stop-viewer-noclean           054:stop-viewer-noclean               ok
stop-viewer                   055:stop-viewer                       ok
activate-me                   056:activate-me                       ok
servername=                   057:servername=kvoctl                 ok
set-statusline=               058:set-statusline=0,0,check          ok
ping                          059:ping                              pong
get-softkey-type              060:get-softkey-type                  softkey-type=16
get-keyboard-caps             061:get-keyboard-caps                 none
get-hardware-caps             062:get-hardware-caps                 hardware-caps=11
get-panel-oem-layout          063:get-panel-oem-layout              none
get-panel-rotation            064:get-panel-rotation                panel-rotation=2
set-usb-lock=                                                                                                 skipped: changes a station (--all sends it)
get-usb-lock                  065:get-usb-lock                      usb-lock=0:0
sync-times=                   066:sync-times=0                      bad request
60 commands, 57 sent, 0 without a valid reply
)";

TEST(AgentCheck, shows_all_commands_with_their_replies)
{
    const RunningService service(kPlant);
    const Ended ended = check({"--mcp", "--screen", "Machine"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    const std::string out = std::regex_replace(ended.out, std::regex("EmbKVO_[0-9A-F]{12}"), "EmbKVO_0123456789AB");
    EXPECT_EQ(out, kWholeTable);
}

TEST(AgentCheck, shows_the_same_as_json)
{
    const RunningService service(kPlant);
    const Json document = check({"--json"}).document();
    EXPECT_EQ(document.at("in_form"), true);
    EXPECT_EQ(document.at("commands").size(), 60U);
    const auto all = rows(document);
    EXPECT_EQ(all.at("ping"), Json::parse(R"({"command":"ping","sent":"059:ping","reply":"pong","in_form":true,"note":null})"));
    EXPECT_EQ(all.at("get-keyboard-caps").at("reply"), "none");
    EXPECT_EQ(all.at("set-usb-lock=").at("sent"), nullptr);
    EXPECT_EQ(all.at("set-usb-lock=").at("in_form"), nullptr);
}

TEST(AgentCheck, sends_all_commands_with_the_option_all)
{
    const RunningService service(kPlant);
    const Ended ended = check({"--all", "--json"});
    EXPECT_EQ(ended.status, 0) << ended.out;
    const auto all = rows(ended.document());
    for (const auto &[command, row] : all) {
        EXPECT_EQ(row.at("in_form"), true) << row;
    }
    EXPECT_EQ(all.at("invalidate-calibration").at("reply"), "ok");
}

TEST(AgentCheck, does_not_change_the_station)
{
    RunningService service(kPlant);
    const std::string before = kvoctl({"panel", "show", "10.0.0.5", "--json"}).out;
    EXPECT_EQ(check({"--mcp"}).status, 0);
    EXPECT_EQ(kvoctl({"panel", "show", "10.0.0.5", "--json"}).out, before);
    EXPECT_THAT(before, HasSubstr("\"mcp\": 5"));
}

TEST(AgentCheck, uses_the_given_answers_of_the_host)
{
    const RunningService service(kPlant);
    const Ended ended =
        check({"--json", "--answer-all", "no", "--answer", "set-darken=done", "--answer", "activate-me=failed"});
    EXPECT_EQ(ended.status, 0);
    const auto all = rows(ended.document());
    EXPECT_EQ(all.at("stop-viewer").at("reply"), "not running");
    EXPECT_EQ(all.at("show-current-server").at("reply"), "none");
    EXPECT_EQ(all.at("set-darken=").at("reply"), "ok");
    EXPECT_EQ(all.at("set-statusline=").at("reply"), "failed");
    EXPECT_EQ(all.at("activate-me").at("reply"), "failed");
}

TEST(AgentCheck, marks_replies_that_the_protocol_does_not_allow)
{
    const RunningService service(kPlant);
    const RunConditions odd{
        .environment = {"LC_ALL=C.UTF-8", "LD_PRELOAD=" ODD_AGENT, "ASAN_OPTIONS=verify_asan_link_order=0"}};
    const Ended ended = check({"--json"}, odd);
    EXPECT_EQ(ended.status, 4) << ended.err;
    EXPECT_EQ(ended.document().at("in_form"), false);
    std::vector<std::string> marked;
    for (const auto &[command, row] : rows(ended.document())) {
        if (row.at("in_form") == false) {
            marked.push_back(command + " " + row.at("reply").get<std::string>() + " " + row.at("note").get<std::string>());
        }
    }
    EXPECT_THAT(marked,
                testing::ElementsAre("get-kvo-startup-prio startup-prio=2\n NOT IN FORM", "get-kvoindex kvoindex=x NOT IN FORM",
                                     "get-panel-rotation none NOT IN FORM", "show-hwid  NOT IN FORM"));
    EXPECT_EQ(rows(ended.document()).at("set-kvoindex=").at("reply"), "bad request");
    EXPECT_THAT(check({}, odd).out, HasSubstr("\n60 commands, 57 sent, 4 without a valid reply\n"));
}

// ---- Ports ----

TEST(AgentCheck, uses_the_first_free_port)
{
    const RunningService service(kPlant);
    const RemoteService first(0);
    const RemoteService second(1);
    const Ended ended = check({"--json"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(rows(ended.document()).at("show-current-server").at("reply"), "vncserver=127.0.0.1:2");
}

TEST(AgentCheck, uses_the_port_of_the_given_session)
{
    const RunningService service(kPlant);
    EXPECT_EQ(rows(check({"--json", "--session", "7"}).document()).at("show-current-server").at("reply"),
              "vncserver=127.0.0.1:7");
}

TEST(AgentCheck, reports_a_port_in_use)
{
    const RunningService service(kPlant);
    const RemoteService other(3);
    const Ended ended = check({"--session", "3"});
    EXPECT_EQ(ended.status, 5);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "kvoctl: cannot listen on port 5853 of 127.0.0.1: Address already in use\n");
}

TEST(AgentCheck, reports_that_all_ports_are_in_use)
{
    const RunningService service(kPlant);
    std::vector<std::unique_ptr<RemoteService>> others;
    for (unsigned session = 0; session < 10; ++session) {
        others.push_back(std::make_unique<RemoteService>(session));
    }
    const Ended ended = check({});
    EXPECT_EQ(ended.status, 5);
    EXPECT_EQ(ended.err, "kvoctl: cannot listen on any of the ports 5850 to 5859 of 127.0.0.1: Address already in use\n");
}

// ---- The station ----

TEST(AgentCheck, reports_an_unknown_station)
{
    const RunningService service(kPlant);
    const Ended ended = kvoctl({"agent", "check", "--focus-name", "Nowhere", "--json"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, testing::StartsWith("kvoctl: agent check: cannot read the station in focus, \"Nowhere\": "));
    EXPECT_EQ(ended.document().at("error").at("code"), 0);
}

TEST(AgentCheck, needs_a_service)
{
    const Ended ended = check({});
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.err, "kvoctl: agent check: cannot read the station in focus, 10.0.0.5: no service answers at "
                         "/tmp/kvo_hws/cmd_sock (result -2)\n" +
                             kNoServiceHint);
}

}  // namespace

}  // namespace kvoctl_test
