// The addressing requests, row by row.
#include <kvo_hws/requests.h>

#include "support/request_rows.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using support::kStation;
using support::RequestCase;
using support::Rows;
using support::stores;
using support::storesNothing;

class Addressing : public testing::TestWithParam<RequestCase> {};

TEST_P(Addressing, behaves_as_its_row) { support::check(GetParam()); }

// ---- Setters: the value goes out as it is ----

std::vector<RequestCase> setter(const std::string &label, const std::string &keyword, int32_t (*set)(uint32_t, uint32_t))
{
    return Rows(label, keyword + "=\"7\" 0A000005", [set] { return set(kStation, 7); })
        .on("ok", 1)
        .sends(keyword + "=\"1000\" 0A000005", [set] { return set(kStation, 1000); })
        .sends(keyword + "=\"4294967295\" 0A000005", [set] { return set(kStation, 0xFFFFFFFF); })
        .rows();
}

INSTANTIATE_TEST_SUITE_P(SetMCPAddress, Addressing,
                         testing::ValuesIn(setter("set MCP address", "setMCPAddress", KVO_HWS_setMCPAddress)), support::nameOf);
INSTANTIATE_TEST_SUITE_P(SetKVOIndex, Addressing,
                         testing::ValuesIn(setter("set KVO index", "setKVOIndex", KVO_HWS_setKVOIndex)), support::nameOf);
INSTANTIATE_TEST_SUITE_P(SetDCKEnable, Addressing,
                         testing::ValuesIn(setter("set DCK mode", "setDCKEnable", KVO_HWS_setDCKEnable)), support::nameOf);

