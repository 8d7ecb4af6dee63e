// The table of station keys; checks and stores their values.
#include "kvosim/plant/station_keys.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <stdexcept>

namespace kvosim {

namespace {

constexpr int64_t kByte = 255;
constexpr int64_t kHighest32 = 0xFFFFFFFF;
constexpr int64_t kHighestSigned = std::numeric_limits<int32_t>::max();
constexpr int64_t kMaxDevices = 99;
constexpr int64_t kLongestReboot = 3'600'000;  // ms

bool isPairOrEmpty(std::string_view text) { return text.empty() || tools::isPair(text); }

constexpr std::string_view kLineForm = "at most 255 bytes without control characters";
constexpr std::string_view kPairForm = "two numbers, such as \"12:1\", or an empty text";

const StationKey kKeys[] = {
    {"attr1", NumberKey{&ConnectionEntry::attr1, 0, kHighest32}},
    {"attr2", NumberKey{&ConnectionEntry::attr2, 0, kHighest32}},
    {"attr3", NumberKey{&ConnectionEntry::attr3, 0, kHighest32}},

    {"brightness", NumberKey{&Panel::brightness, 0, 1}},
    {"backlight", NumberKey{&Panel::backlight, 0, 1}},
    {"backlight_modes", NumberKey{&Panel::backlightModes, 0, 2}},
    {"backlight_brightness", NumberKey{&Panel::backlightBrightness, 0, 100}},
    {"backlight_brightness_mode1", NumberKey{&Panel::backlightBrightnessMode1, 0, 100}},
    {"disable_num_lock", NumberKey{&Panel::disableNumLock, 0, 1}},
    {"disable_caps_lock", NumberKey{&Panel::disableCapsLock, 0, 1}},
    {"sw_caps_lock", NumberKey{&Panel::swCapsLock, -1, 1}},
    {"station_type", NumberKey{&Panel::stationType, -1, 1}},
    {"handheld", NumberKey{&Panel::handheld, 0, 1}},
    {"rv4_mode", NumberKey{&Panel::rv4Mode, 0, 1}},
    {"marovanti", NumberKey{&Panel::marovanti, 0, 1}},

    {"mcp_address", NumberKey{&Panel::mcpAddress, 0, kByte}},
    {"dck_address", NumberKey{&Panel::dckAddress, 0, kByte}},
    {"kvo_index", NumberKey{&Panel::kvoIndex, 0, kByte}},
    {"dck_enable", NumberKey{&Panel::dckEnable, 0, 1}},
    {"cks_index", NumberKey{&Panel::cksIndex, 0, kHighest32}},
    {"cks_fixed", NumberKey{&Panel::cksFixed, 0, 1}},
    {"simulated_mcp_key", TextKey{&Panel::simulatedMcpKey, isPairOrEmpty, kPairForm}},
    {"enabled_mcp_key", TextKey{&Panel::enabledMcpKey, isPairOrEmpty, kPairForm}},

    {"viewer", TextKey{&Panel::viewer, tools::isViewer, "\"SERVER:DISPLAY\", or an empty text if no viewer runs"}},
    {"viewer_busy", NumberKey{&Panel::viewerBusy, 0, 1}},
    {"status_line", TextKey{&Panel::statusLine, tools::isLine, kLineForm}},
    {"status_value1", NumberKey{&Panel::statusValue1, 0, kHighest32}},
    {"status_value2", NumberKey{&Panel::statusValue2, 0, kHighest32}},
    {"reboot_time_ms", NumberKey{&Panel::rebootTime, 0, kLongestReboot}},

    {"focus_busy", NumberKey{&Panel::focusBusy, 0, 1}},
    {"priority",
     TextKey{&Panel::priority, tools::isPriority, "\"\", \":\", \"1:\", \":7\" or \"1:7\" (lock 0 or 1, priority 1 to 10)"}},
    {"startup_active", NumberKey{&Panel::startupActive, 0, 2}},
    {"startup_prio", NumberKey{&Panel::startupPrio, 0, kHighest32}},
    {"channel_on_focus", NumberKey{&Panel::channelOnFocus, 1, 8}},
    {"screen_on_focus", TextKey{&Panel::screenOnFocus, tools::isLine, kLineForm}},
    {"t2m2n", TextKey{&Panel::t2m2n, tools::isReplyText, "at most 255 bytes without control characters, and not \"failed\""}},
    {"channel_info", TextKey{&Panel::channelInfo, tools::isChannelInfo, "at most 230 bytes without control characters"}},

    {"kbd", NumberKey{&Panel::keyboards, 0, kMaxDevices}},
    {"mouse", NumberKey{&Panel::mice, 0, kMaxDevices}},
    {"touch", NumberKey{&Panel::touchScreens, 0, kMaxDevices}},
    {"multitouch", NumberKey{&Panel::multiTouchScreens, 0, kMaxDevices}},
    {"maxcontacts", NumberKey{&Panel::maxContacts, 0, kMaxDevices}},
    {"vkbd", NumberKey{&Panel::virtualKeyboards, 0, kMaxDevices}},
    {"press_thresh", NumberKey{&Panel::pressThreshold, -1, kHighestSigned}},
    {"nonlinear", NumberKey{&Panel::nonlinear, -1, 1}},

    {"usb_lock", TextKey{&Panel::usbLock, tools::isPair, "two numbers, such as \"0:1\""}},
    {"usb_connectors",
     TextKey{&Panel::usbConnectors, tools::areConnectors,
             "\"NAME:DEVICE\" for each connector, separated by one space, such as \"X60:keyboard X61:free\""}},
    {"usb_scanning", NumberKey{&Panel::usbScanning, 0, 1}},

    {"oem_layout", TextKey{&Panel::oemLayout, tools::isLayout, "1 to 7 bytes, or an empty text for no value"}},
    {"softkey_type", NumberKey{&Panel::softkeyType, 0, kHighest32 - 1, 2}},
    {"keyboard_caps", NumberKey{&Panel::keyboardCaps, 0, kHighest32 - 1}},
    {"dpi", NumberKey{&Panel::dpi, 0, kHighestSigned}},
    {"hardware_caps", NumberKey{&Panel::hardwareCaps, 0, kHighest32 - 1}},
    {"panel_rotation", NumberKey{&Panel::rotation, 1, 4}},
};

template <class... Fs>
struct Overload : Fs... {
    using Fs::operator()...;
};
template <class... Fs>
Overload(Fs...) -> Overload<Fs...>;

bool isOptional(const NumberKey &key) { return std::holds_alternative<OptionalNumber Panel::*>(key.member); }

/// Ranges of 32 bits are written in hexadecimal, which is easier to read.
std::string rangeOf(const NumberKey &key)
{
    std::string highest = std::to_string(key.highest);
    if (key.highest > kHighestSigned) {
        std::array<char, 11> hexadecimal{};
        std::snprintf(hexadecimal.data(), hexadecimal.size(), "0x%08X", static_cast<uint32_t>(key.highest));
        highest = hexadecimal.data();
    }
    return "; write " + std::string(key.step == 2 ? "an even number from " : "") + std::to_string(key.lowest) + " to " +
           highest + (isOptional(key) ? ", or \"none\"" : "");
}

void store(const NumberKey &key, const Station &station, int64_t value)
{
    std::visit(Overload{
                   [&](int64_t Panel::*member) { station.panel.*member = value; },
                   [&](OptionalNumber Panel::*member) { station.panel.*member = value; },
                   [&](uint32_t ConnectionEntry::*member) { station.entry.*member = static_cast<uint32_t>(value); },
               },
               key.member);
}

std::string assignNumber(const NumberKey &key, const Station &station, const Value &value)
{
    const auto *text = std::get_if<std::string>(&value);
    if (text != nullptr && *text == kNoValue && isOptional(key)) {
        station.panel.*std::get<OptionalNumber Panel::*>(key.member) = std::nullopt;
        return {};
    }
    const auto *number = std::get_if<int64_t>(&value);
    if (number == nullptr) {
        return "is not a whole number" + rangeOf(key);
    }
    if (*number < key.lowest || *number > key.highest) {
        return std::to_string(*number) + " is out of range" + rangeOf(key);
    }
    if (*number % key.step != 0) {
        return std::to_string(*number) + " is odd" + rangeOf(key);
    }
    store(key, station, *number);
    return {};
}

std::string assignText(const TextKey &key, const Station &station, const Value &value)
{
    const auto *text = std::get_if<std::string>(&value);
    if (text == nullptr) {
        return "is not a text; write it in quotes";
    }
    if (!key.isValid(*text)) {
        return "has the wrong form; write " + std::string(key.form);
    }
    station.panel.*key.member = *text;
    return {};
}

}  // namespace

std::span<const StationKey> stationKeys() { return kKeys; }

const StationKey *findStationKey(std::string_view name)
{
    const auto *found =
        std::find_if(std::begin(kKeys), std::end(kKeys), [name](const StationKey &key) { return key.name == name; });
    return found == std::end(kKeys) ? nullptr : found;
}

const StationKey &stationKey(std::string_view name)
{
    const StationKey *key = findStationKey(name);
    if (key == nullptr) {
        throw std::invalid_argument("no station key " + std::string(name));
    }
    return *key;
}

Value read(const StationKey &key, const Station &station)
{
    if (const auto *text = std::get_if<TextKey>(&key.kind)) {
        return station.panel.*text->member;
    }
    return std::visit(Overload{
                          [&](int64_t Panel::*member) -> Value { return station.panel.*member; },
                          [&](OptionalNumber Panel::*member) -> Value {
                              const OptionalNumber &number = station.panel.*member;
                              return number ? Value(*number) : Value(std::string(kNoValue));
                          },
                          [&](uint32_t ConnectionEntry::*member) -> Value { return int64_t{station.entry.*member}; },
                      },
                      std::get<NumberKey>(key.kind).member);
}

std::string assign(const StationKey &key, const Station &station, const Value &value)
{
    const auto *number = std::get_if<NumberKey>(&key.kind);
    return number != nullptr ? assignNumber(*number, station, value) : assignText(std::get<TextKey>(key.kind), station, value);
}

Value parseTyped(const StationKey &key, const std::string &text)
{
    return std::holds_alternative<TextKey>(key.kind) ? Value(text) : parseTypedNumber(text);
}

}  // namespace kvosim
