// The numbers that identify stations: machine control panel address, direct control keys address, KVO index and cks index.
#include <kvo_hws/requests.h>

#include "requests/values.h"
#include "service/request.h"

#include <climits>

namespace {

using kvo_hws::decimal;
using kvo_hws::hexadecimal;
using kvo_hws::Request;

constexpr unsigned long kHighestAddress = 255;

/// For all setters except that of the cks index: the value is sent unchecked, the daemon validates it.
int32_t setNumber(const char *label, const char *command, uint32_t value, uint32_t station) noexcept
{
    return Request(label).send("%s=\"%u\" %08X", command, value, station).on("ok", KVO_HWS_OK).result();
}

int32_t sendKey(const char *label, const char *command, uint32_t value1, uint32_t value2, uint32_t station) noexcept
{
    return Request(label).send("%s=\"%u:%u\" %08X", command, value1, value2, station).on("ok", KVO_HWS_OK).result();
}

int32_t getNumber(const char *label, const char *command, uint32_t station, const char *key, unsigned long highest,
                  uint32_t *out) noexcept
{
    return Request(label).needs(out).send("%s=%08X", command, station).value(key, decimal(out, 0, highest)).result();
}

/// A reply without an address, and the reason that is logged for it.
struct NoAddress {
    const char *reply;
    const char *reason;
};

int32_t lookUp(const char *label, const char *command, uint32_t key, const NoAddress &none, const NoAddress &several,
               uint32_t *ip) noexcept
{
    return Request(label)
        .needs(ip)
        .send("%s=%08X", command, key)
        .value("ipaddr=", hexadecimal(ip))
        .on(none.reply, KVO_HWS_NO, none.reason)
        .on(several.reply, KVO_HWS_AMBIGUOUS, several.reason)
        .result();
}

}  // namespace

int32_t KVO_HWS_setMCPAddress(uint32_t station, uint32_t mcpAddress) noexcept
{
    return setNumber("set MCP address", "setMCPAddress", mcpAddress, station);
}

int32_t KVO_HWS_setKVOIndex(uint32_t station, uint32_t index) noexcept
{
    return setNumber("set KVO index", "setKVOIndex", index, station);
}

int32_t KVO_HWS_setDCKEnable(uint32_t station, uint32_t enable) noexcept
{
    return setNumber("set DCK mode", "setDCKEnable", enable, station);
}

int32_t KVO_HWS_setKVOCksIndex(uint32_t station, uint32_t index) noexcept
{
    // The message is that of the handheld terminal, although 0 to 255 are valid here: log readers rely on it.
    return Request("set cks index")
        .refuse(index > kHighestAddress, KVO_HWS_OUT_OF_RANGE, {"invalid parameter (0 \"auto\" or 1 \"individual\")"})
        .send("setKVOCksIndex=\"%u\" %08X", index, station)
        .on("ok", KVO_HWS_OK)
        .on("bad request", KVO_HWS_FAILED, "error sending request")  // the same message as for "failed"
        .result();
}

int32_t KVO_HWS_simulateMCPKey(uint32_t station, uint32_t value1, uint32_t value2) noexcept
{
    return sendKey("simulate MCP key", "simulateMCPKey", value1, value2, station);
}

int32_t KVO_HWS_enableMCPKey(uint32_t station, uint32_t value1, uint32_t value2) noexcept
{
    return sendKey("enable MCP key", "enableMCPKey", value1, value2, station);
}

int32_t KVO_HWS_getMCPAddress(uint32_t station, uint32_t *mcpAddress) noexcept
{
    return getNumber("get MCP address", "getMCPAddress", station, "mcpaddr=", kHighestAddress, mcpAddress);
}

int32_t KVO_HWS_getKVOIndex(uint32_t station, uint32_t *index) noexcept
{
    return getNumber("get KVO index", "getKVOIndex", station, "kvoindex=", kHighestAddress, index);
}

int32_t KVO_HWS_getDCKEnable(uint32_t station, uint32_t *enable) noexcept
{
    return getNumber("get DCK mode", "getDCKEnable", station, "dckenable=", 1, enable);
}

int32_t KVO_HWS_getDCKAddress(uint32_t station, uint32_t *dckAddress) noexcept
{
    return getNumber("get DCK address", "getDCKAddress", station, "dckaddr=", kHighestAddress, dckAddress);
}

int32_t KVO_HWS_getKVOCksIndex(uint32_t station, uint32_t *index) noexcept
{
    return getNumber("get KVO cks index", "getKVOCksIndex", station, "cksindex=", ULONG_MAX, index);
}

int32_t KVO_HWS_getIPbyMCPAddress(uint32_t mcpAddress, uint32_t *ip) noexcept
{
    return lookUp("get IP by MCP address", "getIPbyMCPAddress", mcpAddress, {"no_mcp_address", "no MCP address found"},
                  {"more_than_one_mcp", "more than one MCP addresses found"}, ip);
}

int32_t KVO_HWS_getIPbyDCKAddress(uint32_t dckAddress, uint32_t *ip) noexcept
{
    return lookUp("get IP by DCK address", "getIPbyDCKAddress", dckAddress, {"no_dck_address", "no DCK address found"},
                  {"more_than_one_dck", "more than one DCK addresses found"}, ip);
}

int32_t KVO_HWS_getIPbyKVOIndex(uint32_t index, uint32_t *ip) noexcept
{
    return lookUp("get IP by KVO index", "getIPbyKVOIndex", index, {"no_kvo_index", "no KVO index found"},
                  {"more_than_one_kvo_index", "more than one KVO index found"}, ip);
}
