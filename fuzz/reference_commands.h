// A plain reading of the agent's commands, by strspn, strtoul and strtol: what each replies, asks and keeps, where service and
// host answer what an input says.
#pragma once

#include <kvo_hws/agent.h>
#include <kvo_hws/result.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

inline constexpr std::size_t kLongestCommand = 255;  // that the host is told
inline constexpr std::size_t kLongestT2M2N = 1023;
inline constexpr std::size_t kLayoutSize = 8;

// ---- What an input says ----

struct Given {
    std::string bytes;     ///< behind the first two
    std::string argument;  ///< of these, what a C text has
    int32_t result = 0;    ///< of service and host
    bool hostThrows = false;
    bool hasControlPanel = false;
    bool hasHost = false;
    bool hasTag = false;
    bool isDescribed = false;  ///< the station in focus

    /// Numbers, out of the bytes again and again.
    [[nodiscard]] uint32_t word(std::size_t index) const
    {
        uint32_t value = 0;
        for (std::size_t i = 0; i < sizeof value && !bytes.empty(); ++i) {
            value = value << 8 | static_cast<uint8_t>(bytes[(index * sizeof value + i) % bytes.size()]);
        }
        return value;
    }
    [[nodiscard]] std::string t2m2n() const { return argument.substr(0, kLongestT2M2N); }
};

inline Given givenBy(uint8_t choice, std::string_view bytes)
{
    constexpr int32_t kResults[] = {KVO_HWS_OK, KVO_HWS_OK, KVO_HWS_OK, KVO_HWS_OK, KVO_HWS_OK, 0,   2,         -1,
                                    -2,         -4,         -5,         -7,         -9,         -10, INT32_MIN, -1};
    return {.bytes = std::string(bytes),
            .argument = std::string(bytes.substr(0, bytes.find('\0'))),
            .result = kResults[choice % 16],
            .hostThrows = choice % 16 == 15,
            .hasControlPanel = (choice & 0x10) != 0,
            .hasHost = (choice & 0x20) == 0,
            .hasTag = (choice & 0x40) != 0,
            .isDescribed = (choice & 0x80) == 0};
}

/// What commands keep, and what else is theirs to read alone.
struct State {
    std::optional<std::string> channelInfo;
    std::optional<std::string> serverName;
    uint32_t keyFlags = 0;
    uint32_t kvoIndex = 0;
    std::vector<uint32_t> words;  ///< that no command changes
    std::string hostname;
    std::string screenOnFocus;

    bool operator==(const State &) const = default;
};

// ---- The plain reading ----

inline constexpr const char *kOk = "ok\r\n";
inline constexpr const char *kFailed = "failed\r\n";
inline constexpr const char *kBad = "bad request\r\n";

/// Where numbers of the state stand among those of the input: the first ones are the service's answers.
enum StateWord : std::size_t {
    focusWord = 4,
    lockWord,
    prioWord,
    activeWord,
    startupPrioWord,
    channelWord,
    displayWord,
    remoteWord
};

inline std::string failure(const std::string &reason) { return "failed: " + reason + "\r\n"; }
inline std::string number(uint32_t value) { return std::to_string(value); }
inline std::string signedNumber(uint32_t value) { return std::to_string(static_cast<int32_t>(value)); }

inline std::string hexadecimal(uint32_t value, const char *digits, std::size_t least)
{
    std::string text;
    for (; value != 0 || text.size() < least; value /= 16) {
        text.insert(text.begin(), digits[value % 16]);
    }
    return text;
}

inline std::string rotation(uint32_t value) { return hexadecimal(value, "0123456789ABCDEF", 1); }

/// As inet_aton stores it.
inline std::string dotted(uint32_t address)
{
    std::array<uint8_t, sizeof address> bytes{};
    std::memcpy(bytes.data(), &address, bytes.size());
    std::string text;
    for (const uint8_t byte : bytes) {
        text += (text.empty() ? "" : ".") + std::to_string(byte);
    }
    return text;
}

/// One command: what it asks and keeps, beside its reply.
struct Reading {
    const Given &given;
    State &state;
    std::string &argument;  ///< as it is left behind
    std::vector<std::string> asked{};

    [[nodiscard]] std::string aboutFocus(const char *request) const
    {
        return std::string(request) + ' ' + number(given.word(focusWord));
    }

    std::string ask(const std::string &request, const std::string &reason, const std::string &reply)
    {
        asked.push_back(request);
        return given.result == KVO_HWS_OK ? reply : failure(reason);
    }
};

using Read = std::function<std::string(Reading &)>;

struct Row {
    const char *keyword;
    Read read;
};

