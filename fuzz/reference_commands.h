// The reference implementation of the agent's commands, with strspn, strtoul and strtol: the reply, the requests and the stored
// state of each command. The input determines the answers of the service and the host.
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

inline constexpr std::size_t kLongestCommand = 255;  // that the host receives
inline constexpr std::size_t kLongestT2M2N = 1023;
inline constexpr std::size_t kLayoutSize = 8;

// ---- The input ----

struct Given {
    std::string bytes;     ///< after the first two
    std::string argument;  ///< these bytes up to the first zero
    int32_t result = 0;    ///< of the service and the host
    bool hostThrows = false;
    bool hasControlPanel = false;
    bool hasHost = false;
    bool hasTag = false;
    bool isDescribed = false;  ///< whether the station in focus has a description

    /// A number from the bytes, which repeat if they are too few.
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

/// The state that commands set, and the state that they only read.
struct State {
    std::optional<std::string> channelInfo;
    std::optional<std::string> serverName;
    uint32_t keyFlags = 0;
    uint32_t kvoIndex = 0;
    std::vector<uint32_t> words;  ///< no command changes them
    std::string hostname;
    std::string screenOnFocus;

    bool operator==(const State &) const = default;
};

// ---- The reference implementation ----

inline constexpr const char *kOk = "ok\r\n";
inline constexpr const char *kFailed = "failed\r\n";
inline constexpr const char *kBad = "bad request\r\n";

/// The positions of the state's numbers in the input. The numbers before them are the service's answers.
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

/// @param address  in network byte order, as inet_aton stores it
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

/// One call of a command: its input, the state that it changes and the requests that it makes.
struct Call {
    const Given &given;
    State &state;
    std::string &argument;  ///< as the command leaves it
    std::vector<std::string> requests{};

    [[nodiscard]] std::string aboutFocus(const char *request) const
    {
        return std::string(request) + ' ' + number(given.word(focusWord));
    }

