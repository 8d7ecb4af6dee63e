// The replies of a station for each key of the plant file.
#include "tools/kvosim/commands/simulation.h"
#include "tools/kvosim/support/named_row.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace {

using kvosim_test::plantWith;
using kvosim_test::Simulation;
using testing::Eq;

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

const std::vector<Row> kViewerReplies = {
    {"viewer_active", "viewer = \"nc1:3\"", "isViewerActive=0A000005", "active"},
    {"viewer_not_active", "", "isViewerActive=0A000005", "not active"},
    {"viewer_unknown_station", "", "isViewerActive=0A0000FF", "failed"},
    {"viewer_with_value", "", "isViewerActive=1 0A000005", "failed"},
    {"server", "viewer = \"nc1:3\"", "getCurServer=0A000005", "vncserver=nc1:3"},
    {"server_without_display", "viewer = \"nc1:\"", "getCurServer=0A000005", "vncserver=nc1:"},
    {"server_none", "", "getCurServer=0A000005", "none"},
    {"server_unknown_station", "", "getCurServer=0A0000FF", "failed"},
    {"start", "", "startViewer=\"a:b:c\" 0A000005", "ok"},
    {"start_while_running", "viewer = \"nc1:3\"", "startViewer=\"a:b:c\" 0A000005", "busy"},
    {"start_busy", "viewer_busy = 1", "startViewer=\"a:b:c\" 0A000005", "busy"},
    {"start_two_parts", "", "startViewer=\"a:b\" 0A000005", "failed"},
    {"start_without_server", "", "startViewer=\":b:c\" 0A000005", "failed"},
    {"start_unquoted", "", "startViewer=a:b:c 0A000005", "failed"},
    {"start_one_quote", "", "startViewer=\" 0A000005", "failed"},
    {"start_unknown_station", "", "startViewer=\"a:b:c\" 0A0000FF", "failed"},
    {"start_configured", "", "startConfiguredViewer=\"cfg:3\" 0A000005", "ok"},
    {"start_configured_busy", "viewer_busy = 1", "startConfiguredViewer=\"cfg:3\" 0A000005", "busy"},
    {"start_configured_display_is_not_a_number", "", "startConfiguredViewer=\"cfg:x\" 0A000005", "failed"},
    {"start_configured_two_colons", "", "startConfiguredViewer=\"a:b:3\" 0A000005", "failed"},
    {"stop", "viewer = \"nc1:3\"", "stopViewer=0A000005", "ok"},
    {"stop_not_running", "", "stopViewer=0A000005", "not running"},
    {"stop_unknown_station", "", "stopViewer=0A0000FF", "failed"},
    {"stop_preempt", "viewer = \"nc1:3\"", "stopViewerPreempt=0A000005", "ok"},
    {"stop_preempt_not_running", "", "stopViewerPreempt=0A000005", "not running"},
    {"stop_no_clean", "viewer = \"nc1:3\"", "stopViewerNoClean=0A000005", "ok"},
    {"stop_no_clean_not_running", "", "stopViewerNoClean=0A000005", "not running"},
    {"activate", "", "activateMe=0A000005", "ok"},
    {"activate_busy", "focus_busy = 1", "activateMe=0A000005", "busy"},
    {"activate_unknown_station", "", "activateMe=0A0000FF", "failed"},
    {"reboot", "", "reboot=0A000005", "ok"},
    {"reboot_unknown_station", "", "reboot=0A0000FF", "failed"},
    {"status_line", "", "setStatusline=0A000005,1,2,Hello, you", "ok"},
    {"status_line_empty", "", "setStatusline=0A000005,1,2,", "ok"},
    {"status_line_without_text", "", "setStatusline=0A000005,1,2", "failed"},
    {"status_line_value_is_not_a_number", "", "setStatusline=0A000005,1,x,Hello", "failed"},
    {"status_line_station_last", "", "setStatusline=1,2,Hello,0A000005", "failed"},
    {"status_line_unknown_station", "", "setStatusline=0A0000FF,1,2,Hello", "failed"}};

