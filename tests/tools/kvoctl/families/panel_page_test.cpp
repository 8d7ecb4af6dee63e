// "kvoctl panel show": one page with all of a station, whatever of it there is.
#include "tools/kvoctl/support/kvoctl.h"

#include "support/scripted_service.h"

namespace kvoctl_test {

namespace {

using support::ScriptedService;

const std::string kLathe = "0A000005 00000001 00000002 00000003 00000007 Lathe 1 0000000B 0000000C 0000000D 0000000E 0000000F "
                           "00000010 00000011 ";

struct Exchange {
    std::string request;
    std::string full;   ///< the reply of a station that has everything
    std::string empty;  ///< the reply of one that has nothing
};

/// In the order of the page.
const std::vector<Exchange> kExchanges{
    {"getExDescByIP 0A000005", kLathe, kLathe},
    {"getStationType=0A000005", "stationtype 1", "failed"},
    {"getBacklightBrightnessV2=0 0A000005", "backlight-brightness-v2=40", "bad request"},
    {"getBacklightBrightnessV2=1 0A000005", "backlight-brightness-v2=41", "bad request"},
    {"getDisableNumLock=0A000005", "disable numlock 0", "failed"},
    {"getDisableCapsLock=0A000005", "diable capslock 1", "failed"},
    {"getSwCapsLock=0A000005", "swcapslock -1", "failed"},
    {"getRV4Mode=0A000005", "rv4mode=1", "not_a_rv4"},
    {"isMarovantiPanel 0A000005", "is-Marovanti-Panel=0", "not found"},
    {"isViewerActive=0A000005", "active", "failed"},
    {"getCurServer=0A000005", "vncserver=10.0.0.7:3", "none"},
    {"getMCPAddress=0A000005", "mcpaddr=12", "failed"},
    {"getKVOIndex=0A000005", "kvoindex=7", "failed"},
    {"getDCKAddress=0A000005", "dckaddr=3", "failed"},
    {"getDCKEnable=0A000005", "dckenable=1", "failed"},
    {"getKVOCksIndex=0A000005", "cksindex=4", "failed"},
    {"getKVOPriority=0A000005", "Priority=1:3", "failed"},
    {"getKVOStartupActive=0A000005", "startup-active=2", "startup-active=2"},
    {"getKVOStartupPrio=0A000005", "startup-prio=5", "failed"},
    {"getKVOChannelOnFocus=0A000005", "channel-on-focus=8", "failed"},
    {"getKVOScreenOnFocus=0A000005", "screen-on-focus=main", "failed"},
    {"getKVOt2m2n=0A000005", "1:2", "failed"},
    {"getChannelInfo=0A000005", "channel-info=Spindle", "channel-info="},
    {"showInputDevice=0A000005", "kbd=1 mouse=2 touch=3 multitouch=4 maxcontacts=5 vkbd=6", "failed"},
    {"showDPI=0A000005", "dpi=96", "failed"},
    {"getCalibParam=0A000005", "press_thresh=40 nonlinear=1", "no_touchscreen"},
    {"getUsbLock=0A000005", "usb-lock=1:0", "failed"},
    {"getUsbConnectorListOne=0A000005", "usb-connector-list-one=X1", "usb-connector-list-one="},
    {"getPaneOemLayout=0A000005", "panel-oem-layout=OEM", "none"},
    {"getSoftkeyType=0A000005", "softkey-type=2", "none"},
    {"getKeyBoardCaps=0A000005", "keyboard-caps=3", "none"},
    {"showDPI=0A000005", "dpi=97", "none"},
    {"getHardwareCaps=0A000005", "hardware-caps=F", "none"},
    {"getPanelRotation=0A000005", "panel-rotation=1", "none"},
};

const std::string kFailures =
    "17 of 32 requests failed: panel type, panel numlock, panel capslock, panel sw-capslock, panel marovanti, viewer active, "
    "address mcp, address kvo-index, address dck, address dck-enable, address cks-index, focus priority, focus startup, "
    "focus channel, focus screen, focus m2n, usb lock get";

std::vector<support::Script> scripts(std::string Exchange::*replies)
{
    std::vector<support::Script> list;
    list.reserve(kExchanges.size());
    for (const Exchange &exchange : kExchanges) {
        list.push_back(support::replies(exchange.*replies));
    }
    return list;
}

std::vector<std::string> requests()
{
    std::vector<std::string> list;
    list.reserve(kExchanges.size());
    for (const Exchange &exchange : kExchanges) {
        list.push_back(exchange.request + "\n");
    }
    return list;
}

TEST(Page, shows_all_of_a_station_that_has_everything)
{
    const ScriptedService service(scripts(&Exchange::full));
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.out, R"(station       address               10.0.0.5
              name                  Lathe 1
              attr1                 1
              attr2                 2
              attr3                 3
              ext_attr1             11
              ext_attr2             12
              ext_attr3             13
              ext_attr4             14
              ext_attr5             15
              ext_attr6             16
              ext_attr7             17
panel         type                  1
              brightness_v2_mode_0  40
              brightness_v2_mode_1  41
              numlock               enabled
              capslock              disabled
              sw_capslock           -1
              rv4_mode              individual
              marovanti             no
viewer        active                yes
              server                10.0.0.7
              display               3
address       mcp                   12
              kvo_index             7
              dck                   3
              dck_enable            on
              cks_index             4
focus         suspend_lock          1
              suspend_priority      3
              startup_active        2
              startup_priority      5
              channel               8
              screen                main
              m2n                   1:2
channel_info  info                  Spindle
input         keyboards             1
              mice                  2
              touch                 3
              multitouch            4
              max_contacts          5
              virtual_keyboards     6
              dpi                   96
touch         press_threshold       40
              nonlinear             1
usb           lock_first            1
              lock_second           0
              connectors            X1
metrics       oem_layout            OEM
              softkey_type          2
              keyboard_caps         0x00000003
              dpi                   97
              hardware_caps         0x0000000F
              rotation              1
)");
    EXPECT_EQ(service.requests(), requests());
}

TEST(Page, is_one_document)
{
    const ScriptedService service(scripts(&Exchange::full));
    const Ended ended = kvoctl({"panel", "show", "0A000005", "--json"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.document().dump(), Json::parse(R"({
        "station": {"address": "10.0.0.5", "name": "Lathe 1", "attr1": 1, "attr2": 2, "attr3": 3, "ext_attr1": 11,
            "ext_attr2": 12, "ext_attr3": 13, "ext_attr4": 14, "ext_attr5": 15, "ext_attr6": 16, "ext_attr7": 17},
        "panel": {"type": 1, "brightness_v2_mode_0": 40, "brightness_v2_mode_1": 41, "numlock": "enabled",
            "capslock": "disabled", "sw_capslock": -1, "rv4_mode": "individual", "marovanti": false},
        "viewer": {"active": true, "server": "10.0.0.7", "display": "3"},
        "address": {"mcp": 12, "kvo_index": 7, "dck": 3, "dck_enable": "on", "cks_index": 4},
        "focus": {"suspend_lock": 1, "suspend_priority": 3, "startup_active": 2, "startup_priority": 5, "channel": 8,
            "screen": "main", "m2n": "1:2"},
        "channel_info": {"info": "Spindle"},
        "input": {"keyboards": 1, "mice": 2, "touch": 3, "multitouch": 4, "max_contacts": 5, "virtual_keyboards": 6,
            "dpi": 96},
        "touch": {"press_threshold": 40, "nonlinear": 1},
        "usb": {"lock_first": 1, "lock_second": 0, "connectors": "X1"},
        "metrics": {"oem_layout": "OEM", "softkey_type": 2, "keyboard_caps": 3, "dpi": 97, "hardware_caps": 15,
            "rotation": 1},
        "unavailable": []})")
                                           .dump());
}

TEST(Page, shows_what_a_station_lacks_and_names_the_requests_that_failed)
{
    const ScriptedService service(scripts(&Exchange::empty));
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: panel show: " + kFailures + "\n");
    const std::size_t behindStation = ended.out.find("panel ");
    ASSERT_NE(behindStation, std::string::npos);
    EXPECT_EQ(ended.out.substr(behindStation),
              R"(panel         type                  (the service refused or answered something unknown)
              brightness_v2_mode_0  (the station does not know this mode)
              brightness_v2_mode_1  (the station does not know this mode)
              numlock               (the service refused or answered something unknown)
              capslock              (the service refused or answered something unknown)
              sw_capslock           (the service refused or answered something unknown)
              rv4_mode              (the station has no handheld terminal of this type)
              marovanti             (the panel was not found, or the service failed)
viewer        active                (the service refused or answered something unknown)
              server                (no server is shown)
              display               (no server is shown)
address       mcp                   (the service refused or answered something unknown)
              kvo_index             (the service refused or answered something unknown)
              dck                   (the service refused or answered something unknown)
              dck_enable            (the service refused or answered something unknown)
              cks_index             (the service refused or answered something unknown)
focus         suspend_lock          (the service refused or answered something unknown)
              suspend_priority      (the service refused or answered something unknown)
              startup_active        (the service refused or answered something unknown)
              startup_priority      (the service refused or answered something unknown)
              channel               (the service refused or answered something unknown)
              screen                (the service refused or answered something unknown)
              m2n                   (the service refused or answered something unknown)
channel_info  info                  (the station has no channel information)
input         keyboards             -
              mice                  -
              touch                 -
              multitouch            -
              max_contacts          -
              virtual_keyboards     -
              dpi                   (the service refused or answered something unknown)
touch         press_threshold       (the station has no touch screen)
              nonlinear             (the station has no touch screen)
usb           lock_first            (the service refused or answered something unknown)
              lock_second           (the service refused or answered something unknown)
              connectors            (the list of connectors is empty)
metrics       oem_layout            (the station does not tell)
              softkey_type          (the station does not tell)
              keyboard_caps         (the station does not tell)
              dpi                   (the station does not tell)
              hardware_caps         (the station does not tell)
              rotation              (the station does not tell)
)");
    EXPECT_EQ(service.requests(), requests());
}

TEST(Page, carries_what_is_lacking_as_null_and_says_why)
{
    const ScriptedService service(scripts(&Exchange::empty));
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5", "--json"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: panel show: " + kFailures + "\n");
    const Json page = ended.document();
    EXPECT_EQ(page["viewer"].dump(), R"({"active":null,"server":null,"display":null})");
    EXPECT_EQ(page["touch"].dump(), R"({"press_threshold":null,"nonlinear":null})");
    EXPECT_EQ(page["unavailable"].size(), 36U);
    const Json touch = Json::parse(R"({"key": "touch.nonlinear", "code": 0, "meaning": "the station has no touch screen",
                                    "failed": false})");
    EXPECT_THAT(page["unavailable"], testing::Contains(touch));
    const Json rotation = Json::parse(R"({"key": "metrics.rotation", "code": -4, "meaning": "the station does not tell",
                                       "failed": false})");
    EXPECT_THAT(page["unavailable"], testing::Contains(rotation));
    const Json type = Json::parse(R"({"key": "panel.type", "code": -1,
                                   "meaning": "the service refused or answered something unknown", "failed": true})");
    EXPECT_THAT(page["unavailable"], testing::Contains(type));
}

