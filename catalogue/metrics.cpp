// Station metrics, the client list and the kind of panel.
#include "catalogue/catalogue.h"

#include <kvo_hws/requests.h>

namespace catalogue {

namespace {

constexpr std::size_t kMetric = 8;  // bytes

/// A metric that is a number, with valid and invalid replies.
Request number(uint32_t metric, const std::string &name, const std::string &command, const std::string &key,
               const std::vector<std::pair<std::string, uint32_t>> &good, const std::vector<std::string> &bad,
               const Shown &shown)
{
    Request request = CATALOGUE_REQUEST(KVO_HWS_getStationMetrics, "KVO_HWS_getStationMetrics");
    request.variant(name).asks(command + "=0A000005", {station, metric, buffer(kMetric)});
    for (const auto &[text, value] : good) {
        request.on(key + text, 1, {value});
    }
    for (const std::string &text : bad) {
        request.on(key + text, -5);
    }
    return request.on("none", -4, "information not available")
        .failedIs(-1, "unknown error sending request")
        .unknown("not found")
        .nullPointer({station, metric, nullptr})
        .soak({1, -1, -2, -4, -5, -9})
        .kvoctl("metrics", {kHere, name})
        .shows(key + shown.reply, shown.text, shown.document)
        .cpp("Station::metric")
        .python("Panel.get_metric");
}

Request softkeyType()
{
    std::vector<std::pair<std::string, uint32_t>> good = {{"0", 0}, {"1E", 0x1E}, {"fffffffe", 0xFFFFFFFE}};
    std::vector<std::string> bad = {"1", "FFFFFFFF", "2 ", "", "x", "100000002"};
    // strtoul accepts the sign. With a 64-bit long, the result does not fit in 32 bits.
    if (sizeof(long) == 8) {
        bad.emplace_back("-2");
    } else {
        good.emplace_back("-2", 0xFFFFFFFE);
    }
    return number(2, "softkey-type", "getSoftkeyType", "softkey-type=", good, bad, {"1A", "26\n", R"({"softkey_type": 26})"})
        .wire("`getSoftkeyType=`*station*", "`softkey-type=`*hex*, `none`, `failed`",
              "returns the soft key type, an even number");
}

// The command lacks the l of "panel": this is the daemon's spelling.
Request layout()
{
    return CATALOGUE_REQUEST(KVO_HWS_getStationMetrics, "KVO_HWS_getStationMetrics")
        .variant("oem-layout")
        .asks("getPaneOemLayout=0A000005", {station, 1, buffer(kMetric)})
        .on("panel-oem-layout=A", 1, {"A"})
        .on("panel-oem-layout=LAYOUT7", 1, {"LAYOUT7"})
        .on("panel-oem-layout=LAYOUT88", -5)
        .on("panel-oem-layout=", -5)
        .on("none", -4, "information not available")
        .failedIs(-1, "unknown error sending request")
        .refuses({station, 0, buffer(kMetric)}, -9, "invalid station metric ID received")
        .refuses({station, 7, buffer(kMetric)}, -9, "invalid station metric ID received")
        .nullPointer({station, 0, nullptr})
        .soak({1, -1, -2, -4, -5, -9})
        .wire("`getPaneOemLayout=`*station*", "`panel-oem-layout=`*text*, `none`, `failed`",
              "returns the panel layout, 1 to 7 bytes; the keyword really lacks the l of panel")
        .kvoctl("metrics", {kHere, "oem-layout"})
        .shows("panel-oem-layout=QWERTZ7", "QWERTZ7\n", R"({"oem_layout": "QWERTZ7"})")
        .cpp("Station::panel_layout")
        .python("Panel.get_metric");
}

std::vector<Request> stationMetrics()
{
    return {
        layout(),
        softkeyType(),
        number(3, "keyboard-caps", "getKeyBoardCaps", "keyboard-caps=", {{"0", 0}, {"1F", 0x1F}, {"FFFFFFFE", 0xFFFFFFFE}},
               {"FFFFFFFF", "1F ", "", "G", "-1", "1FFFFFFFF", "100000000", "FFFFFFFFFFFFFFFFFFFF"},
               {"1f", "0x0000001F\n", R"({"keyboard_caps": 31})"})
            .wire("`getKeyBoardCaps=`*station*", "`keyboard-caps=`*hex*, `none`, `failed`",
                  "returns the keyboard capabilities"),
        number(4, "dpi", "showDPI", "dpi=", {{"96", 96}, {"0", 0}, {"4294967294", 4294967294U}},
               {"4294967295", "96 ", "", "x", "-1", "99999999999999999999"}, {"96", "96\n", R"({"dpi": 96})"}),
        number(5, "hardware-caps", "getHardwareCaps", "hardware-caps=", {{"A0", 0xA0}}, {"FFFFFFFF", "A0x", ""},
               {"80000001", "0x80000001\n", R"({"hardware_caps": 2147483649})"})
            .wire("`getHardwareCaps=`*station*", "`hardware-caps=`*hex*, `none`, `failed`",
                  "returns the hardware capabilities"),
        number(6, "rotation", "getPanelRotation", "panel-rotation=", {{"1", 1}, {"4", 4}},
               {"0", "5", "1 ", "", "-1", "4294967297"}, {"4", "4\n", R"({"rotation": 4})"})
            .wire("`getPanelRotation=`*station*", "`panel-rotation=`*number*, `none`, `failed`",
                  "returns the panel rotation, 1 to 4"),
    };
}

/// An array of @p capacity elements with @p clients; the rest is zero.
Stored clients(std::vector<KvoClientEntry> clients, std::size_t capacity)
{
    clients.resize(capacity, KvoClientEntry{});
    return records(clients);
}

KvoClientEntry client(uint32_t value, const char *name)
{
    KvoClientEntry entry{};
    entry.value = value;
    std::strcpy(entry.name, name);
    return entry;
}

/// The flags have the width of the platform's long.
const char *flagsCommand() { return sizeof(long) == 8 ? "getClientList 0 123456789ABCDEF0" : "getClientList 0 9ABCDEF0"; }

// The array is cleared first. Without an array the result is always "too small": this way callers read the number.
Request clientList()
{
    const std::string two = "00000002 00000007 00000003 hmi 000000FF 00000007 panel 2 ";
    const std::vector<KvoClientEntry> both = {client(7, "hmi"), client(255, "panel 2")};
    const auto arguments = [](uint32_t capacity, unsigned long flags) {
        return Arguments{buffer(capacity), inOut(capacity), flags};
    };
    return CATALOGUE_REQUEST(KVO_HWS_getClientList, "get client list")
        .asks("getClientList 0 BEEF", arguments(2, 0xBEEF))
        .takesAnyReply()
        .on(two, 1, {clients(both, 2), 2})
        .on(two, 1, {clients(both, 9), 2})
        .given({"getClientList 0 0"}, arguments(9, 0))
        .on(two, 1, {clients(both, 2), 2})
        .given({flagsCommand()}, arguments(2, static_cast<unsigned long>(0x123456789ABCDEF0U)))
        .on("00000000 ", 1, {clients({}, 2), 0})
        .on(two, -3, {clients({}, 1), 2}, "not enough memory (2)")
        .given(arguments(1, 0xBEEF))
        .on(two, -3, {2}, "not enough memory (2)")
        .given({"getClientList 0 1"}, {nullptr, inOut(0), 1})
        .on("failed", -1, {clients({}, 2), 2}, "error sending request")
        .on("what", -1, {clients({}, 2), 2}, "can not get count from reply")
        .on("", -1, {clients({}, 2), 2}, "can not get count from reply")
        .on("00000001 x", -1, {clients({}, 2), 2}, "can not get KVO list from reply")
        .nullPointer({buffer(1), nullptr, 0})
        .nullPointer({nullptr, inOut(1), 0})
        .withoutServiceStores({clients({}, 2), 2})
        .soak({1, -1, -2, -3})
        .kvoctl("clients", {"--flags", "BEEF"})
        .wire("`getClientList 0 `*flags*", "a client list, `failed`",
              "returns the connected programs; the 0 is fixed, the flags are hexadecimal")
        .cpp("Service::client_list")
        .python("Service.get_clients");
}

Request marovantiPanel()
{
    return CATALOGUE_REQUEST(KVO_HWS_isMarovantiPanel, "is MAROVANTI panel")
        .asks("isMarovantiPanel 0A000005", {station})
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
        .soak({1, 0, -1, -2, -3, -4, -5})
        .kvoctl("panel marovanti", {kHere})
        .shows("is-Marovanti-Panel=1", "yes\n", R"({"marovanti": true})")
        .shows("is-Marovanti-Panel=0", "no\n", R"({"marovanti": false})", 1)
        .wire("`isMarovantiPanel `*station*", "`is-Marovanti-Panel=0`, `is-Marovanti-Panel=1`, `not found`, `failed`",
              "reports whether the panel is a Marovanti panel; `not found` if the station does not exist")
        .cpp("Station::is_marovanti_panel")
        .python("Panel.is_marovanti");
}

}  // namespace

Family metrics() { return {"metrics", joined({stationMetrics(), {clientList(), marovantiPanel()}})}; }

}  // namespace catalogue