INSTANTIATE_TEST_SUITE_P(Viewer, StationCommand, testing::ValuesIn(kViewerReplies), kvosim_test::kNameOfRow);

const std::vector<Row> kPanelReplies = {
    {"brightness_percent", "", "setBacklightBrightness=100 0A000005", "ok"},
    {"brightness_percent_101", "", "setBacklightBrightness=101 0A000005", "failed"},
    {"brightness_percent_negative", "", "setBacklightBrightness=-1 0A000005", "failed"},
    {"brightness_percent_quoted", "", "setBacklightBrightness=\"5\" 0A000005", "failed"},
    {"brightness_percent_unknown_station", "", "setBacklightBrightness=5 0A0000FF", "failed"},
    {"v2_mode_0", "", "setBacklightBrightnessV2=40 0 0A000005", "ok"},
    {"v2_mode_1", "", "setBacklightBrightnessV2=40 1 0A000005", "ok"},
    {"v2_unknown_mode", "backlight_modes = 1", "setBacklightBrightnessV2=40 1 0A000005", "bad request"},
    {"v2_without_any_mode", "backlight_modes = 0", "setBacklightBrightnessV2=40 0 0A000005", "bad request"},
    {"v2_not_active", "backlight = 0", "setBacklightBrightnessV2=40 1 0A000005", "not active"},
    {"v2_101", "", "setBacklightBrightnessV2=101 0 0A000005", "failed"},
    {"v2_without_mode", "", "setBacklightBrightnessV2=40 0A000005", "failed"},
    {"v2_unknown_station", "", "setBacklightBrightnessV2=40 0 0A0000FF", "failed"},
    {"get_v2", "backlight_brightness = 41\nbacklight_brightness_mode1 = 42", "getBacklightBrightnessV2=0 0A000005",
     "backlight-brightness-v2=41"},
    {"get_v2_mode_1", "backlight_brightness = 41\nbacklight_brightness_mode1 = 42", "getBacklightBrightnessV2=1 0A000005",
     "backlight-brightness-v2=42"},
    {"get_v2_while_off", "backlight = 0", "getBacklightBrightnessV2=1 0A000005", "backlight-brightness-v2=100"},
    {"get_v2_unknown_mode", "backlight_modes = 1", "getBacklightBrightnessV2=1 0A000005", "bad request"},
    {"get_v2_without_mode", "", "getBacklightBrightnessV2=0A000005", "failed"},
    {"get_v2_unknown_station", "", "getBacklightBrightnessV2=0 0A0000FF", "failed"},
    {"num_lock", "", "setDisableNumLock=1 0A000005", "ok"},
    {"num_lock_2", "", "setDisableNumLock=2 0A000005", "failed"},
    {"num_lock_enabled", "", "getDisableNumLock=0A000005", "disable numlock 0"},
    {"num_lock_disabled", "disable_num_lock = 1", "getDisableNumLock=0A000005", "disable numlock 1"},
    {"num_lock_unknown_station", "", "getDisableNumLock=0A0000FF", "failed"},
    {"caps_lock", "", "setDisableCapsLock=1 0A000005", "ok"},
    {"caps_lock_2", "", "setDisableCapsLock=2 0A000005", "failed"},
    {"caps_lock_enabled", "", "getDisableCapsLock=0A000005", "diable capslock 0"},
    {"caps_lock_disabled", "disable_caps_lock = 1", "getDisableCapsLock=0A000005", "diable capslock 1"},
    {"caps_lock_unknown_station", "", "getDisableCapsLock=0A0000FF", "failed"},
    {"type_0", "", "getStationType=0A000005", "stationtype 0"},
    {"type_1", "station_type = 1", "getStationType=0A000005", "stationtype 1"},
    {"type_minus_1", "station_type = -1", "getStationType=0A000005", "stationtype -1"},
    {"type_unknown_station", "", "getStationType=0A0000FF", "failed"},
    {"sw_caps_lock_0", "", "getSwCapsLock=0A000005", "swcapslock 0"},
    {"sw_caps_lock_1", "sw_caps_lock = 1", "getSwCapsLock=0A000005", "swcapslock 1"},
    {"sw_caps_lock_minus_1", "sw_caps_lock = -1", "getSwCapsLock=0A000005", "swcapslock -1"},
    {"sw_caps_lock_unknown_station", "", "getSwCapsLock=0A0000FF", "failed"},
    {"set_sw_caps_lock", "", "setSwCapsLock=-1 0A000005", "ok"},
    {"set_sw_caps_lock_minus_2", "", "setSwCapsLock=-2 0A000005", "failed"},
    {"rv4", "handheld = 1\nrv4_mode = 1", "getRV4Mode=0A000005", "rv4mode=1"},
    {"rv4_none", "", "getRV4Mode=0A000005", "not_a_rv4"},
    {"rv4_unknown_station", "", "getRV4Mode=0A0000FF", "failed"},
    {"set_rv4", "handheld = 1", "setRV4Mode=\"1\" 0A000005", "ok"},
    {"set_rv4_2", "handheld = 1", "setRV4Mode=\"2\" 0A000005", "failed"},
    {"set_rv4_none", "", "setRV4Mode=\"1\" 0A000005", "not_a_rv4"},
    {"set_rv4_unknown_station", "", "setRV4Mode=\"1\" 0A0000FF", "failed"}};