inline Read always(const std::string &reply)
{
    return [=](Reading &) { return reply; };
}

inline Read value(const char *request, const char *key, const char *reason, std::string (*shown)(uint32_t) = number)
{
    return [=](Reading &reading) {
        return reading.ask(reading.aboutFocus(request), std::string(reason) + " not readable",
                           key + shown(reading.given.word(0)) + "\r\n");
    };
}

/// As value, where the station has a control panel.
inline Read panelValue(const char *request, const char *key, const char *reason, const char *otherwise)
{
    return [=](Reading &reading) {
        return reading.given.hasControlPanel ? value(request, key, reason)(reading) : std::string(key) + otherwise + "\r\n";
    };
}

inline Read metric(int index, const char *key, const char *reason, std::string (*shown)(uint32_t) = number)
{
    return [=](Reading &reading) -> std::string {
        std::string value = shown(reading.given.word(0));
        if (index == 1) {
            value = std::string(reading.given.bytes.substr(0, kLayoutSize).c_str());
        }
        const std::string reply = reading.ask(reading.aboutFocus("getStationMetrics") + ' ' + std::to_string(index),
                                              std::string(reason) + " not readable", key + value + "\r\n");
        return reading.given.result == KVO_HWS_NOT_AVAILABLE ? "none" : reply;
    };
}

using Argument = std::optional<std::string> (*)(const std::string &text);

inline std::optional<std::string> flag(const std::string &text)
{
    return !text.empty() && std::strchr("01", text[0]) != nullptr ? std::optional(text.substr(0, 1)) : std::nullopt;
}

inline std::optional<std::string> smallNumber(const std::string &text)
{
    const unsigned long value = std::strtoul(text.c_str(), nullptr, 10);
    const bool digitsAlone = std::strspn(text.c_str(), "0123456789") == text.size();
    return digitsAlone && value < 256 ? std::optional(std::to_string(value)) : std::nullopt;
}

inline std::optional<std::string> capsLock(const std::string &text)
{
    const long value = std::strtol(text.c_str(), nullptr, 10);  // as far as it is a number
    const bool hasOthers = std::strspn(text.c_str(), "-0123456789") != text.size();
    if (hasOthers || value < -1 || value > 1) {
        return std::nullopt;
    }
    return std::to_string(value);
}

inline Read setting(const char *request, Argument read, const char *reason)
{
    return [=](Reading &reading) -> std::string {
        const auto value = read(reading.argument);
        return value ? reading.ask(reading.aboutFocus(request) + ' ' + *value, reason, kOk) : kBad;
    };
}

/// As setting, where the station has a control panel.
inline Read panelSetting(const char *request, Argument read, const char *reason)
{
    return [=](Reading &reading) -> std::string {
        if (reading.given.hasControlPanel) {
            return setting(request, read, reason)(reading);
        }
        return read(reading.argument) ? kOk : kBad;
    };
}

inline std::string askHost(Reading &reading, const std::string &command, const std::string &yes, const std::string &no,
                           const std::string &other = kFailed)
{
    if (!reading.given.hasHost) {
        return kBad;
    }
    reading.asked.push_back("host " + command.substr(0, kLongestCommand));
    if (reading.given.hostThrows || reading.given.result < 0 || reading.given.result > 1) {
        return other;
    }
    return reading.given.result == 1 ? yes : no;
}

inline Read hostCommand(const char *command, const char *yes, const char *no)
{
    return [=](Reading &reading) { return askHost(reading, command, yes, no); };
}

inline std::string setDarken(Reading &reading) { return askHost(reading, "set-darken=" + reading.argument, kOk, kFailed); }

inline std::string showServer(Reading &reading)
{
    const std::string server = dotted(reading.given.word(remoteWord)) + ':' + signedNumber(reading.given.word(displayWord));
    return askHost(reading, "show-viewer-active", "vncserver=" + server + "\r\n", "none\r\n", "none\r\n");
}

inline std::string setStatusLine(Reading &reading)
{
    const char *rest = reading.argument.c_str();
    for (int i = 0; i < 2; ++i) {
        char *end = nullptr;
        std::strtol(rest, &end, 10);
        if (end == rest || *end != ',') {
            return kBad;
        }
        rest = end + 1;
    }
    const auto text = static_cast<std::size_t>(rest - reading.argument.c_str());
    reading.argument.erase(std::min(reading.argument.find_first_of("\r\n", text), reading.argument.size()));
    return askHost(reading, "set-statusline=" + reading.argument, kOk, kFailed);
}