    std::string ask(const std::string &request, const std::string &reason, const std::string &reply)
    {
        requests.push_back(request);
        return given.result == KVO_HWS_OK ? reply : failure(reason);
    }
};

using Handler = std::function<std::string(Call &)>;

struct Row {
    const char *keyword;
    Handler handler;
};

inline Handler always(const std::string &reply)
{
    return [=](Call &) { return reply; };
}

inline Handler value(const char *request, const char *key, const char *reason, std::string (*shown)(uint32_t) = number)
{
    return [=](Call &call) {
        return call.ask(call.aboutFocus(request), std::string(reason) + " not readable",
                        key + shown(call.given.word(0)) + "\r\n");
    };
}

/// Like value if the station has a control panel; otherwise replies @p otherwise.
inline Handler panelValue(const char *request, const char *key, const char *reason, const char *otherwise)
{
    return [=](Call &call) {
        return call.given.hasControlPanel ? value(request, key, reason)(call) : std::string(key) + otherwise + "\r\n";
    };
}

inline Handler metric(int index, const char *key, const char *reason, std::string (*shown)(uint32_t) = number)
{
    return [=](Call &call) -> std::string {
        std::string value = shown(call.given.word(0));
        if (index == 1) {
            value = std::string(call.given.bytes.substr(0, kLayoutSize).c_str());
        }
        const std::string reply = call.ask(call.aboutFocus("getStationMetrics") + ' ' + std::to_string(index),
                                           std::string(reason) + " not readable", key + value + "\r\n");
        return call.given.result == KVO_HWS_NOT_AVAILABLE ? "none" : reply;
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
    const long value = std::strtol(text.c_str(), nullptr, 10);  // the number at the start of the text
    const bool hasOthers = std::strspn(text.c_str(), "-0123456789") != text.size();
    if (hasOthers || value < -1 || value > 1) {
        return std::nullopt;
    }
    return std::to_string(value);
}

inline Handler setting(const char *request, Argument read, const char *reason)
{
    return [=](Call &call) -> std::string {
        const auto value = read(call.argument);
        return value ? call.ask(call.aboutFocus(request) + ' ' + *value, reason, kOk) : kBad;
    };
}

/// Like setting if the station has a control panel; otherwise only checks the argument.
inline Handler panelSetting(const char *request, Argument read, const char *reason)
{
    return [=](Call &call) -> std::string {
        if (call.given.hasControlPanel) {
            return setting(request, read, reason)(call);
        }
        return read(call.argument) ? kOk : kBad;
    };
}

inline std::string requestFromHost(Call &call, const std::string &command, const std::string &yes, const std::string &no,
                                   const std::string &other = kFailed)
{
    if (!call.given.hasHost) {
        return kBad;
    }
    call.requests.push_back("host " + command.substr(0, kLongestCommand));
    if (call.given.hostThrows || call.given.result < 0 || call.given.result > 1) {
        return other;
    }
    return call.given.result == 1 ? yes : no;
}

inline Handler hostCommand(const char *command, const char *yes, const char *no)
{
    return [=](Call &call) { return requestFromHost(call, command, yes, no); };
}

inline std::string setDarken(Call &call) { return requestFromHost(call, "set-darken=" + call.argument, kOk, kFailed); }

inline std::string showServer(Call &call)
{
    const std::string server = dotted(call.given.word(remoteWord)) + ':' + signedNumber(call.given.word(displayWord));
    return requestFromHost(call, "show-viewer-active", "vncserver=" + server + "\r\n", "none\r\n", "none\r\n");
}

inline std::string setStatusLine(Call &call)
{
    const char *rest = call.argument.c_str();
    for (int i = 0; i < 2; ++i) {
        char *end = nullptr;
        std::strtol(rest, &end, 10);
        if (end == rest || *end != ',') {
            return kBad;
        }
        rest = end + 1;
    }
    const auto text = static_cast<std::size_t>(rest - call.argument.c_str());
    call.argument.erase(std::min(call.argument.find_first_of("\r\n", text), call.argument.size()));
    return requestFromHost(call, "set-statusline=" + call.argument, kOk, kFailed);
}

/// Truncates larger numbers to 32 bits, like scanf.
inline std::string setUsbLock(Call &call)
{
    char *end = nullptr;
    const char *const text = call.argument.c_str();
    const auto first = static_cast<uint32_t>(std::strtoul(text, &end, 10));
    if (end == text || *end != ':' || first > 1) {
        return kBad;
    }
    const char *const secondStart = end + 1;
    const auto second = static_cast<uint32_t>(std::strtoul(secondStart, &end, 10));
    if (end == secondStart) {
        return kBad;
    }
    return call.ask("setUsbLock 1 " + number(first) + ' ' + signedNumber(second) + ' ' + dotted(call.given.word(focusWord)),
                    "usb lock not writeable", kOk);
}

inline std::string getUsbLock(Call &call)
{
    return call.ask(call.aboutFocus("getUsbLock"), "usb lock not readable",
                    "usb-lock=" + number(call.given.word(0)) + ':' + number(call.given.word(1)) + "\r\n");
}

inline std::string showInputDevices(Call &call)
{
    return call.ask(call.aboutFocus("showInputDeviceV2"), "input devices not readable",
                    "kbd=" + number(call.given.word(0)) + " mouse=" + number(call.given.word(1)) +
                        " touch=" + number(call.given.word(2)) + " vkbd=" + signedNumber(call.given.word(3)) + "\r\n");
}

inline std::string invalidateCalibration(Call &call)
{
    call.requests.push_back(call.aboutFocus("invalidateTouchScreen"));
    if (call.given.result == 0) {
        return "no_touchscreen\r\n";
    }
    return call.given.result == 1 ? kOk : kFailed;
}

inline Handler setKeyFlag(uint32_t bit)
{
    return [=](Call &call) -> std::string {
        const auto value = flag(call.argument);
        if (!value) {
            return kBad;
        }
        const bool isSet = (call.state.keyFlags & bit) != 0;
        call.state.keyFlags ^= isSet != (value == "1") ? bit : 0;
        return kOk;
    };
}

inline Handler getKeyFlag(const char *key, uint32_t bit)
{
    return [=](Call &call) { return key + std::string((call.state.keyFlags & bit) != 0 ? "1" : "0") + "\r\n"; };
}

inline Handler storeText(std::optional<std::string> State::*member)
{
    return [=](Call &call) {
        call.state.*member = call.argument.empty() ? std::nullopt : std::optional(call.argument);
        return kOk;
    };
}

inline std::string getChannelInfo(Call &call) { return "channel-info=" + call.state.channelInfo.value_or("") + "\r\n"; }

inline std::string setKvoIndex(Call &call)
{
    const auto value = smallNumber(call.argument);
    if (!value) {
        return kBad;
    }
    call.state.kvoIndex = static_cast<uint32_t>(std::stoul(*value));
    return kOk;
}

inline std::string getKvoIndex(Call &call) { return "kvoindex=" + number(call.state.kvoIndex) + "\r\n"; }

inline std::string getPriority(const Call &call)
{
    return "Priority=" + number(call.given.word(lockWord)) + ':' + signedNumber(call.given.word(prioWord)) + "\r\n";
}

/// A number of the state, as the host has set it.
inline Handler stateNumber(const char *key, StateWord word)
{
    return [=](const Call &call) { return key + number(call.given.word(word)) + "\r\n"; };
}

inline Handler stateText(const char *key, std::string State::*text)
{
    return [=](Call &call) { return key + call.state.*text + "\r\n"; };
}

inline std::string getT2M2N(const Call &call) { return call.given.t2m2n() + "\r\n"; }

inline std::string showPanelSize(const Call &call)
{
    return call.given.isDescribed
               ? "width=" + signedNumber(call.given.word(0)) + " height=" + signedNumber(call.given.word(1)) +
                     " depth=" + signedNumber(call.given.word(2)) + "\r\n"
               : failure("panel size not readable");
}

inline std::string showHardware(const Call &call)
{
    return call.given.isDescribed
               ? "hwid=" + number(call.given.word(3)) + '.' + number(call.given.word(4)) + '.' + number(call.given.word(5)) +
                     '.' + number(call.given.word(6)) + ':' + hexadecimal(call.given.word(7), "0123456789abcdef", 8) + "\r\n"
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
    {"set-channel-info=", storeText(&State::channelInfo)},
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
    {"servername=", storeText(&State::serverName)},
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

/// The handler that no command uses.
inline const Row kDisplayDpi = {"(display dpi)", metric(4, "softkey-type=", "display dpi")};

}  // namespace fuzz