INSTANTIATE_TEST_SUITE_P(Panel, StationCommand, testing::ValuesIn(kPanelReplies), kvosim_test::kNameOfRow);

const std::vector<Row> kAddressReplies = {{"set_mcp", "", "setMCPAddress=\"255\" 0A000005", "ok"},
                                          {"set_mcp_256", "", "setMCPAddress=\"256\" 0A000005", "failed"},
                                          {"set_mcp_unquoted", "", "setMCPAddress=5 0A000005", "failed"},
                                          {"set_mcp_unknown_station", "", "setMCPAddress=\"5\" 0A0000FF", "failed"},
                                          {"mcp", "mcp_address = 12", "getMCPAddress=0A000005", "mcpaddr=12"},
                                          {"mcp_unknown_station", "", "getMCPAddress=0A0000FF", "failed"},
                                          {"set_index", "", "setKVOIndex=\"255\" 0A000005", "ok"},
                                          {"set_index_256", "", "setKVOIndex=\"256\" 0A000005", "failed"},
                                          {"index", "kvo_index = 3", "getKVOIndex=0A000005", "kvoindex=3"},
                                          {"index_unknown_station", "", "getKVOIndex=0A0000FF", "failed"},
                                          {"set_dck", "", "setDCKEnable=\"1\" 0A000005", "ok"},
                                          {"set_dck_2", "", "setDCKEnable=\"2\" 0A000005", "failed"},
                                          {"dck_enable", "dck_enable = 1", "getDCKEnable=0A000005", "dckenable=1"},
                                          {"dck_enable_unknown_station", "", "getDCKEnable=0A0000FF", "failed"},
                                          {"dck", "dck_address = 7", "getDCKAddress=0A000005", "dckaddr=7"},
                                          {"dck_unknown_station", "", "getDCKAddress=0A0000FF", "failed"},
                                          {"set_cks", "", "setKVOCksIndex=\"255\" 0A000005", "ok"},
                                          {"set_cks_256", "", "setKVOCksIndex=\"256\" 0A000005", "bad request"},
                                          {"set_cks_fixed", "cks_fixed = 1", "setKVOCksIndex=\"1\" 0A000005", "bad request"},
                                          {"set_cks_unquoted", "", "setKVOCksIndex=1 0A000005", "failed"},
                                          {"set_cks_unknown_station", "", "setKVOCksIndex=\"1\" 0A0000FF", "failed"},
                                          {"cks", "cks_index = 4000", "getKVOCksIndex=0A000005", "cksindex=4000"},
                                          {"cks_unknown_station", "", "getKVOCksIndex=0A0000FF", "failed"},
                                          {"simulate_key", "", "simulateMCPKey=\"12:1\" 0A000005", "ok"},
                                          {"simulate_key_one_number", "", "simulateMCPKey=\"12\" 0A000005", "failed"},
                                          {"simulate_key_negative", "", "simulateMCPKey=\"12:-1\" 0A000005", "failed"},
                                          {"simulate_key_unknown_station", "", "simulateMCPKey=\"12:1\" 0A0000FF", "failed"},
                                          {"enable_key", "", "enableMCPKey=\"4294967295:0\" 0A000005", "ok"},
                                          {"enable_key_large", "", "enableMCPKey=\"4294967296:0\" 0A000005", "failed"},
                                          {"by_mcp", "mcp_address = 5", "getIPbyMCPAddress=00000005", "ipaddr=0A000005"},
                                          {"by_mcp_none", "", "getIPbyMCPAddress=00000005", "no_mcp_address"},
                                          {"by_mcp_zero", "", "getIPbyMCPAddress=00000000", "no_mcp_address"},
                                          {"by_mcp_short", "", "getIPbyMCPAddress=5", "failed"},
                                          {"by_dck", "dck_address = 0xFF", "getIPbyDCKAddress=000000FF", "ipaddr=0A000005"},
                                          {"by_dck_none", "", "getIPbyDCKAddress=000000FF", "no_dck_address"},
                                          {"by_dck_bad", "", "getIPbyDCKAddress=", "failed"},
                                          {"by_index", "kvo_index = 1", "getIPbyKVOIndex=00000001", "ipaddr=0A000005"},
                                          {"by_index_none", "", "getIPbyKVOIndex=00000001", "no_kvo_index"},
                                          {"by_index_bad", "", "getIPbyKVOIndex=0000000g", "failed"}};

