// The table of properties. One request reads each property, except the startup setting, which takes two requests.
#include "common/station/properties.h"

#include "common/station/readers.h"

#include <kvo_hws/requests.h>
#include <kvo_hws/result.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace tools {

namespace {

// ---- Panel ----

constexpr std::array kEnabledDisabled{"enabled", "disabled"};

const std::vector<int32_t> kBrightnessStates{KVO_HWS_UNSUPPORTED, KVO_HWS_NOT_ACTIVE};

Property brightness(const std::string &key, uint32_t mode)
{
    const auto read = [mode](uint32_t station) -> Reading {
        uint32_t level = 0;
        const Result result = KVO_REQUEST(KVO_HWS_getBacklightBrightnessV2)(station, &level, mode);
        if (result.code != KVO_HWS_OK) {
            return {result};
        }
        return {result, {Value{level}}};
    };
    return {{key}, read, kBrightnessStates};
}

// ---- Viewer ----

/// The size of the longest server text and of the longest display text, with the terminator.
constexpr std::size_t kServerSize = 1025;

Reading server(uint32_t station)
{
    std::array<char, kServerSize> server{};
    std::array<char, kServerSize> display{};
    uint32_t serverSize = server.size();
    uint32_t displaySize = display.size();
    const Result result =
        KVO_REQUEST(KVO_HWS_getCurrentServer)(station, server.data(), &serverSize, display.data(), &displaySize);
    if (result.code != KVO_HWS_OK) {
        return {result};
    }
    return {result, {Value{server.data()}, Value{display.data()}}};
}

// ---- Focus ----

/// One setting that the library reads with two requests.
Reading startup(uint32_t station)
{
    Reading active = numbers(KVO_REQUEST(KVO_HWS_getKVOStartupActive))(station);
    if (active.result.code != KVO_HWS_OK) {
        return active;
    }
    Reading priority = numbers(KVO_REQUEST(KVO_HWS_getKVOStartupPrio))(station);
    if (priority.result.code != KVO_HWS_OK) {
        return priority;
    }
    return {{KVO_HWS_OK}, {active.values.front(), priority.values.front()}};
}

// ---- Input ----

/// The third version of the request also returns a mask, which shows the counts that the service reported.
Reading inputDevices(uint32_t station)
{
    uint32_t mask = 0;
    std::array<uint32_t, 6> counts{};
    auto &[kbd, mouse, touch, multitouch, contacts, vkbd] = counts;
    const Result result =
        KVO_REQUEST(KVO_HWS_showInputDeviceV3)(station, &mask, &kbd, &mouse, &touch, &multitouch, &contacts, &vkbd);
    std::vector<Value> values;
    for (std::size_t bit = 0; bit < counts.size(); ++bit) {
        const bool given = (mask >> bit & 1) != 0;
        values.push_back(Value{given ? Document(counts.at(bit)) : Document(nullptr)});
    }
    return {result, values};
}

/// The library returns the same result for a refusal and a missing value here. "metrics dpi" reads the same value and
/// distinguishes them.
const std::vector<int32_t> kDpiStates{KVO_HWS_FAILED};

// ---- Metrics ----

enum class MetricForm { text, number, bits };

/// Large enough for any metric.
using MetricBuffer = std::array<char, 8>;

Value metricValue(MetricForm form, const MetricBuffer &buffer)
{
    if (form == MetricForm::text) {
        return Value{std::string(buffer.data(), strnlen(buffer.data(), buffer.size()))};
    }
    uint32_t number = 0;
    std::memcpy(&number, buffer.data(), sizeof number);
    if (form == MetricForm::number) {
        return Value{number};
    }
    std::array<char, sizeof "0x00000000"> hex{};
    std::snprintf(hex.data(), hex.size(), "0x%08X", number);
    return {number, hex.data()};
}

/// @p number  the library's number of the metric
Property metric(const std::string &key, uint32_t number, MetricForm form)
{
    const auto read = [number, form](uint32_t station) -> Reading {
        MetricBuffer buffer{};
        const Result result = KVO_REQUEST(KVO_HWS_getStationMetrics)(station, number, buffer.data());
        if (result.code != KVO_HWS_OK) {
            return {result};
        }
        return {result, {metricValue(form, buffer)}};
    };
    return {{key}, read, {KVO_HWS_NOT_AVAILABLE}};
}

std::vector<NamedProperty> makeProperties()
{
    return {
        {"panel type", {{"type"}, numbers(KVO_REQUEST(KVO_HWS_getStationType))}},
        {"panel brightness-v2 0", brightness("brightness_v2_mode_0", 0)},
        {"panel brightness-v2 1", brightness("brightness_v2_mode_1", 1)},
        {"panel numlock", {{"numlock"}, word(KVO_REQUEST(KVO_HWS_getDisableNumLock), kEnabledDisabled)}},
        {"panel capslock", {{"capslock"}, word(KVO_REQUEST(KVO_HWS_getDisableCapsLock), kEnabledDisabled)}},
        {"panel sw-capslock", {{"sw_capslock"}, numbers(KVO_REQUEST(KVO_HWS_getSwCapsLock))}},
        {"panel rv4-mode", {{"rv4_mode"}, word(KVO_REQUEST(KVO_HWS_getRV4Mode), std::array{"auto", "individual"})}},
        {"panel marovanti", {{"marovanti"}, yesNo(KVO_REQUEST(KVO_HWS_isMarovantiPanel)), {}, true}},
        {"viewer active", {{"active"}, yesNo(KVO_REQUEST(KVO_HWS_isViewerActive)), {}, true}},
        {"viewer server", {{"server", "display"}, server}},
        {"address mcp", {{"mcp"}, numbers(KVO_REQUEST(KVO_HWS_getMCPAddress))}},
        {"address kvo-index", {{"kvo_index"}, numbers(KVO_REQUEST(KVO_HWS_getKVOIndex))}},
        {"address dck", {{"dck"}, numbers(KVO_REQUEST(KVO_HWS_getDCKAddress))}},
        {"address dck-enable", {{"dck_enable"}, word(KVO_REQUEST(KVO_HWS_getDCKEnable), std::array{"off", "on"})}},
        {"address cks-index", {{"cks_index"}, numbers(KVO_REQUEST(KVO_HWS_getKVOCksIndex))}},
        {"focus priority", {{"suspend_lock", "suspend_priority"}, numbers(KVO_REQUEST(KVO_HWS_getKVOPriority))}},
        {"focus startup", {{"startup_active", "startup_priority"}, startup}},
        {"focus channel", {{"channel"}, numbers(KVO_REQUEST(KVO_HWS_getKVOChannelOnFocus))}},
        {"focus screen", {{"screen"}, unsizedText(KVO_REQUEST(KVO_HWS_getKVOScreenOnFocus))}},
        {"focus m2n", {{"m2n"}, unsizedText(KVO_REQUEST(KVO_HWS_getKVOT2M2N))}},
        {"channel-info get", {{"info"}, sizedText(KVO_REQUEST(KVO_HWS_getChannelInfo))}},
        {"input devices", {{"keyboards", "mice", "touch", "multitouch", "max_contacts", "virtual_keyboards"}, inputDevices}},
        {"input dpi", {{"dpi"}, numbers(KVO_REQUEST(KVO_HWS_showDPI)), kDpiStates}},
        {"touch calibration", {{"press_threshold", "nonlinear"}, numbers(KVO_REQUEST(KVO_HWS_getTouchScreenCalibParam))}},
        {"usb lock get", {{"lock_first", "lock_second"}, numbers(KVO_REQUEST(KVO_HWS_getUsbLock))}},
        {"usb connectors", {{"connectors"}, sizedText(KVO_REQUEST(KVO_HWS_getUsbConnectorListOne))}},
        {"metrics oem-layout", metric("oem_layout", 1, MetricForm::text)},
        {"metrics softkey-type", metric("softkey_type", 2, MetricForm::number)},
        {"metrics keyboard-caps", metric("keyboard_caps", 3, MetricForm::bits)},
        {"metrics dpi", metric("dpi", 4, MetricForm::number)},
        {"metrics hardware-caps", metric("hardware_caps", 5, MetricForm::bits)},
        {"metrics rotation", metric("rotation", 6, MetricForm::number)},
    };
}

}  // namespace

std::string familyKey(std::string_view subcommand)
{
    std::string key(subcommand.substr(0, subcommand.find(' ')));
    std::replace(key.begin(), key.end(), '-', '_');
    return key;
}

std::span<const NamedProperty> stationProperties()
{
    static const std::vector<NamedProperty> properties = makeProperties();
    return properties;
}

const Property &stationProperty(std::string_view subcommand)
{
    for (const NamedProperty &named : stationProperties()) {
        if (named.subcommand == subcommand) {
            return named.property;
        }
    }
    throw std::out_of_range("not a property of a station: " + std::string(subcommand));
}

}  // namespace tools
