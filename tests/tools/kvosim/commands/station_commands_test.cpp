// Every command about a station: each reply that it has, and that what is set is what is read back.
#include "kvosim/commands/commands.h"
#include "kvosim/plant_file/plant_file.h"
#include "tools/kvosim/support/named_row.h"

#include <gmock/gmock.h>

#include <thread>

namespace {

using testing::Eq;

/// A plant whose first station has @p keys, beside a plain one.
std::string plantWith(const std::string &keys)
{
    return "[[station]]\naddress = \"10.0.0.5\"\nname = \"A\"\n" + keys +
           "\n[[station]]\naddress = \"10.0.0.6\"\nname = \"B\"\n";
}

class Simulation {
public:
    explicit Simulation(const std::string &plant) : plant_(kvosim::parsePlant(plant, "plant")) {}

    std::string ask(std::string_view request) { return kvosim::answer(context, request); }

private:
    kvosim::Plant plant_;
    kvosim::Registry registry_{std::nullopt};

public:
    kvosim::ServiceContext context{.plant = plant_, .registry = registry_};
};

// ---- Each reply, by the plant file ----

struct Row : kvosim_test::NamedRow {
    std::string keys;
    std::string request;
    std::string reply;
};

class StationCommand : public testing::TestWithParam<Row> {};

TEST_P(StationCommand, is_answered)
{
    EXPECT_THAT(Simulation(plantWith(GetParam().keys)).ask(GetParam().request), Eq(GetParam().reply));
}

INSTANTIATE_TEST_SUITE_P(
    Viewer, StationCommand,
    testing::Values(Row{"viewer_active", "viewer = \"nc1:3\"", "isViewerActive=0A000005", "active"},
                    Row{"viewer_not_active", "", "isViewerActive=0A000005", "not active"},
                    Row{"viewer_unknown_station", "", "isViewerActive=0A0000FF", "failed"},
                    Row{"viewer_with_value", "", "isViewerActive=1 0A000005", "failed"},
                    Row{"server", "viewer = \"nc1:3\"", "getCurServer=0A000005", "vncserver=nc1:3"},
                    Row{"server_without_display", "viewer = \"nc1:\"", "getCurServer=0A000005", "vncserver=nc1:"},
                    Row{"server_none", "", "getCurServer=0A000005", "none"},
                    Row{"server_unknown_station", "", "getCurServer=0A0000FF", "failed"},
                    Row{"start", "", "startViewer=\"a:b:c\" 0A000005", "ok"},
                    Row{"start_while_running", "viewer = \"nc1:3\"", "startViewer=\"a:b:c\" 0A000005", "busy"},
                    Row{"start_busy", "viewer_busy = 1", "startViewer=\"a:b:c\" 0A000005", "busy"},
                    Row{"start_two_parts", "", "startViewer=\"a:b\" 0A000005", "failed"},
                    Row{"start_without_server", "", "startViewer=\":b:c\" 0A000005", "failed"},
                    Row{"start_unquoted", "", "startViewer=a:b:c 0A000005", "failed"},
                    Row{"start_one_quote", "", "startViewer=\" 0A000005", "failed"},
                    Row{"start_unknown_station", "", "startViewer=\"a:b:c\" 0A0000FF", "failed"},
                    Row{"start_configured", "", "startConfiguredViewer=\"cfg:3\" 0A000005", "ok"},
                    Row{"start_configured_busy", "viewer_busy = 1", "startConfiguredViewer=\"cfg:3\" 0A000005", "busy"},
                    Row{"start_configured_no_number", "", "startConfiguredViewer=\"cfg:x\" 0A000005", "failed"},
                    Row{"start_configured_two_colons", "", "startConfiguredViewer=\"a:b:3\" 0A000005", "failed"},
                    Row{"stop", "viewer = \"nc1:3\"", "stopViewer=0A000005", "ok"},
                    Row{"stop_not_running", "", "stopViewer=0A000005", "not running"},
                    Row{"stop_unknown_station", "", "stopViewer=0A0000FF", "failed"},
                    Row{"stop_preempt", "viewer = \"nc1:3\"", "stopViewerPreempt=0A000005", "ok"},
                    Row{"stop_preempt_not_running", "", "stopViewerPreempt=0A000005", "not running"},
                    Row{"stop_no_clean", "viewer = \"nc1:3\"", "stopViewerNoClean=0A000005", "ok"},
                    Row{"stop_no_clean_not_running", "", "stopViewerNoClean=0A000005", "not running"},
                    Row{"activate", "", "activateMe=0A000005", "ok"},
                    Row{"activate_busy", "focus_busy = 1", "activateMe=0A000005", "busy"},
                    Row{"activate_unknown_station", "", "activateMe=0A0000FF", "failed"},
                    Row{"reboot", "", "reboot=0A000005", "ok"}, Row{"reboot_unknown_station", "", "reboot=0A0000FF", "failed"},
                    Row{"status_line", "", "setStatusline=0A000005,1,2,Hello, you", "ok"},
                    Row{"status_line_empty", "", "setStatusline=0A000005,1,2,", "ok"},
                    Row{"status_line_no_text", "", "setStatusline=0A000005,1,2", "failed"},
                    Row{"status_line_no_number", "", "setStatusline=0A000005,1,x,Hello", "failed"},
                    Row{"status_line_station_last", "", "setStatusline=1,2,Hello,0A000005", "failed"},
                    Row{"status_line_unknown_station", "", "setStatusline=0A0000FF,1,2,Hello", "failed"}),
    kvosim_test::kNameOfRow);

INSTANTIATE_TEST_SUITE_P(
    Panel, StationCommand,
    testing::Values(Row{"brightness_percent", "", "setBacklightBrightness=100 0A000005", "ok"},
                    Row{"brightness_percent_101", "", "setBacklightBrightness=101 0A000005", "failed"},
                    Row{"brightness_percent_negative", "", "setBacklightBrightness=-1 0A000005", "failed"},
                    Row{"brightness_percent_quoted", "", "setBacklightBrightness=\"5\" 0A000005", "failed"},
                    Row{"brightness_percent_unknown_station", "", "setBacklightBrightness=5 0A0000FF", "failed"},
                    Row{"v2_mode_0", "", "setBacklightBrightnessV2=40 0 0A000005", "ok"},
                    Row{"v2_mode_1", "", "setBacklightBrightnessV2=40 1 0A000005", "ok"},
                    Row{"v2_unknown_mode", "backlight_modes = 1", "setBacklightBrightnessV2=40 1 0A000005", "bad request"},
                    Row{"v2_no_mode_at_all", "backlight_modes = 0", "setBacklightBrightnessV2=40 0 0A000005", "bad request"},
                    Row{"v2_not_active", "backlight = 0", "setBacklightBrightnessV2=40 1 0A000005", "not active"},
                    Row{"v2_101", "", "setBacklightBrightnessV2=101 0 0A000005", "failed"},
                    Row{"v2_without_mode", "", "setBacklightBrightnessV2=40 0A000005", "failed"},
                    Row{"v2_unknown_station", "", "setBacklightBrightnessV2=40 0 0A0000FF", "failed"},
                    Row{"get_v2", "backlight_brightness = 41\nbacklight_brightness_mode1 = 42",
                        "getBacklightBrightnessV2=0 0A000005", "backlight-brightness-v2=41"},
                    Row{"get_v2_mode_1", "backlight_brightness = 41\nbacklight_brightness_mode1 = 42",
                        "getBacklightBrightnessV2=1 0A000005", "backlight-brightness-v2=42"},
                    Row{"get_v2_while_off", "backlight = 0", "getBacklightBrightnessV2=1 0A000005",
                        "backlight-brightness-v2=100"},
                    Row{"get_v2_unknown_mode", "backlight_modes = 1", "getBacklightBrightnessV2=1 0A000005", "bad request"},
                    Row{"get_v2_without_mode", "", "getBacklightBrightnessV2=0A000005", "failed"},
                    Row{"get_v2_unknown_station", "", "getBacklightBrightnessV2=0 0A0000FF", "failed"},
                    Row{"num_lock", "", "setDisableNumLock=1 0A000005", "ok"},
                    Row{"num_lock_2", "", "setDisableNumLock=2 0A000005", "failed"},
                    Row{"num_lock_enabled", "", "getDisableNumLock=0A000005", "disable numlock 0"},
                    Row{"num_lock_disabled", "disable_num_lock = 1", "getDisableNumLock=0A000005", "disable numlock 1"},
                    Row{"num_lock_unknown_station", "", "getDisableNumLock=0A0000FF", "failed"},
                    Row{"caps_lock", "", "setDisableCapsLock=1 0A000005", "ok"},
                    Row{"caps_lock_2", "", "setDisableCapsLock=2 0A000005", "failed"},
                    Row{"caps_lock_enabled", "", "getDisableCapsLock=0A000005", "diable capslock 0"},
                    Row{"caps_lock_disabled", "disable_caps_lock = 1", "getDisableCapsLock=0A000005", "diable capslock 1"},
                    Row{"caps_lock_unknown_station", "", "getDisableCapsLock=0A0000FF", "failed"},
                    Row{"type_0", "", "getStationType=0A000005", "stationtype 0"},
                    Row{"type_1", "station_type = 1", "getStationType=0A000005", "stationtype 1"},
                    Row{"type_minus_1", "station_type = -1", "getStationType=0A000005", "stationtype -1"},
                    Row{"type_unknown_station", "", "getStationType=0A0000FF", "failed"},
                    Row{"sw_caps_lock_0", "", "getSwCapsLock=0A000005", "swcapslock 0"},
                    Row{"sw_caps_lock_1", "sw_caps_lock = 1", "getSwCapsLock=0A000005", "swcapslock 1"},
                    Row{"sw_caps_lock_minus_1", "sw_caps_lock = -1", "getSwCapsLock=0A000005", "swcapslock -1"},
                    Row{"sw_caps_lock_unknown_station", "", "getSwCapsLock=0A0000FF", "failed"},
                    Row{"set_sw_caps_lock", "", "setSwCapsLock=-1 0A000005", "ok"},
                    Row{"set_sw_caps_lock_minus_2", "", "setSwCapsLock=-2 0A000005", "failed"},
                    Row{"rv4", "handheld = 1\nrv4_mode = 1", "getRV4Mode=0A000005", "rv4mode=1"},
                    Row{"rv4_none", "", "getRV4Mode=0A000005", "not_a_rv4"},
                    Row{"rv4_unknown_station", "", "getRV4Mode=0A0000FF", "failed"},
                    Row{"set_rv4", "handheld = 1", "setRV4Mode=\"1\" 0A000005", "ok"},
                    Row{"set_rv4_2", "handheld = 1", "setRV4Mode=\"2\" 0A000005", "failed"},
                    Row{"set_rv4_none", "", "setRV4Mode=\"1\" 0A000005", "not_a_rv4"},
                    Row{"set_rv4_unknown_station", "", "setRV4Mode=\"1\" 0A0000FF", "failed"}),
    kvosim_test::kNameOfRow);

INSTANTIATE_TEST_SUITE_P(Addresses, StationCommand,
                         testing::Values(Row{"set_mcp", "", "setMCPAddress=\"255\" 0A000005", "ok"},
                                         Row{"set_mcp_256", "", "setMCPAddress=\"256\" 0A000005", "failed"},
                                         Row{"set_mcp_unquoted", "", "setMCPAddress=5 0A000005", "failed"},
                                         Row{"set_mcp_unknown_station", "", "setMCPAddress=\"5\" 0A0000FF", "failed"},
                                         Row{"mcp", "mcp_address = 12", "getMCPAddress=0A000005", "mcpaddr=12"},
                                         Row{"mcp_unknown_station", "", "getMCPAddress=0A0000FF", "failed"},
                                         Row{"set_index", "", "setKVOIndex=\"255\" 0A000005", "ok"},
                                         Row{"set_index_256", "", "setKVOIndex=\"256\" 0A000005", "failed"},
                                         Row{"index", "kvo_index = 3", "getKVOIndex=0A000005", "kvoindex=3"},
                                         Row{"index_unknown_station", "", "getKVOIndex=0A0000FF", "failed"},
                                         Row{"set_dck", "", "setDCKEnable=\"1\" 0A000005", "ok"},
                                         Row{"set_dck_2", "", "setDCKEnable=\"2\" 0A000005", "failed"},
                                         Row{"dck_enable", "dck_enable = 1", "getDCKEnable=0A000005", "dckenable=1"},
                                         Row{"dck_enable_unknown_station", "", "getDCKEnable=0A0000FF", "failed"},
                                         Row{"dck", "dck_address = 7", "getDCKAddress=0A000005", "dckaddr=7"},
                                         Row{"dck_unknown_station", "", "getDCKAddress=0A0000FF", "failed"},
                                         Row{"set_cks", "", "setKVOCksIndex=\"255\" 0A000005", "ok"},
                                         Row{"set_cks_256", "", "setKVOCksIndex=\"256\" 0A000005", "bad request"},
                                         Row{"set_cks_fixed", "cks_fixed = 1", "setKVOCksIndex=\"1\" 0A000005", "bad request"},
                                         Row{"set_cks_unquoted", "", "setKVOCksIndex=1 0A000005", "failed"},
                                         Row{"set_cks_unknown_station", "", "setKVOCksIndex=\"1\" 0A0000FF", "failed"},
                                         Row{"cks", "cks_index = 4000", "getKVOCksIndex=0A000005", "cksindex=4000"},
                                         Row{"cks_unknown_station", "", "getKVOCksIndex=0A0000FF", "failed"},
                                         Row{"simulate_key", "", "simulateMCPKey=\"12:1\" 0A000005", "ok"},
                                         Row{"simulate_key_one_number", "", "simulateMCPKey=\"12\" 0A000005", "failed"},
                                         Row{"simulate_key_negative", "", "simulateMCPKey=\"12:-1\" 0A000005", "failed"},
                                         Row{"simulate_key_unknown_station", "", "simulateMCPKey=\"12:1\" 0A0000FF", "failed"},
                                         Row{"enable_key", "", "enableMCPKey=\"4294967295:0\" 0A000005", "ok"},
                                         Row{"enable_key_large", "", "enableMCPKey=\"4294967296:0\" 0A000005", "failed"},
                                         Row{"by_mcp", "mcp_address = 5", "getIPbyMCPAddress=00000005", "ipaddr=0A000005"},
                                         Row{"by_mcp_none", "", "getIPbyMCPAddress=00000005", "no_mcp_address"},
                                         Row{"by_mcp_zero", "", "getIPbyMCPAddress=00000000", "no_mcp_address"},
                                         Row{"by_mcp_short", "", "getIPbyMCPAddress=5", "failed"},
                                         Row{"by_dck", "dck_address = 0xFF", "getIPbyDCKAddress=000000FF", "ipaddr=0A000005"},
                                         Row{"by_dck_none", "", "getIPbyDCKAddress=000000FF", "no_dck_address"},
                                         Row{"by_dck_bad", "", "getIPbyDCKAddress=", "failed"},
                                         Row{"by_index", "kvo_index = 1", "getIPbyKVOIndex=00000001", "ipaddr=0A000005"},
                                         Row{"by_index_none", "", "getIPbyKVOIndex=00000001", "no_kvo_index"},
                                         Row{"by_index_bad", "", "getIPbyKVOIndex=0000000g", "failed"}),
                         kvosim_test::kNameOfRow);

INSTANTIATE_TEST_SUITE_P(
    Focus, StationCommand,
    testing::Values(Row{"priority", "", "getKVOPriority=0A000005", "Priority="},
                    Row{"priority_colon", "priority = \":\"", "getKVOPriority=0A000005", "Priority=:"},
                    Row{"priority_lock", "priority = \"1:\"", "getKVOPriority=0A000005", "Priority=1:"},
                    Row{"priority_alone", "priority = \":7\"", "getKVOPriority=0A000005", "Priority=:7"},
                    Row{"priority_both", "priority = \"1:10\"", "getKVOPriority=0A000005", "Priority=1:10"},
                    Row{"priority_unknown_station", "", "getKVOPriority=0A0000FF", "failed"},
                    Row{"startup", "startup_active = 2", "getKVOStartupActive=0A000005", "startup-active=2"},
                    Row{"startup_unknown_station", "", "getKVOStartupActive=0A0000FF", "failed"},
                    Row{"startup_prio", "startup_prio = 70", "getKVOStartupPrio=0A000005", "startup-prio=70"},
                    Row{"startup_prio_unknown_station", "", "getKVOStartupPrio=0A0000FF", "failed"},
                    Row{"channel", "channel_on_focus = 8", "getKVOChannelOnFocus=0A000005", "channel-on-focus=8"},
                    Row{"channel_unknown_station", "", "getKVOChannelOnFocus=0A0000FF", "failed"},
                    Row{"screen", "screen_on_focus = \"Main 1\"", "getKVOScreenOnFocus=0A000005", "screen-on-focus=Main 1"},
                    Row{"screen_unknown_station", "", "getKVOScreenOnFocus=0A0000FF", "failed"},
                    Row{"t2m2n", "t2m2n = \"T1 M2 N3\"", "getKVOt2m2n=0A000005", "T1 M2 N3"},
                    Row{"t2m2n_empty", "", "getKVOt2m2n=0A000005", ""},
                    Row{"t2m2n_unknown_station", "", "getKVOt2m2n=0A0000FF", "failed"},
                    Row{"channel_info", "channel_info = \"Shift 1\"", "getChannelInfo=0A000005", "channel-info=Shift 1"},
                    Row{"channel_info_empty", "", "getChannelInfo=0A000005", "channel-info="},
                    Row{"channel_info_unknown_station", "", "getChannelInfo=0A0000FF", "failed"},
                    Row{"set_channel_info", "", "setChannelInfo=\"" + std::string(230, 'x') + "\" 0A000005", "ok"},
                    Row{"set_channel_info_long", "", "setChannelInfo=\"" + std::string(231, 'x') + "\" 0A000005", "failed"},
                    Row{"set_channel_info_unquoted", "", "setChannelInfo=x 0A000005", "failed"},
                    Row{"set_channel_info_unknown_station", "", "setChannelInfo=\"x\" 0A0000FF", "failed"},
                    Row{"delete_channel_info", "", "deleteChannelInfo=0A000005", "ok"},
                    Row{"delete_channel_info_unknown_station", "", "deleteChannelInfo=0A0000FF", "failed"}),
    kvosim_test::kNameOfRow);

const std::string kTouchless = "touch = 0\n";

INSTANTIATE_TEST_SUITE_P(
    Input, StationCommand,
    testing::Values(
        Row{"devices", "", "showInputDevice=0A000005", "kbd=1 mouse=1 touch=1 multitouch=0 vkbd=0"},
        Row{"devices_all", "maxcontacts = 10\nvkbd = 2", "showInputDevice=0A000005",
            "kbd=1 mouse=1 touch=1 multitouch=0 maxcontacts=10 vkbd=2"},
        Row{"devices_untold", "kbd = \"none\"\nmouse = \"none\"\ntouch = \"none\"\nmultitouch = \"none\"\nvkbd = \"none\"",
            "showInputDevice=0A000005", ""},
        Row{"devices_unknown_station", "", "showInputDevice=0A0000FF", "failed"},
        Row{"calibration", "press_thresh = 12\nnonlinear = 1", "getCalibParam=0A000005", "press_thresh=12 nonlinear=1"},
        Row{"calibration_default", "", "getCalibParam=0A000005", "press_thresh=-1 nonlinear=-1"},
        Row{"calibration_multitouch", "touch = 0\nmultitouch = 1", "getCalibParam=0A000005", "press_thresh=-1 nonlinear=-1"},
        Row{"calibration_touchless", kTouchless, "getCalibParam=0A000005", "no_touchscreen"},
        Row{"calibration_unknown_station", "", "getCalibParam=0A0000FF", "failed"},
        Row{"set_calibration", "", "setCalibParam=\"-1:0\" 0A000005", "ok"},
        Row{"set_calibration_low", "", "setCalibParam=\"-2:0\" 0A000005", "failed"},
        Row{"set_calibration_nonlinear", "", "setCalibParam=\"0:2\" 0A000005", "failed"},
        Row{"set_calibration_one", "", "setCalibParam=\"0\" 0A000005", "failed"},
        Row{"set_calibration_touchless", kTouchless, "setCalibParam=\"0:0\" 0A000005", "no_touchscreen"},
        Row{"set_calibration_unknown_station", "", "setCalibParam=\"0:0\" 0A0000FF", "failed"},
        Row{"invalidate", "", "invalidateTouch=0A000005", "ok"},
        Row{"invalidate_touchless", kTouchless, "invalidateTouch=0A000005", "no_touchscreen"},
        Row{"invalidate_unknown_station", "", "invalidateTouch=0A0000FF", "failed"},
        Row{"dpi", "dpi = 96", "showDPI=0A000005", "dpi=96"}, Row{"dpi_none", "", "showDPI=0A000005", "none"},
        Row{"dpi_unknown_station", "", "showDPI=0A0000FF", "failed"}),
    kvosim_test::kNameOfRow);

INSTANTIATE_TEST_SUITE_P(
    UsbAndMetrics, StationCommand,
    testing::Values(Row{"lock", "usb_lock = \"1:2\"", "getUsbLock=0A000005", "usb-lock=1:2"},
                    Row{"lock_unknown_station", "", "getUsbLock=0A0000FF", "failed"},
                    Row{"connectors", "usb_connectors = \"X60:keyboard X61:free\"", "getUsbConnectorListOne=0A000005",
                        "usb-connector-list-one=X60:keyboard X61:free"},
                    Row{"connectors_empty", "", "getUsbConnectorListOne=0A000005", "usb-connector-list-one="},
                    Row{"connectors_busy", "usb_scanning = 1", "getUsbConnectorListOne=0A000005", "busy"},
                    Row{"connectors_of_another_while_busy", "usb_scanning = 1", "getUsbConnectorListOne=0A000006",
                        "usb-connector-list-one="},
                    Row{"connectors_unknown_station", "", "getUsbConnectorListOne=0A0000FF", "failed"},
                    Row{"all_connectors", "usb_connectors = \"X60:keyboard X61:free\"", "getUsbConnectorList",
                        "usb-connector-list=10.0.0.5 X60:keyboard X61:free"},
                    Row{"all_connectors_empty", "", "getUsbConnectorList", "usb-connector-list="},
                    Row{"all_connectors_busy", "usb_scanning = 1", "getUsbConnectorList", "busy"},
                    Row{"all_connectors_with_value", "", "getUsbConnectorList=1", "failed"},
                    Row{"layout", "oem_layout = \"OP15\"", "getPaneOemLayout=0A000005", "panel-oem-layout=OP15"},
                    Row{"layout_none", "", "getPaneOemLayout=0A000005", "none"},
                    Row{"layout_unknown_station", "", "getPaneOemLayout=0A0000FF", "failed"},
                    Row{"softkeys", "softkey_type = 0x1A", "getSoftkeyType=0A000005", "softkey-type=0000001A"},
                    Row{"softkeys_none", "", "getSoftkeyType=0A000005", "none"},
                    Row{"keyboard", "keyboard_caps = 0xFFFFFFFE", "getKeyBoardCaps=0A000005", "keyboard-caps=FFFFFFFE"},
                    Row{"keyboard_none", "", "getKeyBoardCaps=0A000005", "none"},
                    Row{"hardware", "hardware_caps = 5", "getHardwareCaps=0A000005", "hardware-caps=00000005"},
                    Row{"hardware_none", "", "getHardwareCaps=0A000005", "none"},
                    Row{"rotation", "panel_rotation = 4", "getPanelRotation=0A000005", "panel-rotation=4"},
                    Row{"rotation_none", "", "getPanelRotation=0A000005", "none"},
                    Row{"rotation_unknown_station", "", "getPanelRotation=0A0000FF", "failed"},
                    Row{"marovanti", "", "isMarovantiPanel 0A000005", "is-Marovanti-Panel=1"},
                    Row{"no_marovanti", "marovanti = 0", "isMarovantiPanel 0A000005", "is-Marovanti-Panel=0"},
                    Row{"marovanti_unknown_station", "", "isMarovantiPanel 0A0000FF", "not found"},
                    Row{"marovanti_malformed", "", "isMarovantiPanel 10.0.0.5", "failed"},
                    Row{"clients_none", "", "getClientList 0 0", "00000000 "},
                    Row{"clients", "[[client]]\nname = \"HMI 1\"\nvalue = 0x1F", "getClientList 0 FFFFFFFFFFFFFFFF",
                        "00000001 0000001F 00000005 HMI 1 "},
                    Row{"clients_first_not_0", "", "getClientList 1 0", "failed"},
                    Row{"clients_no_flags", "", "getClientList 0", "failed"},
                    Row{"clients_bad_flags", "", "getClientList 0 xyz", "failed"}),
    kvosim_test::kNameOfRow);

// ---- What is set is what is read back, and nobody else's ----

struct Talk : kvosim_test::NamedRow {
    std::string keys;
    std::vector<std::pair<std::string, std::string>> exchanges;
};

class Sequence : public testing::TestWithParam<Talk> {};

TEST_P(Sequence, is_answered)
{
    Simulation simulation(plantWith(GetParam().keys));
    for (const auto &[request, reply] : GetParam().exchanges) {
        EXPECT_THAT(simulation.ask(request), Eq(reply)) << request;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, Sequence,
    testing::Values(
        Talk{"viewer",
             "",
             {{"startViewer=\"nc1:3:shared\" 0A000005", "ok"},
              {"isViewerActive=0A000005", "active"},
              {"isViewerActive=0A000006", "not active"},
              {"getCurServer=0A000005", "vncserver=nc1:3"},
              {"startConfiguredViewer=\"nc2:1\" 0A000005", "busy"},
              {"getCurServer=0A000005", "vncserver=nc1:3"},
              {"stopViewerPreempt=0A000005", "ok"},
              {"stopViewer=0A000005", "not running"},
              {"getCurServer=0A000005", "none"},
              {"startConfiguredViewer=\"nc2:1\" 0A000005", "ok"},
              {"getCurServer=0A000005", "vncserver=nc2:1"}}},
        Talk{"refused_start_starts_nothing",
             "",
             {{"startViewer=\":3:x\" 0A000005", "failed"}, {"isViewerActive=0A000005", "not active"}}},
        Talk{"reboot_without_time",
             "viewer = \"nc1:3\"\nsw_caps_lock = 1\nmcp_address = 5\nbacklight_brightness = 40",
             {{"reboot=0A000005", "ok"},
              {"isViewerActive=0A000005", "not active"},
              {"getSwCapsLock=0A000005", "swcapslock 0"},
              {"getMCPAddress=0A000005", "mcpaddr=5"},
              {"getBacklightBrightnessV2=0 0A000005", "backlight-brightness-v2=40"}}},
        Talk{"away_while_it_reboots",
             "reboot_time_ms = 60000\nmcp_address = 5\nusb_connectors = \"X60:free\"",
             {{"reboot=0A000005", "ok"},
              {"getMCPAddress=0A000005", "failed"},
              {"setMCPAddress=\"6\" 0A000005", "failed"},
              {"setStatusline=0A000005,1,2,x", "failed"},
              {"reboot=0A000005", "failed"},
              {"getExDescByIP 0A000005", "not found"},
              {"getExDescByName A", "not found"},
              {"isMarovantiPanel 0A000005", "not found"},
              {"getIPbyMCPAddress=00000005", "no_mcp_address"},
              {"getUsbConnectorList", "usb-connector-list="},
              {"getCountElemDL", "2"},
              {"getMCPAddress=0A000006", "mcpaddr=0"}}},
        Talk{"brightness",
             "",
             {{"setBacklightBrightness=10 0A000005", "ok"},
              {"setBacklightBrightnessV2=20 1 0A000005", "ok"},
              {"getBacklightBrightnessV2=0 0A000005", "backlight-brightness-v2=10"},
              {"getBacklightBrightnessV2=1 0A000005", "backlight-brightness-v2=20"},
              {"setBacklightBrightnessV2=30 0 0A000005", "ok"},
              {"getBacklightBrightnessV2=0 0A000005", "backlight-brightness-v2=30"},
              {"getBacklightBrightnessV2=0 0A000006", "backlight-brightness-v2=100"}}},
        Talk{"key_locks",
             "",
             {{"setDisableNumLock=1 0A000005", "ok"},
              {"getDisableNumLock=0A000005", "disable numlock 1"},
              {"getDisableCapsLock=0A000005", "diable capslock 0"},
              {"setDisableCapsLock=1 0A000005", "ok"},
              {"getDisableCapsLock=0A000005", "diable capslock 1"},
              {"setSwCapsLock=-1 0A000005", "ok"},
              {"getSwCapsLock=0A000005", "swcapslock -1"},
              {"getSwCapsLock=0A000006", "swcapslock 0"}}},
        Talk{"handheld", "handheld = 1", {{"setRV4Mode=\"1\" 0A000005", "ok"}, {"getRV4Mode=0A000005", "rv4mode=1"}}},
        Talk{"lookups",
             "",
             {{"setMCPAddress=\"5\" 0A000006", "ok"},
              {"getMCPAddress=0A000006", "mcpaddr=5"},
              {"getIPbyMCPAddress=00000005", "ipaddr=0A000006"},
              {"setMCPAddress=\"5\" 0A000005", "ok"},
              {"getIPbyMCPAddress=00000005", "more_than_one_mcp"},
              {"setKVOIndex=\"9\" 0A000005", "ok"},
              {"getKVOIndex=0A000005", "kvoindex=9"},
              {"getIPbyKVOIndex=00000009", "ipaddr=0A000005"},
              {"setKVOIndex=\"9\" 0A000006", "ok"},
              {"getIPbyKVOIndex=00000009", "more_than_one_kvo_index"},
              {"setKVOIndex=\"256\" 0A000006", "failed"},
              {"getKVOIndex=0A000006", "kvoindex=9"}}},
        Talk{"dck",
             "",
             {{"setDCKEnable=\"1\" 0A000005", "ok"},
              {"getDCKEnable=0A000005", "dckenable=1"},
              {"getDCKEnable=0A000006", "dckenable=0"},
              {"setKVOCksIndex=\"200\" 0A000005", "ok"},
              {"setKVOCksIndex=\"256\" 0A000005", "bad request"},
              {"getKVOCksIndex=0A000005", "cksindex=200"}}},
        Talk{"channel_info",
             "",
             {{"setChannelInfo=\"says \"hi\" 0A000006\" 0A000005", "ok"},
              {"getChannelInfo=0A000005", "channel-info=says \"hi\" 0A000006"},
              {"getChannelInfo=0A000006", "channel-info="},
              {"deleteChannelInfo=0A000005", "ok"},
              {"getChannelInfo=0A000005", "channel-info="}}},
        Talk{"calibration",
             "",
             {{"setCalibParam=\"30:1\" 0A000005", "ok"},
              {"getCalibParam=0A000005", "press_thresh=30 nonlinear=1"},
              {"setCalibParam=\"30:2\" 0A000005", "failed"},
              {"getCalibParam=0A000005", "press_thresh=30 nonlinear=1"},
              {"invalidateTouch=0A000005", "ok"},
              {"getCalibParam=0A000005", "press_thresh=-1 nonlinear=-1"}}},
        Talk{"focus_that_is_not_held",
             "",
             {{"activateMe=0A000005", "ok"}, {"activateMe=0A000006", "ok"}, {"activateMe=0A000005", "ok"}}}),
    kvosim_test::kNameOfRow);

TEST(StationCommands, two_stations_with_one_dck_address_are_not_distinguished)
{
    Simulation simulation(plantWith("dck_address = 3") + "dck_address = 3\n");
    EXPECT_EQ(simulation.ask("getIPbyDCKAddress=00000003"), "more_than_one_dck");
}

TEST(StationCommands, connectors_of_several_stations_stand_after_their_addresses)
{
    Simulation simulation(plantWith("usb_connectors = \"X60:free\"") + "usb_connectors = \"X1:mouse X2:free\"\n");
    EXPECT_EQ(simulation.ask("getUsbConnectorList"), "usb-connector-list=10.0.0.5 X60:free;10.0.0.6 X1:mouse X2:free");
}

TEST(StationCommands, focus_is_held_for_its_time_against_others)
{
    Simulation simulation("[service]\nfocus_hold_ms = 60000\n" + plantWith(""));
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "ok");
    EXPECT_EQ(simulation.ask("activateMe=0A000006"), "busy");
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "ok") << "who has it may ask again";
    simulation.context.plant.focus.since -= std::chrono::seconds(59);
    EXPECT_EQ(simulation.ask("activateMe=0A000006"), "busy");
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "ok") << "but does not keep it longer by that";
    simulation.context.plant.focus.since -= std::chrono::seconds(1);
    EXPECT_EQ(simulation.ask("activateMe=0A000006"), "ok");
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "busy");
    EXPECT_EQ(simulation.ask("reboot=0A000006"), "ok");
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "ok") << "a station that reboots gives it up";
}

