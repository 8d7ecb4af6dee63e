// Commands that send a request about the station in focus to the local hardware service. One function implements each kind of
// command; a handler calls it with its own request and texts.
#include <kvo_hws/agent.h>
#include <kvo_hws/requests.h>

#include "agent/call.h"
#include "agent/dotted.h"
#include "agent/handler.h"
#include "runtime/numbers.h"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>

namespace {

using kvo_hws::agent::Call;
using kvo_hws::agent::Dotted;
using kvo_hws::agent::flagOf;
using kvo_hws::agent::focus;
using kvo_hws::agent::hasControlPanel;

constexpr uint32_t kNoAddress = 255;  // reported for a station without a control panel

template <class Number>
using Getter = int32_t (*)(uint32_t station, Number *value);

template <class Number>
using Setter = int32_t (*)(uint32_t station, Number value);

bool consistsOf(std::string_view text, std::string_view characters) noexcept
{
    return text.find_first_not_of(characters) == std::string_view::npos;
}

/// Reads a number below 256 that consists of digits only. An empty argument is 0: remote services send it.
std::optional<uint32_t> smallNumberOf(const char *argument) noexcept
{
    const unsigned long value = kvo_hws::readNumber(argument, 10).value;
    if (!consistsOf(argument, "0123456789") || value > UINT8_MAX) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(value);
}

/// Reads -1, 0 or 1. The argument may contain only digits and minus signs, and is read up to the end of the number: "" and "-"
/// are 0, "1-" is 1.
std::optional<int32_t> capsLockOf(const char *argument) noexcept
{
    const long value = kvo_hws::readSigned(argument).value;
    if (!consistsOf(argument, "-0123456789") || value < -1 || value > 1) {
        return std::nullopt;
    }
    return static_cast<int32_t>(value);
}

/// Replies with a value of the station.
template <class Number>
void replyValue(const Call &call, Getter<Number> get, const char *format, const char *failure) noexcept
{
    Number value = 0;
    if (call.succeeded(get(focus(), &value), failure)) {
        call.value(format, value);
    }
}

/// Replies with a value of the control panel. For a station without one it replies @p otherwise and sends no request.
void replyPanelValue(const Call &call, Getter<uint32_t> get, uint32_t otherwise, const char *format,
                     const char *failure) noexcept
{
    uint32_t value = otherwise;
    if (!hasControlPanel() || call.succeeded(get(focus(), &value), failure)) {
        call.value(format, value);
    }
}

/// Sets a value of the station if the argument was valid.
template <class Number>
void setValue(const Call &call, std::optional<Number> value, Setter<Number> request, const char *failure) noexcept
{
    if (call.accepts(value.has_value()) && call.succeeded(request(focus(), *value), failure)) {
        call.ok();
    }
}

/// Sets a value of the control panel. For a station without one it only replies "ok".
void setPanelValue(const Call &call, std::optional<uint32_t> value, Setter<uint32_t> request, const char *failure) noexcept
{
    if (call.accepts(value.has_value()) && (!hasControlPanel() || call.succeeded(request(focus(), *value), failure))) {
        call.ok();
    }
}

/// The value of a metric: a text, or a number in the first four bytes.
union Metric {
    char text[8];
    uint32_t number;
};

/// Reads a metric. If the station does not report it or the request fails, sends a reply and returns false.
bool readMetric(const Call &call, uint32_t metric, Metric &value, const char *failure) noexcept
{
    const int32_t result = KVO_HWS_getStationMetrics(focus(), metric, &value);
    if (result == KVO_HWS_NOT_AVAILABLE) {
        call.text("none");  // without a line end, unlike all other replies: remote services expect only these four letters
        return false;
    }
    return call.succeeded(result, failure);
}

/// Replies with a metric that is a number.
void replyMetric(const Call &call, uint32_t metric, const char *format, const char *failure) noexcept
{
    Metric value = {};
    if (readMetric(call, metric, value, failure)) {
        call.value(format, value.number);
    }
}

}  // namespace

// ---- Values ----

KVO_HANDLER(handle_get_station_type)
{
    replyValue({session, tag}, KVO_HWS_getStationType, "station-type=%d\r\n", "station-type not readable");
}

KVO_HANDLER(handle_get_sw_capslock)
{
    replyValue({session, tag}, KVO_HWS_getSwCapsLock, "sw-capslock=%d\r\n", "sw-capslock not readable");
}

KVO_HANDLER(handle_get_rv4mode) { replyValue({session, tag}, KVO_HWS_getRV4Mode, "rv4mode=%u\r\n", "rv4 mode not readable"); }

KVO_HANDLER(handle_get_usb_lock)
{
    const Call call(session, tag);
    uint32_t first = 0;
    uint32_t second = 0;
    if (call.succeeded(KVO_HWS_getUsbLock(focus(), &first, &second), "usb lock not readable")) {
        call.value("usb-lock=%u:%u\r\n", first, second);
    }
}