INSTANTIATE_TEST_SUITE_P(Addresses, StationCommand, testing::ValuesIn(kAddressReplies), kvosim_test::kNameOfRow);

const std::vector<Row> kFocusReplies = {
    {"priority", "", "getKVOPriority=0A000005", "Priority="},
    {"priority_colon", "priority = \":\"", "getKVOPriority=0A000005", "Priority=:"},
    {"priority_lock", "priority = \"1:\"", "getKVOPriority=0A000005", "Priority=1:"},
    {"priority_alone", "priority = \":7\"", "getKVOPriority=0A000005", "Priority=:7"},
    {"priority_both", "priority = \"1:10\"", "getKVOPriority=0A000005", "Priority=1:10"},
    {"priority_unknown_station", "", "getKVOPriority=0A0000FF", "failed"},
    {"startup", "startup_active = 2", "getKVOStartupActive=0A000005", "startup-active=2"},
    {"startup_unknown_station", "", "getKVOStartupActive=0A0000FF", "failed"},
    {"startup_prio", "startup_prio = 70", "getKVOStartupPrio=0A000005", "startup-prio=70"},
    {"startup_prio_unknown_station", "", "getKVOStartupPrio=0A0000FF", "failed"},
    {"channel", "channel_on_focus = 8", "getKVOChannelOnFocus=0A000005", "channel-on-focus=8"},
    {"channel_unknown_station", "", "getKVOChannelOnFocus=0A0000FF", "failed"},
    {"screen", "screen_on_focus = \"Main 1\"", "getKVOScreenOnFocus=0A000005", "screen-on-focus=Main 1"},
    {"screen_unknown_station", "", "getKVOScreenOnFocus=0A0000FF", "failed"},
    {"t2m2n", "t2m2n = \"T1 M2 N3\"", "getKVOt2m2n=0A000005", "T1 M2 N3"},
    {"t2m2n_empty", "", "getKVOt2m2n=0A000005", ""},
    {"t2m2n_unknown_station", "", "getKVOt2m2n=0A0000FF", "failed"},
    {"channel_info", "channel_info = \"Shift 1\"", "getChannelInfo=0A000005", "channel-info=Shift 1"},
    {"channel_info_empty", "", "getChannelInfo=0A000005", "channel-info="},
    {"channel_info_unknown_station", "", "getChannelInfo=0A0000FF", "failed"},
    {"set_channel_info", "", "setChannelInfo=\"" + std::string(230, 'x') + "\" 0A000005", "ok"},
    {"set_channel_info_long", "", "setChannelInfo=\"" + std::string(231, 'x') + "\" 0A000005", "failed"},
    {"set_channel_info_unquoted", "", "setChannelInfo=x 0A000005", "failed"},
    {"set_channel_info_unknown_station", "", "setChannelInfo=\"x\" 0A0000FF", "failed"},
    {"delete_channel_info", "", "deleteChannelInfo=0A000005", "ok"},
    {"delete_channel_info_unknown_station", "", "deleteChannelInfo=0A0000FF", "failed"}};