TEST(StationCommands, station_is_back_after_its_reboot)
{
    Simulation simulation(plantWith("reboot_time_ms = 60"));
    EXPECT_EQ(simulation.ask("reboot=0A000005"), "ok");
    EXPECT_EQ(simulation.ask("isViewerActive=0A000005"), "failed");
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    EXPECT_EQ(simulation.ask("isViewerActive=0A000005"), "not active");
}

TEST(StationCommands, cleaning_up_takes_the_status_line_away)
{
    Simulation simulation(plantWith("viewer = \"nc1:3\""));
    const kvosim::Panel &panel = *simulation.context.plant.findPanel(0x0A000005);
    simulation.ask("setStatusline=0A000005,7,8,Hello, you");
    EXPECT_EQ(panel.statusLine, "Hello, you");
    EXPECT_EQ(panel.statusValue1, 7);
    EXPECT_EQ(panel.statusValue2, 8);
    simulation.ask("stopViewerNoClean=0A000005");
    EXPECT_EQ(panel.statusLine, "Hello, you");
    simulation.ask("startViewer=\"a:b:c\" 0A000005");
    simulation.ask("stopViewer=0A000005");
    EXPECT_EQ(panel.statusLine, "");
}

TEST(StationCommands, keys_of_the_machine_control_panel_are_kept)
{
    Simulation simulation(plantWith(""));
    const kvosim::Panel &panel = *simulation.context.plant.findPanel(0x0A000005);
    simulation.ask("simulateMCPKey=\"12:1\" 0A000005");
    simulation.ask("enableMCPKey=\"13:0\" 0A000005");
    EXPECT_EQ(panel.simulatedMcpKey, "12:1");
    EXPECT_EQ(panel.enabledMcpKey, "13:0");
    simulation.ask("reboot=0A000005");
    EXPECT_EQ(panel.simulatedMcpKey, "");
    EXPECT_EQ(panel.enabledMcpKey, "13:0");
}

}  // namespace
