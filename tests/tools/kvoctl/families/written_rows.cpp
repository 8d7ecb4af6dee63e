// Test cases for arguments in other forms than the catalogue's, and for kvoctl's own messages.
#include "tools/kvoctl/support/request_rows.h"

namespace kvoctl_test {

namespace {

/// A subcommand without output in a certain form, and its request.
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

/// A search, and how its messages name the number.
struct Search {
    const char *request;
    const char *what;
};

const Search kSearches[] = {{"KVO_HWS_getIPbyMCPAddress", "MCP address 5"},
                            {"KVO_HWS_getIPbyDCKAddress", "DCK address 5"},
                            {"KVO_HWS_getIPbyKVOIndex", "KVO index 5"}};

std::vector<Case> rowsOf(const Search &search)
{
    const std::string refused = "the service refused or sent an unknown reply";
    CommandRows rows(search.request);
    for (const catalogue::Exchange &exchange : catalogue::requestOf(search.request).allExchanges()) {
        if (exchange.usual && exchange.result == 0) {
            rows.fails(exchange.replies.front(), 0, std::string("no station has the ") + search.what);
        } else if (exchange.usual && exchange.result == -3) {
            rows.fails(exchange.replies.front(), -3, std::string("several stations have the ") + search.what);
        }
    }
    return rows.fails("failed", -1, refused).fails("hm", -1, refused).missesTheService().rows();
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
        .fails("FFFFFFF0 ", -3, "the service reports 4294967280 clients; kvoctl accepts at most 1000000")
        .fails("failed", -1, "the service refused or sent an unknown reply")
        .missesTheService()
        .rows();
}

}  // namespace

std::vector<Case> writtenRows()
{
    std::vector<Case> all;
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