INSTANTIATE_TEST_SUITE_P(Focus, StationCommand, testing::ValuesIn(kFocusReplies), kvosim_test::kNameOfRow);

const std::string kTouchless = "touch = 0\n";

const std::vector<Row> kInputReplies = {
    {"devices", "", "showInputDevice=0A000005", "kbd=1 mouse=1 touch=1 multitouch=0 vkbd=0"},
    {"devices_all", "maxcontacts = 10\nvkbd = 2", "showInputDevice=0A000005",
     "kbd=1 mouse=1 touch=1 multitouch=0 maxcontacts=10 vkbd=2"},
    {"devices_without_numbers", "kbd = \"none\"\nmouse = \"none\"\ntouch = \"none\"\nmultitouch = \"none\"\nvkbd = \"none\"",
     "showInputDevice=0A000005", ""},
    {"devices_unknown_station", "", "showInputDevice=0A0000FF", "failed"},
    {"calibration", "press_thresh = 12\nnonlinear = 1", "getCalibParam=0A000005", "press_thresh=12 nonlinear=1"},
    {"calibration_default", "", "getCalibParam=0A000005", "press_thresh=-1 nonlinear=-1"},
    {"calibration_multitouch", "touch = 0\nmultitouch = 1", "getCalibParam=0A000005", "press_thresh=-1 nonlinear=-1"},
    {"calibration_touchless", kTouchless, "getCalibParam=0A000005", "no_touchscreen"},
    {"calibration_unknown_station", "", "getCalibParam=0A0000FF", "failed"},
    {"set_calibration", "", "setCalibParam=\"-1:0\" 0A000005", "ok"},
    {"set_calibration_low", "", "setCalibParam=\"-2:0\" 0A000005", "failed"},
    {"set_calibration_nonlinear", "", "setCalibParam=\"0:2\" 0A000005", "failed"},
    {"set_calibration_one", "", "setCalibParam=\"0\" 0A000005", "failed"},
    {"set_calibration_touchless", kTouchless, "setCalibParam=\"0:0\" 0A000005", "no_touchscreen"},
    {"set_calibration_unknown_station", "", "setCalibParam=\"0:0\" 0A0000FF", "failed"},
    {"invalidate", "", "invalidateTouch=0A000005", "ok"},
    {"invalidate_touchless", kTouchless, "invalidateTouch=0A000005", "no_touchscreen"},
    {"invalidate_unknown_station", "", "invalidateTouch=0A0000FF", "failed"},
    {"dpi", "dpi = 96", "showDPI=0A000005", "dpi=96"},
    {"dpi_none", "", "showDPI=0A000005", "none"},
    {"dpi_unknown_station", "", "showDPI=0A0000FF", "failed"}};

