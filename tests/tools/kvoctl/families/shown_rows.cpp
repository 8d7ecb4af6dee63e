// What subcommands show of the replies, and arguments that are written in other ways than the catalogue's.
#include "tools/kvoctl/support/request_rows.h"

namespace kvoctl_test {

namespace {

/// A reply to a request of the catalogue, and how it is shown.
struct Shown {
    const char *request;
    std::string reply;
    std::string out;
    std::string document;
    int status = 0;
};

const std::string kLongText(5000, 'i');

const std::vector<Shown> &shown()
{
    static const std::vector<Shown> kShown = {
        // The viewer
        {"KVO_HWS_isViewerActive", "active", "yes\n", R"({"active": true})"},
        {"KVO_HWS_isViewerActive", "not active", "no\n", R"({"active": false})", 1},
        {"KVO_HWS_getCurrentServer", "vncserver=10.0.0.7:3", "server   10.0.0.7\ndisplay  3\n",
         R"({"server": "10.0.0.7", "display": "3"})"},
        {"KVO_HWS_getCurrentServer", "vncserver=:", "server\ndisplay\n", R"({"server": "", "display": ""})"},
        // The panel
        {"KVO_HWS_getStationType", "stationtype -1", "-1\n", R"({"type": -1})"},
        {"KVO_HWS_getStationType", "stationtype 1", "1\n", R"({"type": 1})"},
        {"KVO_HWS_getBacklightBrightnessV2", "backlight-brightness-v2=55", "55\n", R"({"brightness_v2": 55})"},
        {"KVO_HWS_getDisableNumLock", "disable numlock 0", "enabled\n", R"({"numlock": "enabled"})"},
        {"KVO_HWS_getDisableNumLock", "disable numlock 1", "disabled\n", R"({"numlock": "disabled"})"},
        {"KVO_HWS_getDisableCapsLock", "diable capslock 1", "disabled\n", R"({"capslock": "disabled"})"},
        {"KVO_HWS_getSwCapsLock", "swcapslock -1", "-1\n", R"({"sw_capslock": -1})"},
        {"KVO_HWS_getRV4Mode", "rv4mode=1", "individual\n", R"({"rv4_mode": "individual"})"},
        {"KVO_HWS_getRV4Mode", "rv4mode=7", "7\n", R"({"rv4_mode": 7})"},
        {"KVO_HWS_isMarovantiPanel", "is-Marovanti-Panel=1", "yes\n", R"({"marovanti": true})"},
        {"KVO_HWS_isMarovantiPanel", "is-Marovanti-Panel=0", "no\n", R"({"marovanti": false})", 1},
        // Addresses
        {"KVO_HWS_getMCPAddress", "mcpaddr=255", "255\n", R"({"mcp": 255})"},
        {"KVO_HWS_getKVOIndex", "kvoindex=7", "7\n", R"({"kvo_index": 7})"},
        {"KVO_HWS_getDCKAddress", "dckaddr=0", "0\n", R"({"dck": 0})"},
        {"KVO_HWS_getDCKEnable", "dckenable=1", "on\n", R"({"dck_enable": "on"})"},
        {"KVO_HWS_getDCKEnable", "dckenable=0", "off\n", R"({"dck_enable": "off"})"},
        {"KVO_HWS_getKVOCksIndex", "cksindex=4000", "4000\n", R"({"cks_index": 4000})"},
        {"KVO_HWS_getIPbyMCPAddress", "ipaddr=0A000005", "10.0.0.5\n", R"({"address": "10.0.0.5"})"},
        {"KVO_HWS_getIPbyDCKAddress", "ipaddr=0A000005", "10.0.0.5\n", R"({"address": "10.0.0.5"})"},
        {"KVO_HWS_getIPbyKVOIndex", "ipaddr=C0A80007", "192.168.0.7\n", R"({"address": "192.168.0.7"})"},
        // Focus and channel information
        {"KVO_HWS_getKVOPriority", "Priority=1:3", "suspend_lock      1\nsuspend_priority  3\n",
         R"({"suspend_lock": 1, "suspend_priority": 3})"},
        {"KVO_HWS_getKVOPriority", "Priority=", "suspend_lock      0\nsuspend_priority  1\n",
         R"({"suspend_lock": 0, "suspend_priority": 1})"},
        {"KVO_HWS_getKVOChannelOnFocus", "channel-on-focus=8", "8\n", R"({"channel": 8})"},
        {"KVO_HWS_getKVOScreenOnFocus", "screen-on-focus=main", "main\n", R"({"screen": "main"})"},
        {"KVO_HWS_getKVOScreenOnFocus", "screen-on-focus=", "\n", R"({"screen": ""})"},
        {"KVO_HWS_getKVOScreenOnFocus", "screen-on-focus=\x1B[2J", "\\x1B[2J\n", R"({"screen": "\u001b[2J"})"},
        {"KVO_HWS_getKVOScreenOnFocus", "screen-on-focus=" + kLongText, kLongText + "\n",
         R"({"screen": ")" + kLongText + R"("})"},
        {"KVO_HWS_getKVOT2M2N", "1:2,3", "1:2,3\n", R"({"m2n": "1:2,3"})"},
        {"KVO_HWS_getKVOT2M2N", "hm", "hm\n", R"({"m2n": "hm"})"},  // any answer is the text
        {"KVO_HWS_getChannelInfo", "channel-info=Spindle 1", "Spindle 1\n", R"({"info": "Spindle 1"})"},
        // Input
        {"KVO_HWS_showInputDeviceV3", "kbd=1 mouse=2 touch=1 multitouch=1 maxcontacts=10 vkbd=0",
         "keyboards          1\nmice               2\ntouch              1\nmultitouch         1\n"
         "max_contacts       10\nvirtual_keyboards  0\n",
         R"({"keyboards": 1, "mice": 2, "touch": 1, "multitouch": 1, "max_contacts": 10, "virtual_keyboards": 0})"},
        // What the service does not tell is unknown, not none.
        {"KVO_HWS_showInputDeviceV3", "mouse=2",
         "keyboards          -\nmice               2\ntouch              -\nmultitouch         -\n"
         "max_contacts       -\nvirtual_keyboards  -\n",
         R"({"keyboards": null, "mice": 2, "touch": null, "multitouch": null, "max_contacts": null,
             "virtual_keyboards": null})"},
        {"KVO_HWS_showInputDevice", "mouse=2 touch=1 multitouch=1", "keyboards  -\nmice       2\ntouch      2\n",
         R"({"keyboards": null, "mice": 2, "touch": 2})"},
        {"KVO_HWS_showInputDeviceV2", "kbd=1 mouse=0 vkbd=1",
         "keyboards          1\nmice               0\ntouch              0\nvirtual_keyboards  1\n",
         R"({"keyboards": 1, "mice": 0, "touch": 0, "virtual_keyboards": 1})"},
        {"KVO_HWS_showDPI", "dpi=96", "96\n", R"({"dpi": 96})"},
        {"KVO_HWS_getTouchScreenCalibParam", "press_thresh=40 nonlinear=-1", "press_threshold  40\nnonlinear        -1\n",
         R"({"press_threshold": 40, "nonlinear": -1})"},
        // The library takes any answer without the two for zeros.
        {"KVO_HWS_getTouchScreenCalibParam", "failed", "press_threshold  0\nnonlinear        0\n",
         R"({"press_threshold": 0, "nonlinear": 0})"},
        // USB
        {"KVO_HWS_getUsbLock", "usb-lock=1:0", "lock_first   1\nlock_second  0\n", R"({"lock_first": 1, "lock_second": 0})"},
        {"KVO_HWS_getUsbConnectorList", "usb-connector-list=X1 X2", "X1 X2\n", R"({"connectors": "X1 X2"})"},
        {"KVO_HWS_getUsbConnectorListOne", "usb-connector-list-one=X1 X2", "X1 X2\n", R"({"connectors": "X1 X2"})"},
        // Metrics
        {"KVO_HWS_getStationMetrics oem-layout", "panel-oem-layout=QWERTZ7", "QWERTZ7\n", R"({"oem_layout": "QWERTZ7"})"},
        {"KVO_HWS_getStationMetrics softkey-type", "softkey-type=1A", "26\n", R"({"softkey_type": 26})"},
        {"KVO_HWS_getStationMetrics keyboard-caps", "keyboard-caps=1f", "0x0000001F\n", R"({"keyboard_caps": 31})"},
        {"KVO_HWS_getStationMetrics dpi", "dpi=96", "96\n", R"({"dpi": 96})"},
        {"KVO_HWS_getStationMetrics hardware-caps", "hardware-caps=80000001", "0x80000001\n",
         R"({"hardware_caps": 2147483649})"},
        {"KVO_HWS_getStationMetrics rotation", "panel-rotation=4", "4\n", R"({"rotation": 4})"},
    };
    return kShown;
}

/// A way of writing a subcommand that has something done, and what is asked.
struct Written {
    const char *words;
    Arguments arguments;
    const char *request;
};

const Written kWritten[] = {
    {"viewer start", {"10.0.0.5", "nc1", "0", "x y"}, R"(startViewer="nc1:0:x y" 0A000005)"},
    {"viewer stop", {"--no-clean", "10.0.0.5"}, "stopViewerNoClean=0A000005"},
    {"viewer status-line", {"10.0.0.5", "1", "4294967295", "Tool, 7"}, "setStatusline=0A000005,1,4294967295,Tool, 7"},
    {"viewer reboot", {"0a000005"}, "reboot=0A000005"},
    {"panel brightness", {"10.0.0.5", "100"}, "setBacklightBrightness=100 0A000005"},
    {"panel capslock", {"10.0.0.5", "enabled"}, "setDisableCapsLock=0 0A000005"},
    {"panel rv4-mode", {"10.0.0.5", "auto"}, R"(setRV4Mode="0" 0A000005)"},
    {"address mcp", {"10.0.0.5", "1000"}, R"(setMCPAddress="1000" 0A000005)"},
    {"address mcp", {"10.0.0.5", "010"}, R"(setMCPAddress="10" 0A000005)"},
    {"address dck-enable", {"10.0.0.5", "off"}, R"(setDCKEnable="0" 0A000005)"},
    {"channel-info set", {"10.0.0.5", "Spindle 1"}, R"(setChannelInfo="Spindle 1" 0A000005)"},
    {"backlight", {"off"}, "setBacklight=0"},
    {"brightness", {"0a00000C", "off"}, "setBrightness=0 0A00000C"},
    {"debug-level", {"none"}, "setDebugLevel=DEBUG_LEVEL_NONE"},
    {"debug-level", {"1"}, "setDebugLevel=DEBUG_LEVEL_I"},
    {"debug-level", {"I"}, "setDebugLevel=DEBUG_LEVEL_I"},
    {"debug-level", {"2"}, "setDebugLevel=DEBUG_LEVEL_II"},
    {"debug-level", {"II"}, "setDebugLevel=DEBUG_LEVEL_II"},
};

/// Searches name what was searched for.
struct Search {
    const char *request;
    const char *what;
};

const Search kSearches[] = {{"KVO_HWS_getIPbyMCPAddress", "MCP address 5"},
                            {"KVO_HWS_getIPbyDCKAddress", "DCK address 5"},
                            {"KVO_HWS_getIPbyKVOIndex", "KVO index 5"}};

std::vector<Case> rowsOf(const Search &search)
{
    const std::string refused = "the service refused or answered something unknown";
    CommandRows rows(search.request);
    for (const catalogue::Exchange &exchange : catalogue::requestOf(search.request).exchanges()) {
        if (exchange.usual && exchange.result == 0) {
            rows.fails(exchange.replies.front(), 0, std::string("no station has the ") + search.what);
        } else if (exchange.usual && exchange.result == -3) {
            rows.fails(exchange.replies.front(), -3, std::string("several stations have the ") + search.what);
        }
    }
    return rows.named("search_").fails("failed", -1, refused).fails("hm", -1, refused).missesTheService().rows();
}

std::vector<Case> clientRows()
{
    const std::string head = "VALUE  NAME\n";
    return CommandRows("clients", {}, "getClientList 0 0")
        .shows("00000002 00000007 00000003 hmi 0000000A 00000008 panel mm ", head + "    7  hmi\n   10  panel mm\n2 clients\n",
               R"({"clients": [{"value": 7, "name": "hmi"}, {"value": 10, "name": "panel mm"}]})")
        .shows("00000001 00000007 00000003 hmi ", head + "    7  hmi\n1 client\n",
               R"({"clients": [{"value": 7, "name": "hmi"}]})")
        .shows("00000000 ", head + "0 clients\n", R"({"clients": []})")
        .fails("FFFFFFF0 ", -3, "the service tells of 4294967280 clients; kvoctl takes at most 1000000")
        .fails("failed", -1, "the service refused or answered something unknown")
        .missesTheService()
        .rows();
}

}  // namespace

std::vector<Case> shownRows()
{
    std::vector<Case> all;
    std::size_t number = 0;
    for (const Shown &row : shown()) {
        append(all, CommandRows(row.request)
                        .named(std::to_string(++number) + "_")
                        .shows(row.reply, row.out, row.document, row.status)
                        .rows());
    }
    for (const Written &row : kWritten) {
        append(all, CommandRows(row.words, row.arguments, row.request).isDone().rows());
    }
    for (const Search &search : kSearches) {
        append(all, rowsOf(search));
    }
    append(all, clientRows());
    append(all, CommandRows("clients", {"--flags", "1f"}, "getClientList 0 1F")
                    .shows("00000000 ", "VALUE  NAME\n0 clients\n", R"({"clients": []})")
                    .rows());
    return all;
}

}  // namespace kvoctl_test