KVO_HANDLER(handle_show_input_devices)
{
    const Call call(session, tag);
    uint32_t keyboards = 0;
    uint32_t mice = 0;
    uint32_t touch = 0;
    uint32_t virtualKeyboard = 0;
    if (call.succeeded(KVO_HWS_showInputDeviceV2(focus(), &keyboards, &mice, &touch, &virtualKeyboard),
                       "input devices not readable")) {
        call.value("kbd=%u mouse=%u touch=%u vkbd=%d\r\n", keyboards, mice, touch, static_cast<int>(virtualKeyboard));
    }
}

// ---- Values of the control panel ----

KVO_HANDLER(handle_get_mcpaddr)
{
    replyPanelValue({session, tag}, KVO_HWS_getMCPAddress, kNoAddress, "mcpaddr=%u\r\n", "mcp addr not readable");
}

KVO_HANDLER(handle_get_dckaddr)
{
    replyPanelValue({session, tag}, KVO_HWS_getDCKAddress, kNoAddress, "dckaddr=%u\r\n", "dck addr not readable");
}

KVO_HANDLER(handle_get_cksindex)
{
    replyPanelValue({session, tag}, KVO_HWS_getKVOCksIndex, kNoAddress, "cksindex=%u\r\n", "cks index not readable");
}

KVO_HANDLER(handle_get_dckenable)
{
    replyPanelValue({session, tag}, KVO_HWS_getDCKEnable, 0, "dckenable=%u\r\n", "dck enable not readable");
}

// ---- Setters of numbers ----

KVO_HANDLER(handle_set_mcpaddr)
{
    setPanelValue({session, tag}, smallNumberOf(argument), KVO_HWS_setMCPAddress, "mcp addr not writeable");
}

KVO_HANDLER(handle_set_cksindex)
{
    setPanelValue({session, tag}, smallNumberOf(argument), KVO_HWS_setKVOCksIndex, "cks index not writeable");
}

KVO_HANDLER(handle_set_kvoindex)
{
    const Call call(session, tag);
    const std::optional<uint32_t> index = smallNumberOf(argument);
    if (call.accepts(index.has_value())) {
        kvo_hws::shared(gKvoIndex).store(*index);
        call.ok();
    }
}

KVO_HANDLER(handle_set_sw_capslock)
{
    setValue({session, tag}, capsLockOf(argument), KVO_HWS_setSwCapsLock, "sw-capslock not writeable");
}

// ---- Setters of flags ----

KVO_HANDLER(handle_set_dckenable)
{
    // The reason contains "kvo index": remote services rely on this text.
    setPanelValue({session, tag}, flagOf(argument), KVO_HWS_setDCKEnable, "kvo index not writeable");
}

KVO_HANDLER(handle_set_rv4mode) { setValue({session, tag}, flagOf(argument), KVO_HWS_setRV4Mode, "rv4 mode not writeable"); }

// ---- Metrics ----

KVO_HANDLER(handle_get_panel_oem_layout)
{
    const Call call(session, tag);
    Metric layout = {};
    if (readMetric(call, 1, layout, "panel oem layout not readable")) {
        call.value("panel-oem-layout=%.8s\r\n", layout.text);
    }
}

KVO_HANDLER(handle_get_softkey_type) { replyMetric({session, tag}, 2, "softkey-type=%u\r\n", "softkey type not readable"); }

KVO_HANDLER(handle_get_keyboard_caps) { replyMetric({session, tag}, 3, "keyboard-caps=%u\r\n", "keyboard caps not readable"); }

/// The reply has the key of the softkey type: programs that call this handler rely on it.
KVO_HANDLER(handle_get_display_dpi) { replyMetric({session, tag}, 4, "softkey-type=%u\r\n", "display dpi not readable"); }

KVO_HANDLER(handle_get_hardware_caps) { replyMetric({session, tag}, 5, "hardware-caps=%u\r\n", "hardware caps not readable"); }

KVO_HANDLER(handle_get_panel_rotation)
{
    replyMetric({session, tag}, 6, "panel-rotation=%X\r\n", "panel rotation not readable");
}

// ---- Touch and USB lock ----

KVO_HANDLER(handle_invalidate_calibration)
{
    const Call call(session, tag);
    switch (KVO_HWS_invalidateTouchScreen(focus())) {
    case KVO_HWS_OK: call.ok(); break;
    case KVO_HWS_NO: call.text("no_touchscreen\r\n"); break;
    default: call.failed(); break;
    }
}

KVO_HANDLER(handle_set_usb_lock)
{
    const Call call(session, tag);
    unsigned first = 0;
    unsigned second = 0;
    const int read = std::sscanf(argument, "%u:%u", &first, &second);  // NOLINT(cert-err34-c): keeps its parsing rules
    if (!call.accepts(read == 2 && first <= 1)) {
        return;
    }
    const Dotted station(focus());
    const char *hosts[] = {station.text()};
    if (call.succeeded(KVO_HWS_setUsbLock(1, hosts, static_cast<int>(first), static_cast<int>(second)),
                       "usb lock not writeable")) {
        call.ok();
    }
}