/// Larger numbers are cut to 32 bits, as scanf cuts them.
inline std::string setUsbLock(Reading &reading)
{
    char *end = nullptr;
    const char *const text = reading.argument.c_str();
    const auto first = static_cast<uint32_t>(std::strtoul(text, &end, 10));
    if (end == text || *end != ':' || first > 1) {
        return kBad;
    }
    const char *const behind = end + 1;
    const auto second = static_cast<uint32_t>(std::strtoul(behind, &end, 10));
    if (end == behind) {
        return kBad;
    }
    return reading.ask("setUsbLock 1 " + number(first) + ' ' + signedNumber(second) + ' ' +
                           dotted(reading.given.word(focusWord)),
                       "usb lock not writeable", kOk);
}

inline std::string getUsbLock(Reading &reading)
{
    return reading.ask(reading.aboutFocus("getUsbLock"), "usb lock not readable",
                       "usb-lock=" + number(reading.given.word(0)) + ':' + number(reading.given.word(1)) + "\r\n");
}

inline std::string showInputDevices(Reading &reading)
{
    return reading.ask(reading.aboutFocus("showInputDeviceV2"), "input devices not readable",
                       "kbd=" + number(reading.given.word(0)) + " mouse=" + number(reading.given.word(1)) +
                           " touch=" + number(reading.given.word(2)) + " vkbd=" + signedNumber(reading.given.word(3)) + "\r\n");
}

inline std::string invalidateCalibration(Reading &reading)
{
    reading.asked.push_back(reading.aboutFocus("invalidateTouchScreen"));
    if (reading.given.result == 0) {
        return "no_touchscreen\r\n";
    }
    return reading.given.result == 1 ? kOk : kFailed;
}

inline Read setKeyFlag(uint32_t bit)
{
    return [=](Reading &reading) -> std::string {
        const auto value = flag(reading.argument);
        if (!value) {
            return kBad;
        }
        const bool isSet = (reading.state.keyFlags & bit) != 0;
        reading.state.keyFlags ^= isSet != (value == "1") ? bit : 0;
        return kOk;
    };
}

inline Read getKeyFlag(const char *key, uint32_t bit)
{
    return [=](Reading &reading) { return key + std::string((reading.state.keyFlags & bit) != 0 ? "1" : "0") + "\r\n"; };
}

inline Read keepText(std::optional<std::string> State::*member)
{
    return [=](Reading &reading) {
        reading.state.*member = reading.argument.empty() ? std::nullopt : std::optional(reading.argument);
        return kOk;
    };
}

inline std::string getChannelInfo(Reading &reading)
{
    return "channel-info=" + reading.state.channelInfo.value_or("") + "\r\n";
}

inline std::string setKvoIndex(Reading &reading)
{
    const auto value = smallNumber(reading.argument);
    if (!value) {
        return kBad;
    }
    reading.state.kvoIndex = static_cast<uint32_t>(std::stoul(*value));
    return kOk;
}

inline std::string getKvoIndex(Reading &reading) { return "kvoindex=" + number(reading.state.kvoIndex) + "\r\n"; }

inline std::string getPriority(const Reading &reading)
{
    return "Priority=" + number(reading.given.word(lockWord)) + ':' + signedNumber(reading.given.word(prioWord)) + "\r\n";
}

/// A number of the state, as the host has told it.
inline Read stateNumber(const char *key, StateWord word)
{
    return [=](const Reading &reading) { return key + number(reading.given.word(word)) + "\r\n"; };
}

inline Read stateText(const char *key, std::string State::*text)
{
    return [=](Reading &reading) { return key + reading.state.*text + "\r\n"; };
}

inline std::string getT2M2N(const Reading &reading) { return reading.given.t2m2n() + "\r\n"; }

inline std::string showPanelSize(const Reading &reading)
{
    return reading.given.isDescribed
               ? "width=" + signedNumber(reading.given.word(0)) + " height=" + signedNumber(reading.given.word(1)) +
                     " depth=" + signedNumber(reading.given.word(2)) + "\r\n"
               : failure("panel size not readable");
}

inline std::string showHardware(const Reading &reading)
{
    return reading.given.isDescribed ? "hwid=" + number(reading.given.word(3)) + '.' + number(reading.given.word(4)) + '.' +
                                           number(reading.given.word(5)) + '.' + number(reading.given.word(6)) + ':' +
                                           hexadecimal(reading.given.word(7), "0123456789abcdef", 8) + "\r\n"
                                     : failure("hwid not readable");
}

