// The table of requests, and the replies that need more than a keyword and a value.
#include "kvoctl/capture/station_requests.h"

#include "common/plant_values.h"
#include "common/recording/escape.h"
#include "common/toml_text.h"
#include "common/utf8.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <stdexcept>

namespace kvoctl {

namespace {

constexpr int64_t kHighest32 = 0xFFFFFFFF;
constexpr int64_t kHighestSigned = std::numeric_limits<int32_t>::max();
constexpr int64_t kMaxDevices = 99;
constexpr std::size_t kLongestShown = 60;

constexpr std::string_view kRefusal = "failed";
/// For numbers that a station need not have.
const std::string kNone = '"' + std::string(tools::kNoValue) + '"';

constexpr std::pair<std::string_view, NumberRange> kNumbers[] = {
    {"backlight_modes", {0, 2}},
    {"backlight_brightness", {0, 100}},
    {"backlight_brightness_mode1", {0, 100}},
    {"disable_num_lock", {0, 1}},
    {"disable_caps_lock", {0, 1}},
    {"sw_caps_lock", {-1, 1}},
    {"station_type", {-1, 1}},
    {"handheld", {0, 1}},
    {"rv4_mode", {0, 1}},
    {"marovanti", {0, 1}},
    {"softkey_type", {0, kHighest32 - 1, 2, true}},
    {"keyboard_caps", {0, kHighest32 - 1, 1, true}},
    {"hardware_caps", {0, kHighest32 - 1, 1, true}},
    {"dpi", {0, kHighestSigned, 1, true}},
    {"panel_rotation", {1, 4, 1, true}},
    {"mcp_address", {0, 255}},
    {"dck_address", {0, 255}},
    {"kvo_index", {0, 255}},
    {"dck_enable", {0, 1}},
    {"cks_index", {0, kHighest32}},
    {"startup_active", {0, 2}},
    {"startup_prio", {0, kHighest32}},
    {"channel_on_focus", {1, 8}},
    {"kbd", {0, kMaxDevices, 1, true}},
    {"mouse", {0, kMaxDevices, 1, true}},
    {"touch", {0, kMaxDevices, 1, true}},
    {"multitouch", {0, kMaxDevices, 1, true}},
    {"maxcontacts", {0, kMaxDevices, 1, true}},
    {"vkbd", {0, kMaxDevices, 1, true}},
    {"press_thresh", {-1, kHighestSigned}},
    {"nonlinear", {-1, 1}},
    {"usb_scanning", {0, 1}},
};

const NumberRange &rangeOf(std::string_view key)
{
    const auto *const found = std::ranges::find(kNumbers, key, &std::pair<std::string_view, NumberRange>::first);
    if (found == std::end(kNumbers)) {
        throw std::out_of_range("not a number of a station: " + std::string(key));
    }
    return found->second;
}

// ---- Forms of values ----

/// Reads the text after the keyword of a reply. Returns nothing if it does not have the form.
using Form = std::optional<Setting> (*)(std::string_view key, std::string_view text);

std::optional<int64_t> parse(std::string_view text, int base)
{
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    const bool isWhole = !text.empty() && error == std::errc() && end == text.data() + text.size();
    return isWhole ? std::optional(number) : std::nullopt;
}

/// @p value  the number in TOML
Setting numberSetting(std::string_view key, int64_t number, std::string value)
{
    const NumberRange &range = rangeOf(key);
    if (number < range.lowest || number > range.highest || number % range.step != 0) {
        return {key,
                {},
                "not written: " + std::to_string(number) + " is not " + (range.step == 2 ? "an even" : "a") + " number from " +
                    std::to_string(range.lowest) + " to " + std::to_string(range.highest)};
    }
    return {key, std::move(value)};
}

std::optional<Setting> decimal(std::string_view key, std::string_view text)
{
    const std::optional<int64_t> number = parse(text, 10);
    return number ? std::optional(numberSetting(key, *number, std::to_string(*number))) : std::nullopt;
}

std::optional<Setting> hexadecimal(std::string_view key, std::string_view text)
{
    constexpr std::size_t kDigits = 8;
    const std::optional<int64_t> number = parse(text, 16);
    if (!number || *number < 0 || text.size() > kDigits) {
        return std::nullopt;
    }
    std::array<char, sizeof "0x00000000"> value{};
    std::snprintf(value.data(), value.size(), "0x%08X", static_cast<unsigned>(*number));
    return numberSetting(key, *number, value.data());
}

template <bool (*isValid)(std::string_view)>
std::optional<Setting> text(std::string_view key, std::string_view text)
{
    return textSetting(key, text, isValid);
}

// ---- Requests with one value ----

/// A reply without a value, and the value that it stands for.
struct Special {
    std::string_view reply;
    std::string value;
};
const Special kNoSpecial{"", ""};
const Special kNoNumber{tools::kNoValue, kNone};
const Special kNoText{tools::kNoValue, "\"\""};

Setting settingOf(std::string_view key, const Answer &answer, std::string_view keyword, Form form,
                  const Special &special = kNoSpecial)
{
    if (!answer.reply || *answer.reply == kRefusal) {
        return notRead(key, answer);
    }
    if (!special.reply.empty() && *answer.reply == special.reply) {
        return {key, special.value};
    }
    const std::string_view reply = *answer.reply;
    const std::optional<Setting> setting =
        reply.starts_with(keyword) ? form(key, reply.substr(keyword.size())) : std::optional<Setting>();
    return setting ? *setting : notRead(key, answer);
}

StationRequest one(std::string_view key, std::string_view command, std::string_view keyword, Form form,
                   const Special &special = kNoSpecial)
{
    return {{std::string(command)}, [=](std::span<const Answer> answers) {
                return std::vector{settingOf(key, answers.front(), keyword, form, special)};
            }};
}

// ---- Requests with several values ----

/// A setting that the station does not have.
Setting without(std::string_view key, const std::string &what)
{
    return {.key = key, .reason = "not read: the station has no " + what, .isProperty = true};
}

/// A station knows the modes 0 and 1, or only 0, or none.
std::vector<Setting> readBacklight(std::span<const Answer> answers)
{
    constexpr std::string_view kKeyword = "backlight-brightness-v2=";
    constexpr std::string_view kNoMode = "bad request";
    constexpr std::array<std::string_view, 2> kKeys{"backlight_brightness", "backlight_brightness_mode1"};
    Setting modes{"backlight_modes", "0"};
    std::vector<Setting> levels;
    for (std::size_t mode = 0; mode < kKeys.size(); ++mode) {
        const Answer &answer = answers[mode];
        if (answer.reply == kNoMode) {
            levels.push_back(without(kKeys.at(mode), "such mode (bad request)"));
            continue;
        }
        levels.push_back(settingOf(kKeys.at(mode), answer, kKeyword, decimal));
        modes = answer.reply && answer.reply->starts_with(kKeyword) ? Setting{modes.key, std::to_string(mode + 1)}
                                                                    : notRead(modes.key, answer);
    }
    return {modes, levels[0], levels[1]};
}

std::vector<Setting> readHandheld(std::span<const Answer> answers)
{
    const Answer &answer = answers.front();
    if (answer.reply == "not_a_rv4") {
        return {{"handheld", "0"}, without("rv4_mode", "handheld terminal (not_a_rv4)")};
    }
    Setting mode = settingOf("rv4_mode", answer, "rv4mode=", decimal);
    return {mode.reason.empty() ? Setting{"handheld", "1"} : notRead("handheld", answer), mode};
}

/// The items of a reply: words with a space between them.
std::vector<std::string_view> itemsOf(const Answer &answer)
{
    std::string_view reply = answer.reply ? *answer.reply : std::string_view();
    std::vector<std::string_view> items;
    while (!reply.empty()) {
        const std::size_t length = std::min(reply.find(' '), reply.size());
        items.push_back(reply.substr(0, length));
        reply.remove_prefix(std::min(length + 1, reply.size()));
    }
    return items;
}

/// Any item may be missing. Items with other keys are ignored, as every client does.
std::vector<Setting> readInputDevices(std::span<const Answer> answers)
{
    const Answer &answer = answers.front();
    const std::vector<std::string_view> items = itemsOf(answer);
    std::vector<Setting> settings;
    for (const std::string_view key : {"kbd", "mouse", "touch", "multitouch", "maxcontacts", "vkbd"}) {
        const std::string keyword = std::string(key) + '=';
        const auto item = std::ranges::find_if(items, [&](std::string_view each) { return each.starts_with(keyword); });
        const bool hasForm = std::ranges::all_of(items, [](std::string_view each) { return each.find('=') != each.npos; });
        if (!answer.reply || !hasForm) {
            settings.push_back(notRead(key, answer));
        } else if (item == items.end()) {
            settings.push_back({key, kNone});
        } else {
            settings.push_back(settingOf(key, {std::string(*item)}, keyword, decimal));
        }
    }
    return settings;
}

std::vector<Setting> readCalibration(std::span<const Answer> answers)
{
    const Answer &answer = answers.front();
    constexpr std::array<std::string_view, 2> kKeys{"press_thresh", "nonlinear"};
    if (answer.reply == "no_touchscreen") {
        return {without(kKeys[0], "touch screen (no_touchscreen)"), without(kKeys[1], "touch screen (no_touchscreen)")};
    }
    const std::vector<std::string_view> items = itemsOf(answer);
    std::vector<Setting> settings;
    for (std::size_t i = 0; i < kKeys.size(); ++i) {
        const std::string keyword = std::string(kKeys.at(i)) + '=';
        const bool hasItem = items.size() == kKeys.size() && items[i].starts_with(keyword);
        const auto setting = hasItem ? decimal(kKeys.at(i), items[i].substr(keyword.size())) : std::nullopt;
        settings.push_back(setting ? *setting : notRead(kKeys.at(i), answer));
    }
    return settings;
}

std::vector<Setting> readConnectors(std::span<const Answer> answers)
{
    const Answer &answer = answers.front();
    if (answer.reply == "busy") {
        return {{.key = "usb_connectors",
                 .reason = "not read: the service was searching for connectors (busy)",
                 .isProperty = true},
                {"usb_scanning", "1"}};
    }
    const Setting connectors = settingOf("usb_connectors", answer, "usb-connector-list-one=", text<tools::areConnectors>);
    const bool isList = answer.reply && answer.reply->starts_with("usb-connector-list-one=");
    return {connectors, isList ? Setting{"usb_scanning", "0"} : notRead("usb_scanning", answer)};
}

std::vector<StationRequest> makeRequests()
{
    return {
        {{"getBacklightBrightnessV2=0 ", "getBacklightBrightnessV2=1 "}, readBacklight},
        one("disable_num_lock", "getDisableNumLock=", "disable numlock ", decimal),
        one("disable_caps_lock", "getDisableCapsLock=", "diable capslock ", decimal),  // the service's spelling
        one("sw_caps_lock", "getSwCapsLock=", "swcapslock ", decimal),
        one("station_type", "getStationType=", "stationtype ", decimal),
        {{"getRV4Mode="}, readHandheld},
        one("marovanti", "isMarovantiPanel ", "is-Marovanti-Panel=", decimal),
        one("oem_layout", "getPaneOemLayout=", "panel-oem-layout=", text<tools::isLayout>, kNoText),  // the service's spelling
        one("softkey_type", "getSoftkeyType=", "softkey-type=", hexadecimal, kNoNumber),
        one("keyboard_caps", "getKeyBoardCaps=", "keyboard-caps=", hexadecimal, kNoNumber),
        one("hardware_caps", "getHardwareCaps=", "hardware-caps=", hexadecimal, kNoNumber),
        one("dpi", "showDPI=", "dpi=", decimal, kNoNumber),
        one("panel_rotation", "getPanelRotation=", "panel-rotation=", decimal, kNoNumber),
        one("mcp_address", "getMCPAddress=", "mcpaddr=", decimal),
        one("dck_address", "getDCKAddress=", "dckaddr=", decimal),
        one("kvo_index", "getKVOIndex=", "kvoindex=", decimal),
        one("dck_enable", "getDCKEnable=", "dckenable=", decimal),
        one("cks_index", "getKVOCksIndex=", "cksindex=", decimal),
        one("viewer", "getCurServer=", "vncserver=", text<tools::isViewer>, kNoText),
        one("priority", "getKVOPriority=", "Priority=", text<tools::isPriority>),
        one("startup_active", "getKVOStartupActive=", "startup-active=", decimal),
        one("startup_prio", "getKVOStartupPrio=", "startup-prio=", decimal),
        one("channel_on_focus", "getKVOChannelOnFocus=", "channel-on-focus=", decimal),
        one("screen_on_focus", "getKVOScreenOnFocus=", "screen-on-focus=", text<tools::isLine>),
        one("t2m2n", "getKVOt2m2n=", "", text<tools::isReplyText>),
        one("channel_info", "getChannelInfo=", "channel-info=", text<tools::isChannelInfo>),
        {{"showInputDevice="}, readInputDevices},
        {{"getCalibParam="}, readCalibration},
        one("usb_lock", "getUsbLock=", "usb-lock=", text<tools::isPair>),
        {{"getUsbConnectorListOne="}, readConnectors},
    };
}

}  // namespace

std::span<const StationRequest> stationRequests()
{
    static const std::vector<StationRequest> requests = makeRequests();
    return requests;
}

std::span<const std::pair<std::string_view, NumberRange>> stationNumbers() { return kNumbers; }

Setting textSetting(std::string_view key, std::string_view text, bool (*isValid)(std::string_view text))
{
    if (!tools::isUtf8(text)) {
        return {key, {}, "not written: " + shown(text) + " is not valid UTF-8"};
    }
    if (!isValid(text)) {
        return {key,
                {},
                "not written: a plant file cannot contain " + shown(text) + " (" + std::to_string(text.size()) + " bytes)"};
    }
    return {key, tools::tomlQuoted(text)};
}

Setting notRead(std::string_view key, const Answer &answer)
{
    if (!answer.reply) {
        return {key, {}, "not read: " + answer.reason};
    }
    if (*answer.reply == kRefusal) {
        return {key, {}, "not read: the service refused it (failed)"};
    }
    if (*answer.reply == "not found") {
        return {key, {}, "not read: the service does not find the station (not found)"};
    }
    return {key, {}, "not read: unknown reply " + shown(*answer.reply)};
}

std::string shown(std::string_view bytes)
{
    std::string quoted;
    tools::recording::appendQuoted(quoted, bytes.substr(0, kLongestShown));
    return quoted + (bytes.size() > kLongestShown ? "..." : "");
}

}  // namespace kvoctl