// The reason of the range check is another function's; "bad request" is told like "failed".
INSTANTIATE_TEST_SUITE_P(SetKVOCksIndex, Addressing,
                         testing::ValuesIn(Rows("set cks index", "setKVOCksIndex=\"255\" 0A000005",
                                                [] { return KVO_HWS_setKVOCksIndex(kStation, 255); })
                                               .on("ok", 1)
                                               .on("bad request", -1, "error sending request")
                                               .sends("setKVOCksIndex=\"0\" 0A000005",
                                                      [] { return KVO_HWS_setKVOCksIndex(kStation, 0); })
                                               .refused([] { return KVO_HWS_setKVOCksIndex(kStation, 256); }, -3,
                                                        "invalid parameter (0 \"auto\" or 1 \"individual\")")
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(SimulateMCPKey, Addressing,
                         testing::ValuesIn(Rows("simulate MCP key", "simulateMCPKey=\"12:1\" 0A000005",
                                                [] { return KVO_HWS_simulateMCPKey(kStation, 12, 1); })
                                               .on("ok", 1)
                                               .sends("simulateMCPKey=\"4294967295:4294967294\" 0A000005",
                                                      [] { return KVO_HWS_simulateMCPKey(kStation, 0xFFFFFFFF, 0xFFFFFFFE); })
                                               .rows()),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(EnableMCPKey, Addressing,
                         testing::ValuesIn(Rows("enable MCP key", "enableMCPKey=\"12:1\" 0A000005",
                                                [] { return KVO_HWS_enableMCPKey(kStation, 12, 1); })
                                               .on("ok", 1)
                                               .sends("enableMCPKey=\"4294967295:4294967294\" 0A000005",
                                                      [] { return KVO_HWS_enableMCPKey(kStation, 0xFFFFFFFF, 0xFFFFFFFE); })
                                               .rows()),
                         support::nameOf);

// ---- Getters: a number up to a bound, and nothing behind it ----

using Getter = int32_t (*)(uint32_t, uint32_t *);

std::vector<RequestCase> getter(const std::string &label, const std::string &keyword, const std::string &key, uint32_t highest,
                                Getter get)
{
    const auto read = [get](uint32_t *out) { return get(kStation, out); };
    Rows rows(label, keyword + "=0A000005", storesNothing<uint32_t>(read));
    rows.value(key + std::to_string(highest), 1, stores<uint32_t>(read, highest))
        .value(key + "0", 1, stores<uint32_t>(read, 0))
        .value(key, 1, stores<uint32_t>(read, 0))
        .on(key + "1 ", -1)
        .on(key + "x", -1)
        .on(key + "0x1", -1)
        .unknown(" " + key + "1")
        .nullPointer([get] { return get(kStation, nullptr); });
    if (highest != 0xFFFFFFFF) {
        rows.on(key + std::to_string(highest + 1), -1).on(key + "-1", -1).on(key + "4294967296", -1);
    } else {
        // Without a bound, the low 32 bits of what the platform's long holds.
        rows.value(key + "4294967298", 1, stores<uint32_t>(read, sizeof(long) == 8 ? 2 : 0xFFFFFFFF));
    }
    return rows.rows();
}

INSTANTIATE_TEST_SUITE_P(GetMCPAddress, Addressing,
                         testing::ValuesIn(getter("get MCP address", "getMCPAddress", "mcpaddr=", 255, KVO_HWS_getMCPAddress)),
                         support::nameOf);
INSTANTIATE_TEST_SUITE_P(GetKVOIndex, Addressing,
                         testing::ValuesIn(getter("get KVO index", "getKVOIndex", "kvoindex=", 255, KVO_HWS_getKVOIndex)),
                         support::nameOf);
INSTANTIATE_TEST_SUITE_P(GetDCKEnable, Addressing,
                         testing::ValuesIn(getter("get DCK mode", "getDCKEnable", "dckenable=", 1, KVO_HWS_getDCKEnable)),
                         support::nameOf);
INSTANTIATE_TEST_SUITE_P(GetDCKAddress, Addressing,
                         testing::ValuesIn(getter("get DCK address", "getDCKAddress", "dckaddr=", 255, KVO_HWS_getDCKAddress)),
                         support::nameOf);
INSTANTIATE_TEST_SUITE_P(GetKVOCksIndex, Addressing,
                         testing::ValuesIn(getter("get KVO cks index", "getKVOCksIndex", "cksindex=", 0xFFFFFFFF,
                                                  KVO_HWS_getKVOCksIndex)),
                         support::nameOf);

// ---- Look-ups ----

std::vector<RequestCase> lookUp(const std::string &label, const std::string &keyword, const std::string &none,
                                const std::string &noneReason, const std::string &several, const std::string &severalReason,
                                Getter find)
{
    const auto read = [find](uint32_t *out) { return find(5, out); };
    return Rows(label, keyword + "=00000005", storesNothing<uint32_t>(read))
        .value("ipaddr=0A000005", 1, stores<uint32_t>(read, 0x0A000005))
        .value("ipaddr=fffffffe", 1, stores<uint32_t>(read, 0xFFFFFFFE))
        .value("ipaddr=", 1, stores<uint32_t>(read, 0))
        .value("ipaddr=0x0A000005", 1, stores<uint32_t>(read, 0x0A000005))
        .value("ipaddr=10A000005", 1, stores<uint32_t>(read, sizeof(long) == 8 ? 0x0A000005 : 0xFFFFFFFF))
        .on("ipaddr=0A000005 ", -1)
        .on("ipaddr=10.0.0.5", -1)
        .on(none, 0, noneReason)
        .on(several, -3, severalReason)
        .unknown(none + " ")
        .nullPointer([find] { return find(5, nullptr); })
        .rows();
}

INSTANTIATE_TEST_SUITE_P(GetIPbyMCPAddress, Addressing,
                         testing::ValuesIn(lookUp("get IP by MCP address", "getIPbyMCPAddress", "no_mcp_address",
                                                  "no MCP address found", "more_than_one_mcp",
                                                  "more than one MCP addresses found", KVO_HWS_getIPbyMCPAddress)),
                         support::nameOf);
INSTANTIATE_TEST_SUITE_P(GetIPbyDCKAddress, Addressing,
                         testing::ValuesIn(lookUp("get IP by DCK address", "getIPbyDCKAddress", "no_dck_address",
                                                  "no DCK address found", "more_than_one_dck",
                                                  "more than one DCK addresses found", KVO_HWS_getIPbyDCKAddress)),
                         support::nameOf);
INSTANTIATE_TEST_SUITE_P(GetIPbyKVOIndex, Addressing,
                         testing::ValuesIn(lookUp("get IP by KVO index", "getIPbyKVOIndex", "no_kvo_index",
                                                  "no KVO index found", "more_than_one_kvo_index",
                                                  "more than one KVO index found", KVO_HWS_getIPbyKVOIndex)),
                         support::nameOf);

}  // namespace
