// Commands that are answered by asking the local hardware service about the station in focus.
#include <kvo_hws/agent.h>
#include <kvo_hws/requests.h>

#include "agent/call.h"
#include "runtime/numbers.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace {

using kvo_hws::agent::Call;
using kvo_hws::agent::focus;
using kvo_hws::agent::hasControlPanel;

constexpr uint32_t kNoAddress = 255;  // told for a station without a control panel

bool consistsOf(std::string_view text, std::string_view characters) noexcept
{
    return text.find_first_not_of(characters) == std::string_view::npos;
}

/// Digits alone, below 256; none at all are 0, as remote services send it.
bool readSmallNumber(const char *argument, uint32_t &number) noexcept
{
    const kvo_hws::Number read = kvo_hws::readNumber(argument, 10);
    number = static_cast<uint32_t>(read.value);
    return consistsOf(argument, "0123456789") && read.value <= UINT8_MAX;
}

/// One number: -1, 0 or 1.
bool readCapsLock(const char *argument, int32_t &state) noexcept
{
    const kvo_hws::SignedNumber read = kvo_hws::readSigned(argument);
    state = static_cast<int32_t>(read.value);
    return consistsOf(argument, "-0123456789") && read.end != argument && *read.end == '\0' && read.value >= -1 &&
           read.value <= 1;
}

/// The first character alone: "1xyz" is a 1, as remote services have always got away with.
bool readFlag(const char *argument, uint32_t &flag) noexcept
{
    flag = *argument == '1' ? 1 : 0;
    return *argument == '0' || *argument == '1';
}

}  // namespace

// ---- Getters ----

void handle_show_input_devices(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    uint32_t keyboards = 0;
    uint32_t mice = 0;
    uint32_t touch = 0;
    uint32_t virtualKeyboard = 0;
    if (call.worked(KVO_HWS_showInputDeviceV2(focus(), &keyboards, &mice, &touch, &virtualKeyboard),
                    "input devices not readable")) {
        call.value("kbd=%u mouse=%u touch=%u vkbd=%d\r\n", keyboards, mice, touch, static_cast<int>(virtualKeyboard));
    }
}

void handle_get_station_type(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    int32_t type = 0;
    if (call.worked(KVO_HWS_getStationType(focus(), &type), "station-type not readable")) {
        call.value("station-type=%d\r\n", type);
    }
}

void handle_get_sw_capslock(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    int32_t state = 0;
    if (call.worked(KVO_HWS_getSwCapsLock(focus(), &state), "sw-capslock not readable")) {
        call.value("sw-capslock=%d\r\n", state);
    }
}

void handle_get_rv4mode(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    uint32_t mode = 0;
    if (call.worked(KVO_HWS_getRV4Mode(focus(), &mode), "rv4 mode not readable")) {
        call.value("rv4mode=%u\r\n", mode);
    }
}

void handle_get_usb_lock(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    uint32_t first = 0;
    uint32_t second = 0;
    if (call.worked(KVO_HWS_getUsbLock(focus(), &first, &second), "usb lock not readable")) {
        call.value("usb-lock=%u:%u\r\n", first, second);
    }
}

// ---- Getters of the control panel: without one the service is not asked ----

void handle_get_mcpaddr(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    uint32_t address = kNoAddress;
    if (!hasControlPanel() || call.worked(KVO_HWS_getMCPAddress(focus(), &address), "mcp addr not readable")) {
        call.value("mcpaddr=%u\r\n", address);
    }
}

void handle_get_dckaddr(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    uint32_t address = kNoAddress;
    if (!hasControlPanel() || call.worked(KVO_HWS_getDCKAddress(focus(), &address), "dck addr not readable")) {
        call.value("dckaddr=%u\r\n", address);
    }
}

void handle_get_cksindex(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    uint32_t index = kNoAddress;
    if (!hasControlPanel() || call.worked(KVO_HWS_getKVOCksIndex(focus(), &index), "cks index not readable")) {
        call.value("cksindex=%u\r\n", index);
    }
}

void handle_get_dckenable(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    uint32_t enabled = 0;
    if (!hasControlPanel() || call.worked(KVO_HWS_getDCKEnable(focus(), &enabled), "dck enable not readable")) {
        call.value("dckenable=%u\r\n", enabled);
    }
}

// ---- Setters of numbers ----

void handle_set_mcpaddr(HmiSession *session, const char *tag, char *argument) noexcept
{
    const Call call(session, tag);
    uint32_t address = 0;
    if (call.accepts(readSmallNumber(argument, address)) &&
        (!hasControlPanel() || call.worked(KVO_HWS_setMCPAddress(focus(), address), "mcp addr not writeable"))) {
        call.ok();
    }
}

