// Commands that are answered by asking the local hardware service about the station in focus. Each kind is one function here,
// and each of its members a call of it with the request and the texts that are its own.
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

constexpr uint32_t kNoAddress = 255;  // told for a station without a control panel

template <class Number>
using Getter = int32_t (*)(uint32_t station, Number *value);

template <class Number>
using Setter = int32_t (*)(uint32_t station, Number value);

bool consistsOf(std::string_view text, std::string_view characters) noexcept
{
    return text.find_first_not_of(characters) == std::string_view::npos;
}

/// Digits alone, below 256; none at all are 0, as remote services send it.
std::optional<uint32_t> smallNumberOf(const char *argument) noexcept
{
    const unsigned long value = kvo_hws::readNumber(argument, 10).value;
    if (!consistsOf(argument, "0123456789") || value > UINT8_MAX) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(value);
}

/// Digits and minus signs alone, read as far as they are a number, so that "" and "-" are 0 and "1-" is 1; -1, 0 or 1.
std::optional<int32_t> capsLockOf(const char *argument) noexcept
{
    const long value = kvo_hws::readSigned(argument).value;
    if (!consistsOf(argument, "-0123456789") || value < -1 || value > 1) {
        return std::nullopt;
    }
    return static_cast<int32_t>(value);
}

/// Tells a value of the station.
template <class Number>
void tell(const Call &call, Getter<Number> get, const char *format, const char *failure) noexcept
{
    Number value = 0;
    if (call.worked(get(focus(), &value), failure)) {
        call.value(format, value);
    }
}

/// Tells a value of the control panel; @p otherwise for a station without one, about which the service is not asked.
void tellOfPanel(const Call &call, Getter<uint32_t> get, uint32_t otherwise, const char *format, const char *failure) noexcept
{
    uint32_t value = otherwise;
    if (!hasControlPanel() || call.worked(get(focus(), &value), failure)) {
        call.value(format, value);
    }
}

/// Sets a value of the station, where the argument was one.
template <class Number>
void set(const Call &call, std::optional<Number> value, Setter<Number> request, const char *failure) noexcept
{
    if (call.accepts(value.has_value()) && call.worked(request(focus(), *value), failure)) {
        call.ok();
    }
}

/// Sets a value of the control panel; that of a station without one is set by saying so.
void setPanel(const Call &call, std::optional<uint32_t> value, Setter<uint32_t> request, const char *failure) noexcept
{
    if (call.accepts(value.has_value()) && (!hasControlPanel() || call.worked(request(focus(), *value), failure))) {
        call.ok();
    }
}

/// What a metric's request stores: a text, or a number in its beginning.
union Metric {
    char text[8];
    uint32_t number;
};

/// Whether the station knows the metric; where it does not, that is the reply.
bool readMetric(const Call &call, uint32_t metric, Metric &value, const char *failure) noexcept
{
    const int32_t result = KVO_HWS_getStationMetrics(focus(), metric, &value);
    if (result == KVO_HWS_NOT_AVAILABLE) {
        call.text("none");  // without a line end, unlike all other replies: remote services wait for these four letters
        return false;
    }
    return call.worked(result, failure);
}

/// Tells a metric that is a number.
void tellMetric(const Call &call, uint32_t metric, const char *format, const char *failure) noexcept
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
    tell({session, tag}, KVO_HWS_getStationType, "station-type=%d\r\n", "station-type not readable");
}

KVO_HANDLER(handle_get_sw_capslock)
{
    tell({session, tag}, KVO_HWS_getSwCapsLock, "sw-capslock=%d\r\n", "sw-capslock not readable");
}

KVO_HANDLER(handle_get_rv4mode) { tell({session, tag}, KVO_HWS_getRV4Mode, "rv4mode=%u\r\n", "rv4 mode not readable"); }

