// Station metrics, the client list and the panel check, row by row.
#include <kvo_hws/requests.h>

#include "support/request_rows.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using support::kStation;
using support::RequestCase;
using support::Rows;

class Metrics : public testing::TestWithParam<RequestCase> {};

TEST_P(Metrics, behave_as_their_row) { support::check(GetParam()); }

/// The result area and guard bytes behind it.
struct Area {
    unsigned char bytes[16];
    Area() { std::memset(bytes, '#', sizeof bytes); }
};

Rows::Call metricBytes(uint32_t metric, const std::string &expected)
{
    return [=] {
        Area area;
        const int32_t result = KVO_HWS_getStationMetrics(kStation, metric, area.bytes);
        const std::string seen(reinterpret_cast<const char *>(area.bytes), sizeof area.bytes);
        EXPECT_EQ(seen, expected + std::string(sizeof area.bytes - expected.size(), '#'));
        return result;
    };
}

Rows::Call metricNumber(uint32_t metric, uint32_t expected)
{
    return metricBytes(metric, std::string(reinterpret_cast<const char *>(&expected), sizeof expected));
}

/// A row of the metrics' table: the replies that a number is read from, and those that are a fault.
std::vector<RequestCase> metricRows(uint32_t metric, const std::string &command, const std::string &key,
                                    const std::vector<std::pair<std::string, uint32_t>> &good,
                                    const std::vector<std::string> &bad)
{
    Rows rows("KVO_HWS_getStationMetrics", command + "=0A000005", metricBytes(metric, ""));
    for (const auto &[text, value] : good) {
        rows.value(key + text, 1, metricNumber(metric, value));
    }
    for (const std::string &text : bad) {
        rows.on(key + text, -5);
    }
    return rows.on("none", -4, "information not available")
        .failedIs(-1, "unknown error sending request")
        .unknown("not found")
        .nullPointer([metric] { return KVO_HWS_getStationMetrics(kStation, metric, nullptr); })
        .rows();
}

std::vector<RequestCase> softkeyTypeRows()
{
    std::vector<std::pair<std::string, uint32_t>> good = {{"0", 0}, {"1E", 0x1E}, {"fffffffe", 0xFFFFFFFE}};
    std::vector<std::string> bad = {"1", "FFFFFFFF", "2 ", "", "x", "100000002"};
    // strtoul takes the sign; what comes of it is beyond 32 bits where long is.
    if (sizeof(long) == 8) {
        bad.emplace_back("-2");
    } else {
        good.emplace_back("-2", 0xFFFFFFFE);
    }
    return metricRows(2, "getSoftkeyType", "softkey-type=", good, bad);
}

INSTANTIATE_TEST_SUITE_P(SoftkeyType, Metrics, testing::ValuesIn(softkeyTypeRows()), support::nameOf);
INSTANTIATE_TEST_SUITE_P(
    KeyboardCaps, Metrics,
    testing::ValuesIn(metricRows(3, "getKeyBoardCaps", "keyboard-caps=", {{"0", 0}, {"1F", 0x1F}, {"FFFFFFFE", 0xFFFFFFFE}},
                                 {"FFFFFFFF", "1F ", "", "G", "-1", "1FFFFFFFF", "100000000", "FFFFFFFFFFFFFFFFFFFF"})),
    support::nameOf);
INSTANTIATE_TEST_SUITE_P(Dpi, Metrics,
                         testing::ValuesIn(metricRows(4, "showDPI", "dpi=", {{"96", 96}, {"0", 0}, {"4294967294", 4294967294U}},
                                                      {"4294967295", "96 ", "", "x", "-1", "99999999999999999999"})),
                         support::nameOf);
INSTANTIATE_TEST_SUITE_P(HardwareCaps, Metrics,
                         testing::ValuesIn(metricRows(5, "getHardwareCaps", "hardware-caps=", {{"A0", 0xA0}},
                                                      {"FFFFFFFF", "A0x", ""})),
                         support::nameOf);
INSTANTIATE_TEST_SUITE_P(Rotation, Metrics,
                         testing::ValuesIn(metricRows(6, "getPanelRotation", "panel-rotation=", {{"1", 1}, {"4", 4}},
                                                      {"0", "5", "1 ", "", "-1", "4294967297"})),
                         support::nameOf);

INSTANTIATE_TEST_SUITE_P(Layout, Metrics,
                         testing::ValuesIn(Rows("KVO_HWS_getStationMetrics", "getPaneOemLayout=0A000005", metricBytes(1, ""))
                                               .value("panel-oem-layout=A", 1, metricBytes(1, std::string("A\0", 2)))
                                               .value("panel-oem-layout=LAYOUT7", 1,
                                                      metricBytes(1, std::string("LAYOUT7\0", 8)))
                                               .on("panel-oem-layout=LAYOUT88", -5)
                                               .on("panel-oem-layout=", -5)
                                               .on("none", -4, "information not available")
                                               .failedIs(-1, "unknown error sending request")
                                               .refused(
                                                   [] {
                                                       Area area;
                                                       return KVO_HWS_getStationMetrics(kStation, 0, area.bytes);
                                                   },
                                                   -9, "invalid station metric ID received")
                                               .refused(
                                                   [] {
                                                       Area area;
                                                       return KVO_HWS_getStationMetrics(kStation, 7, area.bytes);
                                                   },
                                                   -9, "invalid station metric ID received")
                                               .nullPointer([] { return KVO_HWS_getStationMetrics(kStation, 0, nullptr); })
                                               .rows()),
                         support::nameOf);

