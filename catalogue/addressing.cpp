// The addresses of a station's panel, and the look-up of stations by address.
#include "catalogue/catalogue.h"

#include <kvo_hws/requests.h>

namespace catalogue {

namespace {

/// A setter that sends its value unchecked; the service validates it.
Request &sets(Request &request, const std::string &keyword, uint32_t value)
{
    return request.asks(keyword + "=\"" + std::to_string(value) + "\" 0A000005", {station, value})
        .on("ok", 1)
        .sends(keyword + "=\"1000\" 0A000005", {station, 1000})
        .sends(keyword + "=\"4294967295\" 0A000005", {station, 0xFFFFFFFF})
        .soak({1, -1, -2});
}

std::vector<Request> setters()
{
    Request mcp = CATALOGUE_REQUEST(KVO_HWS_setMCPAddress, "set MCP address");
    sets(mcp, "setMCPAddress", 7)
        .kvoctl("address mcp", {kHere, "7"})
        .wire("`setMCPAddress=\"`*number*`\" `*station*", "`ok`, `failed`", "sets the address of the MCP, 0 to 255")
        .cpp("Station::set_mcp_address")
        .python("Panel.set_mcp_address");
    Request index = CATALOGUE_REQUEST(KVO_HWS_setKVOIndex, "set KVO index");
    sets(index, "setKVOIndex", 7)
        .kvoctl("address kvo-index", {kHere, "7"})
        .wire("`setKVOIndex=\"`*number*`\" `*station*", "`ok`, `failed`", "sets the KVO index, 0 to 255")
        .cpp("Station::set_index")
        .python("Panel.set_kvo_index");
    Request dck = CATALOGUE_REQUEST(KVO_HWS_setDCKEnable, "set DCK mode");
    sets(dck, "setDCKEnable", 1)
        .kvoctl("address dck-enable", {kHere, "on"})
        .wire("`setDCKEnable=\"0\" `*station*, `setDCKEnable=\"1\" `*station*", "`ok`, `failed`",
              "switches the direct control keys off (0) or on (1)")
        .cpp("Station::set_dck_enable")
        .python("Panel.set_dck_enable");
    return {
        mcp,
        index,
        dck,

        // The message of the range check is that of another function; "bad request" means the same as "failed".
        CATALOGUE_REQUEST(KVO_HWS_setKVOCksIndex, "set cks index")
            .asks("setKVOCksIndex=\"255\" 0A000005", {station, 255})
            .on("ok", 1)
            .on("bad request", -1, "error sending request")
            .sends("setKVOCksIndex=\"0\" 0A000005", {station, 0})
            .refuses({station, 256}, -3, "invalid parameter (0 \"auto\" or 1 \"individual\")")
            .soak({1, -1, -2, -3})
            .kvoctl("address cks-index", {kHere, "255"})
            .wire("`setKVOCksIndex=\"`*number*`\" `*station*", "`ok`, `bad request`, `failed`",
                  "sets the cks index; `bad request` if the number is above 255 or cannot be set")
            .cpp("Station::set_cks_index")
            .python("Panel.set_cks_index"),

        CATALOGUE_REQUEST(KVO_HWS_simulateMCPKey, "simulate MCP key")
            .asks("simulateMCPKey=\"12:1\" 0A000005", {station, 12, 1})
            .on("ok", 1)
            .sends("simulateMCPKey=\"4294967295:4294967294\" 0A000005", {station, 0xFFFFFFFF, 0xFFFFFFFE})
            .soak({1, -1, -2})
            .kvoctl("address simulate-key", {kHere, "12", "1"})
            .wire("`simulateMCPKey=\"`*number*`:`*number*`\" `*station*", "`ok`, `failed`", "simulates a key of the MCP")
            .cpp("Station::simulate_mcp_key")
            .python("Panel.simulate_mcp_key"),

        CATALOGUE_REQUEST(KVO_HWS_enableMCPKey, "enable MCP key")
            .asks("enableMCPKey=\"12:1\" 0A000005", {station, 12, 1})
            .on("ok", 1)
            .sends("enableMCPKey=\"4294967295:4294967294\" 0A000005", {station, 0xFFFFFFFF, 0xFFFFFFFE})
            .soak({1, -1, -2})
            .kvoctl("address enable-key", {kHere, "12", "1"})
            .wire("`enableMCPKey=\"`*number*`:`*number*`\" `*station*", "`ok`, `failed`", "enables a key of the MCP")
            .cpp("Station::enable_mcp_key")
            .python("Panel.enable_mcp_key"),
    };
}

/// A number up to a bound, with nothing after it.
Request &gets(Request &request, const std::string &keyword, const std::string &key, uint32_t highest)
{
    request.asks(keyword + "=0A000005", {station, out})
        .reads({.key = key, .highest = highest == 0xFFFFFFFF ? ~0UL : highest})
        .on(key + std::to_string(highest), 1, {highest})
        .on(key + "0", 1, {0})
        .on(key, 1, {0})
        .on(key + "1 ", -1)
        .on(key + "x", -1)
        .on(key + "0x1", -1)
        .unknown(" " + key + "1")
        .nullPointer({station, nullptr})
        .soak({1, -1, -2});
    if (highest != 0xFFFFFFFF) {
        return request.on(key + std::to_string(highest + 1), -1).on(key + "-1", -1).on(key + "4294967296", -1);
    }
    // Without a bound, the low 32 bits of a long are stored. A 32-bit long is at its largest value then.
    return request.on(key + "4294967298", 1, {sizeof(long) == 8 ? 2 : 0xFFFFFFFF});
}

std::vector<Request> getters()
{
    Request mcp = CATALOGUE_REQUEST(KVO_HWS_getMCPAddress, "get MCP address");
    gets(mcp, "getMCPAddress", "mcpaddr=", 255)
        .kvoctl("address mcp", {kHere})
        .shows("mcpaddr=255", "255\n", R"({"mcp": 255})")
        .wire("`getMCPAddress=`*station*", "`mcpaddr=`*number*, `failed`", "returns the address of the MCP")
        .cpp("Station::mcp_address")
        .python("Panel.get_mcp_address");
    Request index = CATALOGUE_REQUEST(KVO_HWS_getKVOIndex, "get KVO index");
    gets(index, "getKVOIndex", "kvoindex=", 255)
        .kvoctl("address kvo-index", {kHere})
        .shows("kvoindex=7", "7\n", R"({"kvo_index": 7})")
        .wire("`getKVOIndex=`*station*", "`kvoindex=`*number*, `failed`", "returns the KVO index")
        .cpp("Station::index")
        .python("Panel.get_kvo_index");
    Request enable = CATALOGUE_REQUEST(KVO_HWS_getDCKEnable, "get DCK mode");
    gets(enable, "getDCKEnable", "dckenable=", 1)
        .kvoctl("address dck-enable", {kHere})
        .shows("dckenable=1", "on\n", R"({"dck_enable": "on"})")
        .shows("dckenable=0", "off\n", R"({"dck_enable": "off"})")
        .wire("`getDCKEnable=`*station*", "`dckenable=0`, `dckenable=1`, `failed`",
              "returns 1 if the direct control keys are on")
        .cpp("Station::dck_enable")
        .python("Panel.get_dck_enable");
    Request dck = CATALOGUE_REQUEST(KVO_HWS_getDCKAddress, "get DCK address");
    gets(dck, "getDCKAddress", "dckaddr=", 255)
        .kvoctl("address dck", {kHere})
        .shows("dckaddr=0", "0\n", R"({"dck": 0})")
        .wire("`getDCKAddress=`*station*", "`dckaddr=`*number*, `failed`", "returns the address of the direct control keys")
        .cpp("Station::dck_address")
        .python("Panel.get_dck_address");
    Request cks = CATALOGUE_REQUEST(KVO_HWS_getKVOCksIndex, "get KVO cks index");
    gets(cks, "getKVOCksIndex", "cksindex=", 0xFFFFFFFF)
        .kvoctl("address cks-index", {kHere})
        .shows("cksindex=4000", "4000\n", R"({"cks_index": 4000})")
        .wire("`getKVOCksIndex=`*station*", "`cksindex=`*number*, `failed`", "returns the cks index")
        .cpp("Station::cks_index")
        .python("Panel.get_cks_index");
    return {mcp, index, enable, dck, cks};
}

/// The replies and messages of a look-up if no station or several stations have the address.
struct LookupFailures {
    const char *none;
    const char *noneReason;
    const char *several;
    const char *severalReason;
};

/// A look-up of a station by an address.
Request &finds(Request &request, const std::string &keyword, const LookupFailures &failures)
{
    return request.asks(keyword + "=00000005", {5, out})
        .reads({.key = "ipaddr=", .base = 16})
        .on("ipaddr=0A000005", 1, {0x0A000005})
        .on("ipaddr=fffffffe", 1, {0xFFFFFFFE})
        .on("ipaddr=", 1, {0})
        .on("ipaddr=0x0A000005", 1, {0x0A000005})
        .on("ipaddr=10A000005", 1, {sizeof(long) == 8 ? 0x0A000005 : 0xFFFFFFFF})
        .on("ipaddr=0A000005 ", -1)
        .on("ipaddr=10.0.0.5", -1)
        .on(failures.none, 0, failures.noneReason)
        .on(failures.several, -3, failures.severalReason)
        .unknown(std::string(failures.none) + " ")
        .nullPointer({5, nullptr})
        .soak({1, 0, -1, -2, -3});
}

std::vector<Request> lookUps()
{
    Request mcp = CATALOGUE_REQUEST(KVO_HWS_getIPbyMCPAddress, "get IP by MCP address");
    finds(mcp, "getIPbyMCPAddress",
          {"no_mcp_address", "no MCP address found", "more_than_one_mcp", "more than one MCP addresses found"})
        .kvoctl("address find", {"--mcp", "5"})
        .shows("ipaddr=0A000005", "10.0.0.5\n", R"({"address": "10.0.0.5"})")
        .wire("`getIPbyMCPAddress=`*key*", "`ipaddr=`*station*, `no_mcp_address`, `more_than_one_mcp`, `failed`",
              "finds the station that serves the MCP with this address")
        .cpp("Service::ip_by_mcp_address")
        .python("Service.find_by_mcp_address");
    Request dck = CATALOGUE_REQUEST(KVO_HWS_getIPbyDCKAddress, "get IP by DCK address");
    finds(dck, "getIPbyDCKAddress",
          {"no_dck_address", "no DCK address found", "more_than_one_dck", "more than one DCK addresses found"})
        .kvoctl("address find", {"--dck", "5"})
        .shows("ipaddr=0A000005", "10.0.0.5\n", R"({"address": "10.0.0.5"})")
        .wire("`getIPbyDCKAddress=`*key*", "`ipaddr=`*station*, `no_dck_address`, `more_than_one_dck`, `failed`",
              "finds the station with this DCK address")
        .cpp("Service::ip_by_dck_address")
        .python("Service.find_by_dck_address");
    Request index = CATALOGUE_REQUEST(KVO_HWS_getIPbyKVOIndex, "get IP by KVO index");
    finds(index, "getIPbyKVOIndex",
          {"no_kvo_index", "no KVO index found", "more_than_one_kvo_index", "more than one KVO index found"})
        .kvoctl("address find", {"--kvo-index", "5"})
        .shows("ipaddr=C0A80007", "192.168.0.7\n", R"({"address": "192.168.0.7"})")
        .wire("`getIPbyKVOIndex=`*key*", "`ipaddr=`*station*, `no_kvo_index`, `more_than_one_kvo_index`, `failed`",
              "finds the station with this KVO index")
        .cpp("Service::ip_by_index")
        .python("Service.find_by_kvo_index");
    return {mcp, dck, index};
}

}  // namespace

Family addressing() { return {"addressing", joined({setters(), getters(), lookUps()})}; }

}  // namespace catalogue
