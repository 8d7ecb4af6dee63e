// The subcommands about one station, family by family: what is asked, and what each answer comes to.
#include "tools/kvoctl/support/request_rows.h"

namespace kvoctl_test {

namespace {

using Rows = CommandRows;

const std::string kStation = "10.0.0.5";

std::vector<Case> viewerRows()
{
    const std::string busy = "busy; try again";
    const std::string notRunning = "the station's viewer does not run";
    std::vector<Case> all;
    append(all, Rows("viewer start", {kStation, "nc1", "0", "x y"}, R"(startViewer="nc1:0:x y" 0A000005)")
                    .isDone()
                    .fails("busy", 0, busy)
                    .rows());
    append(all, Rows("viewer start-configured", {kStation, "cfg", "3"}, R"(startConfiguredViewer="cfg:3" 0A000005)")
                    .isDone()
                    .fails("busy", 0, busy)
                    .rows());
    append(all, Rows("viewer stop", {kStation}, "stopViewer=0A000005").isDone().fails("not running", 0, notRunning).rows());
    append(all, Rows("viewer stop", {kStation, "--preempt"}, "stopViewerPreempt=0A000005")
                    .isDone()
                    .fails("not running", 0, notRunning)
                    .rows());
    append(all, Rows("viewer stop", {"--no-clean", kStation}, "stopViewerNoClean=0A000005")
                    .isDone()
                    .fails("not running", 0, notRunning)
                    .rows());
    append(all, Rows("viewer active", {kStation}, "isViewerActive=0A000005")
                    .shows("active", "yes\n", R"({"active": true})")
                    .shows("not active", "no\n", R"({"active": false})", 1)
                    .rows());
    append(all,
           Rows("viewer server", {kStation}, "getCurServer=0A000005")
               .shows("vncserver=10.0.0.7:3", "server   10.0.0.7\ndisplay  3\n", R"({"server": "10.0.0.7", "display": "3"})")
               .shows("vncserver=:", "server\ndisplay\n", R"({"server": "", "display": ""})")
               .fails("none", 0, "no server is shown")
               .fails("vncserver10.0.0.7:3", -1, "the service refused or answered something unknown")
               .rows());
    append(all,
           Rows("viewer status-line", {kStation, "1", "4294967295", "Tool, 7"}, "setStatusline=0A000005,1,4294967295,Tool, 7")
               .isDone()
               .rows());
    append(all, Rows("viewer activate-me", {kStation}, "activateMe=0A000005").isDone().fails("busy", 0, busy).rows());
    append(all, Rows("viewer reboot", {"0a000005"}, "reboot=0A000005").isDone().rows());
    return all;
}

std::vector<Case> panelRows()
{
    const std::string unknownMode = "the station does not know this mode";
    const std::string noTerminal = "the station has no handheld terminal of this type";
    std::vector<Case> all;
    append(all, Rows("panel type", {kStation}, "getStationType=0A000005")
                    .shows("stationtype -1", "-1\n", R"({"type": -1})")
                    .shows("stationtype 1", "1\n", R"({"type": 1})")
                    .rows());
    append(all, Rows("panel brightness", {kStation, "100"}, "setBacklightBrightness=100 0A000005").isDone().rows());
    append(all, Rows("panel brightness-v2", {kStation, "1"}, "getBacklightBrightnessV2=1 0A000005")
                    .shows("backlight-brightness-v2=55", "55\n", R"({"brightness_v2": 55})")
                    .fails("bad request", 0, unknownMode)
                    .rows());
    append(all, Rows("panel brightness-v2", {kStation, "0", "40"}, "setBacklightBrightnessV2=40 0 0A000005")
                    .isDone()
                    .fails("bad request", -5, unknownMode)
                    .fails("not active", -6, "the station's backlight is not active")
                    .rows());
    append(all, Rows("panel numlock", {kStation}, "getDisableNumLock=0A000005")
                    .shows("disable numlock 0", "enabled\n", R"({"numlock": "enabled"})")
                    .shows("disable numlock 1", "disabled\n", R"({"numlock": "disabled"})")
                    .rows());
    append(all, Rows("panel numlock", {kStation, "disabled"}, "setDisableNumLock=1 0A000005").isDone().rows());
    append(all, Rows("panel capslock", {kStation}, "getDisableCapsLock=0A000005")
                    .shows("diable capslock 1", "disabled\n", R"({"capslock": "disabled"})")  // the daemon sends it spelt so
                    .rows());
    append(all, Rows("panel capslock", {kStation, "enabled"}, "setDisableCapsLock=0 0A000005").isDone().rows());
    append(all, Rows("panel sw-capslock", {kStation}, "getSwCapsLock=0A000005")
                    .shows("swcapslock -1", "-1\n", R"({"sw_capslock": -1})")
                    .rows());
    append(all, Rows("panel sw-capslock", {kStation, "-1"}, "setSwCapsLock=-1 0A000005").isDone().rows());
    append(all, Rows("panel rv4-mode", {kStation}, "getRV4Mode=0A000005")
                    .shows("rv4mode=1", "individual\n", R"({"rv4_mode": "individual"})")
                    .shows("rv4mode=7", "7\n", R"({"rv4_mode": 7})")
                    .fails("not_a_rv4", 0, noTerminal)
                    .rows());
    append(all, Rows("panel rv4-mode", {kStation, "auto"}, R"(setRV4Mode="0" 0A000005)")
                    .isDone()
                    .fails("not_a_rv4", 0, noTerminal)
                    .rows());
    append(all, Rows("panel marovanti", {kStation}, "isMarovantiPanel 0A000005")
                    .shows("is-Marovanti-Panel=1", "yes\n", R"({"marovanti": true})")
                    .shows("is-Marovanti-Panel=0", "no\n", R"({"marovanti": false})", 1)
                    .fails("is-Marovanti-Panel=", -1, "the service refused or answered something unknown")
                    .fails("is-Marovanti-Panel=10", -3, "the service answered an unknown mode")
                    .fails("not found", -4, "the panel was not found, or the service failed")
                    .fails("failed", -4, "the panel was not found, or the service failed")
                    .fails("hm", -5, "the service answered something unknown")
                    .noRefusal()
                    .rows());
    return all;
}

std::vector<Case> addressRows()
{
    std::vector<Case> all;
    append(all,
           Rows("address mcp", {kStation}, "getMCPAddress=0A000005").shows("mcpaddr=255", "255\n", R"({"mcp": 255})").rows());
    append(all, Rows("address mcp", {kStation, "1000"}, R"(setMCPAddress="1000" 0A000005)").isDone().rows());
    append(all, Rows("address mcp", {kStation, "010"}, R"(setMCPAddress="10" 0A000005)").isDone().rows());
    append(
        all,
        Rows("address kvo-index", {kStation}, "getKVOIndex=0A000005").shows("kvoindex=7", "7\n", R"({"kvo_index": 7})").rows());
    append(all, Rows("address kvo-index", {kStation, "7"}, R"(setKVOIndex="7" 0A000005)").isDone().rows());
    append(all, Rows("address dck", {kStation}, "getDCKAddress=0A000005").shows("dckaddr=0", "0\n", R"({"dck": 0})").rows());
    append(all, Rows("address dck-enable", {kStation}, "getDCKEnable=0A000005")
                    .shows("dckenable=1", "on\n", R"({"dck_enable": "on"})")
                    .shows("dckenable=0", "off\n", R"({"dck_enable": "off"})")
                    .fails("dckenable=2", -1, "the service refused or answered something unknown")
                    .rows());
    append(all, Rows("address dck-enable", {kStation, "off"}, R"(setDCKEnable="0" 0A000005)").isDone().rows());
    append(all, Rows("address cks-index", {kStation}, "getKVOCksIndex=0A000005")
                    .shows("cksindex=4000", "4000\n", R"({"cks_index": 4000})")
                    .rows());
    append(all, Rows("address cks-index", {kStation, "255"}, R"(setKVOCksIndex="255" 0A000005)")
                    .isDone()
                    .fails("bad request", -1, "the service refused or answered something unknown")
                    .rows());
    append(all, Rows("address simulate-key", {kStation, "12", "1"}, R"(simulateMCPKey="12:1" 0A000005)").isDone().rows());
    append(all, Rows("address enable-key", {kStation, "12", "1"}, R"(enableMCPKey="12:1" 0A000005)").isDone().rows());
    append(all, Rows("address find", {"--mcp", "5"}, "getIPbyMCPAddress=00000005")
                    .shows("ipaddr=0A000005", "10.0.0.5\n", R"({"address": "10.0.0.5"})")
                    .fails("no_mcp_address", 0, "no station has the MCP address 5")
                    .fails("more_than_one_mcp", -3, "several stations have the MCP address 5")
                    .rows());
    append(all, Rows("address find", {"--dck", "255"}, "getIPbyDCKAddress=000000FF")
                    .shows("ipaddr=0A000005", "10.0.0.5\n", R"({"address": "10.0.0.5"})")
                    .fails("no_dck_address", 0, "no station has the DCK address 255")
                    .fails("more_than_one_dck", -3, "several stations have the DCK address 255")
                    .rows());
    append(all, Rows("address find", {"--kvo-index", "0"}, "getIPbyKVOIndex=00000000")
                    .shows("ipaddr=C0A80007", "192.168.0.7\n", R"({"address": "192.168.0.7"})")
                    .fails("no_kvo_index", 0, "no station has the KVO index 0")
                    .fails("more_than_one_kvo_index", -3, "several stations have the KVO index 0")
                    .rows());
    return all;
}

std::vector<Case> focusRows()
{
    const std::string longInfo(5000, 'i');
    std::vector<Case> all;
    append(all, Rows("focus priority", {kStation}, "getKVOPriority=0A000005")
                    .shows("Priority=1:3", "suspend_lock      1\nsuspend_priority  3\n",
                           R"({"suspend_lock": 1, "suspend_priority": 3})")
                    .shows("Priority=", "suspend_lock      0\nsuspend_priority  1\n",
                           R"({"suspend_lock": 0, "suspend_priority": 1})")
                    .fails("Priority=2:3", -1, "the service refused or answered something unknown")
                    .rows());
    append(all, Rows("focus channel", {kStation}, "getKVOChannelOnFocus=0A000005")
                    .shows("channel-on-focus=8", "8\n", R"({"channel": 8})")
                    .rows());
    append(all, Rows("focus screen", {kStation}, "getKVOScreenOnFocus=0A000005")
                    .shows("screen-on-focus=main", "main\n", R"({"screen": "main"})")
                    .shows("screen-on-focus=", "\n", R"({"screen": ""})")
                    .shows("screen-on-focus=\x1B[2J", "\\x1B[2J\n", R"({"screen": "\u001b[2J"})")
                    .shows("screen-on-focus=" + longInfo, longInfo + "\n", R"({"screen": ")" + longInfo + R"("})")
                    .rows());
    append(all, Rows("focus m2n", {kStation}, "getKVOt2m2n=0A000005")
                    .shows("1:2,3", "1:2,3\n", R"({"m2n": "1:2,3"})")
                    .shows("hm", "hm\n", R"({"m2n": "hm"})")  // any answer is the text
                    .fails("failed", -1, "the service refused or answered something unknown")
                    .noRefusal()
                    .rows());
    append(all, Rows("channel-info get", {kStation}, "getChannelInfo=0A000005")
                    .shows("channel-info=Spindle 1", "Spindle 1\n", R"({"info": "Spindle 1"})")
                    .fails("channel-info=", 0, "the station has no channel information")
                    .rows());
    append(all, Rows("channel-info set", {kStation, "Spindle 1"}, R"(setChannelInfo="Spindle 1" 0A000005)").isDone().rows());
    append(all, Rows("channel-info delete", {kStation}, "deleteChannelInfo=0A000005").isDone().rows());
    return all;
}

std::vector<Case> inputRows()
{
    const std::string noTouch = "the station has no touch screen";
    const std::string refused = "the service refused or answered something unknown";
    std::vector<Case> all;
    append(all, Rows("input devices", {kStation}, "showInputDevice=0A000005")
                    .shows("kbd=1 mouse=2 touch=1 multitouch=1 maxcontacts=10 vkbd=0",
                           "keyboards          1\nmice               2\ntouch              1\nmultitouch         1\n"
                           "max_contacts       10\nvirtual_keyboards  0\n",
                           R"({"keyboards": 1, "mice": 2, "touch": 1, "multitouch": 1, "max_contacts": 10,
                               "virtual_keyboards": 0})")
                    // What the service does not tell is unknown, not none.
                    .shows("mouse=2",
                           "keyboards          -\nmice               2\ntouch              -\nmultitouch         -\n"
                           "max_contacts       -\nvirtual_keyboards  -\n",
                           R"({"keyboards": null, "mice": 2, "touch": null, "multitouch": null, "max_contacts": null,
                               "virtual_keyboards": null})")
                    .fails("kbd=x", -1, refused)
                    .noRefusal()
                    .rows());
    append(all, Rows("input devices", {kStation, "--v1"}, "showInputDevice=0A000005")
                    .shows("mouse=2 touch=1 multitouch=1", "keyboards  -\nmice       2\ntouch      2\n",
                           R"({"keyboards": null, "mice": 2, "touch": 2})")
                    .fails("kbd=x", -1, refused)
                    .noRefusal()
                    .rows());
    append(all, Rows("input devices", {kStation, "--v2"}, "showInputDevice=0A000005")
                    .shows("kbd=1 mouse=0 vkbd=1",
                           "keyboards          1\nmice               0\ntouch              0\n"
                           "virtual_keyboards  1\n",
                           R"({"keyboards": 1, "mice": 0, "touch": 0, "virtual_keyboards": 1})")
                    .fails("kbd=x", -1, refused)
                    .noRefusal()
                    .rows());
    append(all, Rows("input dpi", {kStation}, "showDPI=0A000005").shows("dpi=96", "96\n", R"({"dpi": 96})").rows());
    append(all, Rows("touch calibration", {kStation}, "getCalibParam=0A000005")
                    .shows("press_thresh=40 nonlinear=-1", "press_threshold  40\nnonlinear        -1\n",
                           R"({"press_threshold": 40, "nonlinear": -1})")
                    // The library takes any answer without the two for zeros.
                    .shows("failed", "press_threshold  0\nnonlinear        0\n", R"({"press_threshold": 0, "nonlinear": 0})")
                    .fails("no_touchscreen", 0, noTouch)
                    .fails("press_thresh=x", -1, refused)
                    .noRefusal()
                    .rows());
    append(all, Rows("touch calibration", {kStation, "-1", "-1"}, R"(setCalibParam="-1:-1" 0A000005)")
                    .isDone()
                    .fails("no_touchscreen", 0, noTouch)
                    .rows());
    append(
        all,
        Rows("touch invalidate", {kStation}, "invalidateTouch=0A000005").isDone().fails("no_touchscreen", 0, noTouch).rows());
    return all;
}

std::vector<Case> usbRows()
{
    std::vector<Case> all;
    append(all, Rows("usb lock get", {kStation}, "getUsbLock=0A000005")
                    .shows("usb-lock=1:0", "lock_first   1\nlock_second  0\n", R"({"lock_first": 1, "lock_second": 0})")
                    .fails("usb-lock=1", -1, "the service refused or answered something unknown")
                    .rows());
    for (const auto &[arguments, request, key] :
         {std::tuple<Arguments, std::string, std::string>{{}, "getUsbConnectorList", "usb-connector-list="},
          std::tuple<Arguments, std::string, std::string>{
              {kStation}, "getUsbConnectorListOne=0A000005", "usb-connector-list-one="}}) {
        append(all, Rows("usb connectors", arguments, request)
                        .shows(key + "X1 X2", "X1 X2\n", R"({"connectors": "X1 X2"})")
                        .fails(key, 0, "the list of connectors is empty")
                        .fails("failed", -4, "the service refused")
                        .fails("hm", -5, "the service answered something unknown")
                        .fails("busy", -9, "the service is busy; try again")
                        .noRefusal()
                        .rows());
    }
    return all;
}

std::vector<Case> metricRows()
{
    const std::string doesNotTell = "the station does not tell";
    const std::string malformed = "the service answered a malformed value";
    std::vector<Case> all;
    append(all, Rows("metrics", {kStation, "oem-layout"}, "getPaneOemLayout=0A000005")  // the daemon reads it spelt so
                    .shows("panel-oem-layout=QWERTZ7", "QWERTZ7\n", R"({"oem_layout": "QWERTZ7"})")
                    .fails("none", -4, doesNotTell)
                    .fails("panel-oem-layout=too long", -5, malformed)
                    .rows());
    append(all, Rows("metrics", {kStation, "softkey-type"}, "getSoftkeyType=0A000005")
                    .shows("softkey-type=1A", "26\n", R"({"softkey_type": 26})")
                    .fails("softkey-type=1B", -5, malformed)
                    .rows());
    append(all, Rows("metrics", {kStation, "keyboard-caps"}, "getKeyBoardCaps=0A000005")
                    .shows("keyboard-caps=1f", "0x0000001F\n", R"({"keyboard_caps": 31})")
                    .rows());
    append(all, Rows("metrics", {kStation, "dpi"}, "showDPI=0A000005").shows("dpi=96", "96\n", R"({"dpi": 96})").rows());
    append(all, Rows("metrics", {kStation, "hardware-caps"}, "getHardwareCaps=0A000005")
                    .shows("hardware-caps=80000001", "0x80000001\n", R"({"hardware_caps": 2147483649})")
                    .rows());
    append(all, Rows("metrics", {kStation, "rotation"}, "getPanelRotation=0A000005")
                    .shows("panel-rotation=4", "4\n", R"({"rotation": 4})")
                    .fails("panel-rotation=5", -5, malformed)
                    .rows());
    return all;
}

std::vector<Case> serviceRows()
{
    std::vector<Case> all;
    const std::string tableHead = "VALUE  NAME\n";
    append(all, Rows("clients", {}, "getClientList 0 0")
                    .shows("00000002 00000007 00000003 hmi 0000000A 00000008 panel mm ",
                           tableHead + "    7  hmi\n   10  panel mm\n2 clients\n",
                           R"({"clients": [{"value": 7, "name": "hmi"}, {"value": 10, "name": "panel mm"}]})")
                    .shows("00000001 00000007 00000003 hmi ", tableHead + "    7  hmi\n1 client\n",
                           R"({"clients": [{"value": 7, "name": "hmi"}]})")
                    .shows("00000000 ", tableHead + "0 clients\n", R"({"clients": []})")
                    .fails("FFFFFFF0 ", -3, "the service tells of 4294967280 clients; kvoctl takes at most 1000000")
                    .rows());
    append(all, Rows("clients", {"--flags", "1f"}, "getClientList 0 1F")
                    .shows("00000000 ", tableHead + "0 clients\n", R"({"clients": []})")
                    .rows());
    return all;
}

}  // namespace

std::vector<Case> familyRows()
{
    std::vector<Case> all;
    for (const auto &rows :
         {viewerRows(), panelRows(), addressRows(), focusRows(), inputRows(), usbRows(), metricRows(), serviceRows()}) {
        append(all, rows);
    }
    return all;
}

}  // namespace kvoctl_test