TEST(Page, of_a_station_that_only_lacks_things_is_done)
{
    std::vector<support::Script> mixed;
    for (const Exchange &exchange : kExchanges) {
        const bool refuses = exchange.empty == "failed" || exchange.empty == "not found";
        const bool isState = exchange.request.starts_with("showDPI");  // "none" differs from "failed" in metrics only
        mixed.push_back(support::replies(refuses && !isState ? exchange.full : exchange.empty));
    }
    const ScriptedService service(mixed);
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(ended.out, testing::HasSubstr("(the station has no touch screen)"));
    EXPECT_THAT(ended.out, testing::HasSubstr("(the station does not know this mode)"));
    EXPECT_THAT(ended.out, testing::HasSubstr("(the station does not tell)"));
}

TEST(Page, of_an_unknown_station_is_a_no)
{
    const ScriptedService service({support::replies("not found")});
    const Ended ended = kvoctl({"panel", "show", "Lathe 9", "--json"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "kvoctl: panel show: no station is named \"Lathe 9\" (result 0)\n");
    EXPECT_EQ(ended.document(), Json::parse(R"({"error": {"code": 0, "meaning": "no station is named \"Lathe 9\""}})"));
    EXPECT_EQ(service.requests().front(), "getExDescByName Lathe 9\n");
}

TEST(Page, is_refused_with_the_station)
{
    const ScriptedService service({support::replies("failed")});
    EXPECT_EQ(kvoctl({"panel", "show", "10.0.0.5"}).status, 4);
}

TEST(Page, needs_a_service)
{
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5"});
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.out, "");
}

TEST(Page, does_not_wait_for_a_silent_service_at_each_question)
{
    const ScriptedService service({support::replies(kLathe), support::staysSilent(std::chrono::seconds(60))});
    const auto start = std::chrono::steady_clock::now();
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "kvoctl: panel show: the service stopped answering at panel type (result -1)\n");
}

}  // namespace

}  // namespace kvoctl_test