INSTANTIATE_TEST_SUITE_P(Input, StationCommand, testing::ValuesIn(kInputReplies), kvosim_test::kNameOfRow);

const std::vector<Row> kUsbAndMetricsReplies = {
    {"lock", "usb_lock = \"1:2\"", "getUsbLock=0A000005", "usb-lock=1:2"},
    {"lock_unknown_station", "", "getUsbLock=0A0000FF", "failed"},
    {"connectors", "usb_connectors = \"X60:keyboard X61:free\"", "getUsbConnectorListOne=0A000005",
     "usb-connector-list-one=X60:keyboard X61:free"},
    {"connectors_empty", "", "getUsbConnectorListOne=0A000005", "usb-connector-list-one="},
    {"connectors_busy", "usb_scanning = 1", "getUsbConnectorListOne=0A000005", "busy"},
    {"connectors_of_another_while_busy", "usb_scanning = 1", "getUsbConnectorListOne=0A000006", "usb-connector-list-one="},
    {"connectors_unknown_station", "", "getUsbConnectorListOne=0A0000FF", "failed"},
    {"all_connectors", "usb_connectors = \"X60:keyboard X61:free\"", "getUsbConnectorList",
     "usb-connector-list=10.0.0.5 X60:keyboard X61:free"},
    {"all_connectors_empty", "", "getUsbConnectorList", "usb-connector-list="},
    {"all_connectors_busy", "usb_scanning = 1", "getUsbConnectorList", "busy"},
    {"all_connectors_with_value", "", "getUsbConnectorList=1", "failed"},
    {"layout", "oem_layout = \"OP15\"", "getPaneOemLayout=0A000005", "panel-oem-layout=OP15"},
    {"layout_none", "", "getPaneOemLayout=0A000005", "none"},
    {"layout_unknown_station", "", "getPaneOemLayout=0A0000FF", "failed"},
    {"softkeys", "softkey_type = 0x1A", "getSoftkeyType=0A000005", "softkey-type=0000001A"},
    {"softkeys_none", "", "getSoftkeyType=0A000005", "none"},
    {"keyboard", "keyboard_caps = 0xFFFFFFFE", "getKeyBoardCaps=0A000005", "keyboard-caps=FFFFFFFE"},
    {"keyboard_none", "", "getKeyBoardCaps=0A000005", "none"},
    {"hardware", "hardware_caps = 5", "getHardwareCaps=0A000005", "hardware-caps=00000005"},
    {"hardware_none", "", "getHardwareCaps=0A000005", "none"},
    {"rotation", "panel_rotation = 4", "getPanelRotation=0A000005", "panel-rotation=4"},
    {"rotation_none", "", "getPanelRotation=0A000005", "none"},
    {"rotation_unknown_station", "", "getPanelRotation=0A0000FF", "failed"},
    {"marovanti", "", "isMarovantiPanel 0A000005", "is-Marovanti-Panel=1"},
    {"not_marovanti", "marovanti = 0", "isMarovantiPanel 0A000005", "is-Marovanti-Panel=0"},
    {"marovanti_unknown_station", "", "isMarovantiPanel 0A0000FF", "not found"},
    {"marovanti_malformed", "", "isMarovantiPanel 10.0.0.5", "failed"},
    {"clients_none", "", "getClientList 0 0", "00000000 "},
    {"clients", "[[client]]\nname = \"HMI 1\"\nvalue = 0x1F", "getClientList 0 FFFFFFFFFFFFFFFF",
     "00000001 0000001F 00000005 HMI 1 "},
    {"clients_first_not_0", "", "getClientList 1 0", "failed"},
    {"clients_without_flags", "", "getClientList 0", "failed"},
    {"clients_bad_flags", "", "getClientList 0 xyz", "failed"}};

INSTANTIATE_TEST_SUITE_P(UsbAndMetrics, StationCommand, testing::ValuesIn(kUsbAndMetricsReplies), kvosim_test::kNameOfRow);

}  // namespace