// ---- Clients ----

const std::string kClients = "00000002 00000007 00000003 hmi 000000FF 00000007 panel 2 ";

/// What the array holds afterwards.
enum class Seen { cleared, filled };

Rows::Call clients(uint32_t capacity, uint32_t count, Seen seen, unsigned long flags = 0xBEEF)
{
    return [=] {
        std::vector<KvoClientEntry> array(capacity + 1);
        std::memset(array.data(), 0x5A, array.size() * sizeof(KvoClientEntry));
        uint32_t told = capacity;
        const int32_t result = KVO_HWS_getClientList(array.data(), &told, flags);
        EXPECT_EQ(told, count);
        EXPECT_EQ(array[capacity].value, 0x5A5A5A5AU) << "behind the capacity";
        if (seen == Seen::filled) {
            EXPECT_EQ(array[0].value, 7U);
            EXPECT_STREQ(array[0].name, "hmi");
            EXPECT_EQ(array[1].value, 255U);
            EXPECT_STREQ(array[1].name, "panel 2");
        }
        const KvoClientEntry none{};
        for (uint32_t i = seen == Seen::filled ? 2 : 0; i < capacity; ++i) {
            EXPECT_EQ(std::memcmp(&array[i], &none, sizeof none), 0) << "element " << i << " is not cleared";
        }
        return result;
    };
}

const std::string kC = "get client list - ";

/// The flags are as wide as the platform's long.
std::string flagsCommand() { return sizeof(long) == 8 ? "getClientList 0 123456789ABCDEF0" : "getClientList 0 9ABCDEF0"; }

INSTANTIATE_TEST_SUITE_P(
    Clients, Metrics,
    testing::Values(
        RequestCase{"two", clients(2, 2, Seen::filled), {"getClientList 0 BEEF"}, {kClients}, 1},
        RequestCase{"more_room", clients(9, 2, Seen::filled, 0), {"getClientList 0 0"}, {kClients}, 1},
        RequestCase{"long_flags",
                    clients(2, 2, Seen::filled, static_cast<unsigned long>(0x123456789ABCDEF0U)),
                    {flagsCommand()},
                    {kClients},
                    1},
        RequestCase{"none", clients(2, 0, Seen::cleared), {"getClientList 0 BEEF"}, {"00000000 "}, 1},
        RequestCase{"too_small",
                    clients(1, 2, Seen::cleared),
                    {"getClientList 0 BEEF"},
                    {kClients},
                    -3,
                    {kC + "not enough memory (2)"}},
        RequestCase{"no_array_asks_for_the_number",
                    [] {
                        uint32_t count = 0;
                        const int32_t result = KVO_HWS_getClientList(nullptr, &count, 1);
                        EXPECT_EQ(count, 2U);
                        return result;
                    },
                    {"getClientList 0 1"},
                    {kClients},
                    -3,
                    {kC + "not enough memory (2)"}},
        RequestCase{
            "failed", clients(2, 2, Seen::cleared), {"getClientList 0 BEEF"}, {"failed"}, -1, {kC + "error sending request"}},
        RequestCase{"no_count",
                    clients(2, 2, Seen::cleared),
                    {"getClientList 0 BEEF"},
                    {"what"},
                    -1,
                    {kC + "can not get count from reply"}},
        RequestCase{"malformed",
                    clients(2, 2, Seen::cleared),
                    {"getClientList 0 BEEF"},
                    {"00000001 x"},
                    -1,
                    {kC + "can not get KVO list from reply"}},
        RequestCase{"null_count",
                    [] {
                        KvoClientEntry one[1];
                        return KVO_HWS_getClientList(one, nullptr, 0);
                    },
                    {},
                    {"asked"},
                    -7,
                    {kC + "null pointer received"}},
        RequestCase{"null_array_with_a_capacity",
                    [] {
                        uint32_t count = 1;
                        return KVO_HWS_getClientList(nullptr, &count, 0);
                    },
                    {},
                    {"asked"},
                    -7,
                    {kC + "null pointer received"}},
        RequestCase{
            "no_service", clients(2, 2, Seen::cleared), {}, {}, -2, {support::kNoConnection, kC + "can not send request"}}),
    support::nameOf);

// ---- The kind of panel ----

INSTANTIATE_TEST_SUITE_P(MarovantiPanel, Metrics,
                         testing::ValuesIn(Rows("is MAROVANTI panel", "isMarovantiPanel 0A000005",
                                                [] { return KVO_HWS_isMarovantiPanel(kStation); })
                                               .on("is-Marovanti-Panel=1", 1)
                                               .on("is-Marovanti-Panel=0", 0)
                                               .on("is-Marovanti-Panel=", -1, "invalid mode [0|1]")
                                               .on("is-Marovanti-Panel=10", -3, "invalid mode [0|1]")
                                               .on("is-Marovanti-Panel=2", -3, "invalid mode [0|1]")
                                               .on("is-Marovanti-Panel=1 ", -3, "invalid mode [0|1]")
                                               .on("not found", -4, "panel not found")
                                               .failedIs(-4, "failed")
                                               .unknownIs(-5, "unknown error sending request")
                                               .unknown("not found ")
                                               .rows()),
                         support::nameOf);

}  // namespace