KVO_HANDLER(handle_get_usb_lock)
{
    const Call call(session, tag);
    uint32_t first = 0;
    uint32_t second = 0;
    if (call.worked(KVO_HWS_getUsbLock(focus(), &first, &second), "usb lock not readable")) {
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
    if (call.worked(KVO_HWS_showInputDeviceV2(focus(), &keyboards, &mice, &touch, &virtualKeyboard),
                    "input devices not readable")) {
        call.value("kbd=%u mouse=%u touch=%u vkbd=%d\r\n", keyboards, mice, touch, static_cast<int>(virtualKeyboard));
    }
}

// ---- Values of the control panel ----

KVO_HANDLER(handle_get_mcpaddr)
{
    tellOfPanel({session, tag}, KVO_HWS_getMCPAddress, kNoAddress, "mcpaddr=%u\r\n", "mcp addr not readable");
}

KVO_HANDLER(handle_get_dckaddr)
{
    tellOfPanel({session, tag}, KVO_HWS_getDCKAddress, kNoAddress, "dckaddr=%u\r\n", "dck addr not readable");
}

KVO_HANDLER(handle_get_cksindex)
{
    tellOfPanel({session, tag}, KVO_HWS_getKVOCksIndex, kNoAddress, "cksindex=%u\r\n", "cks index not readable");
}

KVO_HANDLER(handle_get_dckenable)
{
    tellOfPanel({session, tag}, KVO_HWS_getDCKEnable, 0, "dckenable=%u\r\n", "dck enable not readable");
}

// ---- Setters of numbers ----

KVO_HANDLER(handle_set_mcpaddr)
{
    setPanel({session, tag}, smallNumberOf(argument), KVO_HWS_setMCPAddress, "mcp addr not writeable");
}

KVO_HANDLER(handle_set_cksindex)
{
    setPanel({session, tag}, smallNumberOf(argument), KVO_HWS_setKVOCksIndex, "cks index not writeable");
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
    set({session, tag}, capsLockOf(argument), KVO_HWS_setSwCapsLock, "sw-capslock not writeable");
}

// ---- Setters of flags ----

KVO_HANDLER(handle_set_dckenable)
{
    // The reason names the index, and remote services know it by that.
    setPanel({session, tag}, flagOf(argument), KVO_HWS_setDCKEnable, "kvo index not writeable");
}

KVO_HANDLER(handle_set_rv4mode) { set({session, tag}, flagOf(argument), KVO_HWS_setRV4Mode, "rv4 mode not writeable"); }

// ---- Metrics ----

KVO_HANDLER(handle_get_panel_oem_layout)
{
    const Call call(session, tag);
    Metric layout = {};
    if (readMetric(call, 1, layout, "panel oem layout not readable")) {
        call.value("panel-oem-layout=%.8s\r\n", layout.text);
    }
}

KVO_HANDLER(handle_get_softkey_type) { tellMetric({session, tag}, 2, "softkey-type=%u\r\n", "softkey type not readable"); }

KVO_HANDLER(handle_get_keyboard_caps) { tellMetric({session, tag}, 3, "keyboard-caps=%u\r\n", "keyboard caps not readable"); }

/// Replies under the softkey type's key; programs that call it go by that.
KVO_HANDLER(handle_get_display_dpi) { tellMetric({session, tag}, 4, "softkey-type=%u\r\n", "display dpi not readable"); }

KVO_HANDLER(handle_get_hardware_caps) { tellMetric({session, tag}, 5, "hardware-caps=%u\r\n", "hardware caps not readable"); }

KVO_HANDLER(handle_get_panel_rotation)
{
    tellMetric({session, tag}, 6, "panel-rotation=%X\r\n", "panel rotation not readable");
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
    const int read = std::sscanf(argument, "%u:%u", &first, &second);  // NOLINT(cert-err34-c): as it has always read them
    if (!call.accepts(read == 2 && first <= 1)) {
        return;
    }
    const Dotted station(focus());
    const char *hosts[] = {station.text()};
    if (call.worked(KVO_HWS_setUsbLock(1, hosts, static_cast<int>(first), static_cast<int>(second)),
                    "usb lock not writeable")) {
        call.ok();
    }
}