inline const Row kRows[] = {
    {"show-panel-size", showPanelSize},
    {"show-hwid", showHardware},
    {"show-input-devices", showInputDevices},
    {"set-backlight=", always(failure("EMB-KVO backlight not supported"))},
    {"set-backlight-brightness=", always(failure("EMB-KVO backlight brightness not supported"))},
    {"set-backlight-brightness-v2=", always(failure("EMB-KVO backlight brightness V2 not supported"))},
    {"get-backlight-brightness-v2=", always(failure("EMB-KVO backlight brightness not supported"))},
    {"set-darken=", setDarken},
    {"set-disable-numlock=", setKeyFlag(2)},
    {"set-disable-capslock=", setKeyFlag(4)},
    {"get-disable-numlock", getKeyFlag("disable-numlock=", 2)},
    {"get-disable-capslock", getKeyFlag("disable-capslock=", 4)},
    {"get-station-type", value("getStationType", "station-type=", "station-type", signedNumber)},
    {"get-sw-capslock", value("getSwCapsLock", "sw-capslock=", "sw-capslock", signedNumber)},
    {"set-sw-capslock=", setting("setSwCapsLock", capsLock, "sw-capslock not writeable")},
    {"get-kvo-name", stateText("", &State::hostname)},
    {"get-kvo-priority", getPriority},
    {"get-kvo-startup-active", stateNumber("startup-active=", activeWord)},
    {"get-kvo-startup-prio", stateNumber("startup-prio=", startupPrioWord)},
    {"set-channel-info=", keepText(&State::channelInfo)},
    {"get-channel-info", getChannelInfo},
    {"get-screen-on-focus", stateText("screen-on-focus=", &State::screenOnFocus)},
    {"get-channel-on-focus", stateNumber("channel-on-focus=", channelWord)},
    {"get-t2m2n", getT2M2N},
    {"get-mcpaddr", panelValue("getMCPAddress", "mcpaddr=", "mcp addr", "255")},
    {"set-mcpaddr=", panelSetting("setMCPAddress", smallNumber, "mcp addr not writeable")},
    {"get-kvoindex", getKvoIndex},
    {"set-kvoindex=", setKvoIndex},
    {"get-dckaddr", panelValue("getDCKAddress", "dckaddr=", "dck addr", "255")},
    {"get-dckenable", panelValue("getDCKEnable", "dckenable=", "dck enable", "0")},
    {"set-dckenable=", panelSetting("setDCKEnable", flag, "kvo index not writeable")},
    {"get-cksindex", panelValue("getKVOCksIndex", "cksindex=", "cks index", "255")},
    {"set-cksindex=", panelSetting("setKVOCksIndex", smallNumber, "cks index not writeable")},
    {"invalidate-calibration", invalidateCalibration},
    {"get-rv4mode", value("getRV4Mode", "rv4mode=", "rv4 mode")},
    {"set-rv4mode=", setting("setRV4Mode", flag, "rv4 mode not writeable")},
    {"get-calibparam", always(kBad)},
    {"set-calibparam=", always(kBad)},
    {"simulate-mcp=", always(kBad)},
    {"enable-mcp=", always(kBad)},
    {"reboot", always(kBad)},
    {"show-viewer-active", hostCommand("show-viewer-active", "active=1\r\n", "active=0\r\n")},
    {"show-current-server", showServer},
    {"start-viewer=", always(kBad)},
    {"start-configured-viewer=", always(kBad)},
    {"stop-viewer-preempt", hostCommand("stop-viewer-preempt", kOk, "not running\r\n")},
    {"stop-viewer-noclean", hostCommand("stop-viewer-noclean", kOk, "not running\r\n")},
    {"stop-viewer", hostCommand("stop-viewer", kOk, "not running\r\n")},
    {"activate-me", hostCommand("activate-me", kOk, "busy\r\n")},
    {"servername=", keepText(&State::serverName)},
    {"set-statusline=", setStatusLine},
    {"ping", always("pong\r\n")},
    {"get-softkey-type", metric(2, "softkey-type=", "softkey type")},
    {"get-keyboard-caps", metric(3, "keyboard-caps=", "keyboard caps")},
    {"get-hardware-caps", metric(5, "hardware-caps=", "hardware caps")},
    {"get-panel-oem-layout", metric(1, "panel-oem-layout=", "panel oem layout")},
    {"get-panel-rotation", metric(6, "panel-rotation=", "panel rotation", rotation)},
    {"set-usb-lock=", setUsbLock},
    {"get-usb-lock", getUsbLock},
    {"sync-times=", always(kBad)},
};
static_assert(std::size(kRows) == std::size(cmds));

/// Of the handler that no command has.
inline const Row kDisplayDpi = {"(display dpi)", metric(4, "softkey-type=", "display dpi")};

}  // namespace fuzz