void handle_set_cksindex(HmiSession *session, const char *tag, char *argument) noexcept
{
    const Call call(session, tag);
    uint32_t index = 0;
    if (call.accepts(readSmallNumber(argument, index)) &&
        (!hasControlPanel() || call.worked(KVO_HWS_setKVOCksIndex(focus(), index), "cks index not writeable"))) {
        call.ok();
    }
}

void handle_set_kvoindex(HmiSession *session, const char *tag, char *argument) noexcept
{
    const Call call(session, tag);
    uint32_t index = 0;
    if (call.accepts(readSmallNumber(argument, index))) {
        kvo_hws::shared(gKvoIndex).store(index);
        call.ok();
    }
}

void handle_set_sw_capslock(HmiSession *session, const char *tag, char *argument) noexcept
{
    const Call call(session, tag);
    int32_t state = 0;
    if (call.accepts(readCapsLock(argument, state)) &&
        call.worked(KVO_HWS_setSwCapsLock(focus(), state), "sw-capslock not writeable")) {
        call.ok();
    }
}

// ---- Setters of flags ----

void handle_set_dckenable(HmiSession *session, const char *tag, char *argument) noexcept
{
    const Call call(session, tag);
    uint32_t enabled = 0;
    // The reason names the index, and remote services know it by that.
    if (call.accepts(readFlag(argument, enabled)) &&
        (!hasControlPanel() || call.worked(KVO_HWS_setDCKEnable(focus(), enabled), "kvo index not writeable"))) {
        call.ok();
    }
}

void handle_set_rv4mode(HmiSession *session, const char *tag, char *argument) noexcept
{
    const Call call(session, tag);
    uint32_t mode = 0;
    if (call.accepts(readFlag(argument, mode)) && call.worked(KVO_HWS_setRV4Mode(focus(), mode), "rv4 mode not writeable")) {
        call.ok();
    }
}

// ---- Metrics ----

namespace {

/// A metric as the service's request fills it: a text, or a number in its beginning.
union Metric {
    char text[8];
    uint32_t number;
};

/// Whether the station knows the metric; what is replied where it does not is told.
bool readMetric(const Call &call, uint32_t metric, Metric &value, const char *reason) noexcept
{
    const int32_t result = KVO_HWS_getStationMetrics(focus(), metric, &value);
    if (result == KVO_HWS_NOT_AVAILABLE) {
        call.text("none");  // without a line end, unlike all other replies: remote services wait for these four letters
        return false;
    }
    return call.worked(result, reason);
}

}  // namespace

void handle_get_panel_oem_layout(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    Metric layout = {};
    if (readMetric(call, 1, layout, "panel oem layout not readable")) {
        call.value("panel-oem-layout=%.8s\r\n", layout.text);
    }
}

void handle_get_softkey_type(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    Metric type = {};
    if (readMetric(call, 2, type, "softkey type not readable")) {
        call.value("softkey-type=%u\r\n", type.number);
    }
}

void handle_get_keyboard_caps(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    Metric capabilities = {};
    if (readMetric(call, 3, capabilities, "keyboard caps not readable")) {
        call.value("keyboard-caps=%u\r\n", capabilities.number);
    }
}

/// Replies under the softkey type's key; programs that call it go by that.
void handle_get_display_dpi(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    Metric dpi = {};
    if (readMetric(call, 4, dpi, "display dpi not readable")) {
        call.value("softkey-type=%u\r\n", dpi.number);
    }
}

void handle_get_hardware_caps(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    Metric capabilities = {};
    if (readMetric(call, 5, capabilities, "hardware caps not readable")) {
        call.value("hardware-caps=%u\r\n", capabilities.number);
    }
}

void handle_get_panel_rotation(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    Metric rotation = {};
    if (readMetric(call, 6, rotation, "panel rotation not readable")) {
        call.value("panel-rotation=%X\r\n", rotation.number);
    }
}

// ---- Touch and USB lock ----

void handle_invalidate_calibration(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    const Call call(session, tag);
    switch (KVO_HWS_invalidateTouchScreen(focus())) {
    case KVO_HWS_OK: call.ok(); break;
    case KVO_HWS_NO: call.text("no_touchscreen\r\n"); break;
    default: call.failed(); break;
    }
}

void handle_set_usb_lock(HmiSession *session, const char *tag, char *argument) noexcept
{
    const Call call(session, tag);
    unsigned first = 0;
    unsigned second = 0;
    if (!call.accepts(std::sscanf(argument, "%u:%u", &first, &second) == 2 && first <= 1)) {
        return;
    }
    const uint32_t station = focus();
    char address[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &station, address, sizeof address);
    const char *hosts[] = {address};
    if (call.worked(KVO_HWS_setUsbLock(1, hosts, static_cast<int>(first), static_cast<int>(second)),
                    "usb lock not writeable")) {
        call.ok();
    }
}
