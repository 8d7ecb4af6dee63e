/** @file
 *  The requests about one station, as methods of an object.
 */
#ifndef KVO_HWS_STATION_HPP
#define KVO_HWS_STATION_HPP

#include <kvo_hws/address.hpp>
#include <kvo_hws/detail/call.hpp>
#include <kvo_hws/values.hpp>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace kvo {

/** @cond internal */
namespace detail {

inline StationDescription station_of(const KvoDescription &record)
{
    return {Address(record.address), record.name, record.attr1, record.attr2, record.attr3};
}

inline StationDescriptionEx extended_station_of(const KvoDescriptionEx &record)
{
    return {{Address(record.address), record.name, record.attr1, record.attr2, record.attr3},
            record.extAttr1,
            record.extAttr2,
            record.extAttr3,
            record.extAttr4,
            record.extAttr5,
            record.extAttr6,
            record.extAttr7};
}

template <class Use>
Late<Use, Result<std::optional<StationDescriptionEx>>> describe(std::uint32_t address, const char *name)
{
    KvoDescriptionEx record{};
    const std::int32_t code = KVO_HWS_getDescriptionEx(address, name, &record);
    return stored_or_none<Use>("KVO_HWS_getDescriptionEx", code, extended_station_of(record));
}

}  // namespace detail
/** @endcond */

/** @defgroup kvo_cpp_station One station in C++
 *  @{
 */

/** A station: its address, and the requests about it. An object is only an address; to make one sends nothing.
 *
 *      const kvo::Station station("10.0.0.5");
 *      const std::uint32_t mcp = station.mcp_address().value();
 *
 *  Common to all methods that send a request, and not repeated below:
 *  - Each one calls the function of C that its comment names, sends the same request, and logs the same messages.
 *  - Errc::no_service: no connection to the service. Errc::failed: the service refused or sent an unknown reply, or the exchange
 *    broke. The comments name only other errors.
 *  - "No", "busy" and "not found" are values: false, or an empty optional.
 *  - A text that would not arrive as given is refused with Errc::invalid_text, and nothing is sent: one with a NUL byte or a line
 *    feed, one with a quotation mark where the request puts it between quotation marks, one that ends with a carriage return where
 *    it ends the request, and one with which the request is longer than 1023 bytes.
 *  - Any thread may call them, also for the same object. A call waits while another thread of the process exchanges a request,
 *    and then up to 4 s for each part of the reply. Memory that runs out throws std::bad_alloc.
 */
template <class Use>
class BasicStation {
    template <class T>
    using Result = detail::Late<Use, kvo::Result<T>>;

public:
    /** The station with this address. */
    constexpr BasicStation(Address address) noexcept
        : address_(address) {}  // NOLINT(*-explicit-*): an address is a station's name
    /** The station with the address in @p text, such as "10.0.0.5". If it is not a dotted quad, throws or ends the process as
     *  Result::value() does; read the texts of users with Address::parse().
     */
    KVO_HWS_EXCEPTIONS_TAG explicit BasicStation(std::string_view text) : address_(text) {}
    /** @copydoc BasicStation(std::string_view) */
    KVO_HWS_EXCEPTIONS_TAG explicit BasicStation(const char *text) : address_(text) {}

    /** The address. Sends nothing. */
    [[nodiscard]] constexpr Address address() const noexcept { return address_; }
    /** True if both have the same address. */
    friend constexpr bool operator==(BasicStation a, BasicStation b) noexcept { return a.address_ == b.address_; }
    /** True if their addresses differ. */
    friend constexpr bool operator!=(BasicStation a, BasicStation b) noexcept { return a.address_ != b.address_; }

    // ---- The list of known stations ----

    /** Reads the name and the attributes of the station.
     *  @return them; empty if the service does not know the station. Calls KVO_HWS_getDescriptionEx
     */
    [[nodiscard]] Result<std::optional<StationDescriptionEx>> description() const
    {
        return detail::describe<Use>(number(), nullptr);
    }

    // ---- Viewer, status line, focus and reboot ----

    /** Writes the status line.
     *  @param text            the line; at most 996 bytes with two numbers of one digit
     *  @param value1, value2  two numbers that the daemon defines
     *  @return Errc::invalid_text. Calls KVO_HWS_setStatusline
     */
    Result<void> set_statusline(const std::string &text, std::uint32_t value1 = 0, std::uint32_t value2 = 0) const
    {
        constexpr std::string_view command = "setStatusline=,,,";
        const std::size_t line =
            command.size() + detail::kStationDigits + detail::digits(value1) + detail::digits(value2) + text.size();
        if (const char *fault = detail::fault_of(line, {{text, detail::Place::last}})) {
            return detail::invalid_text("KVO_HWS_setStatusline", fault);
        }
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setStatusline), number(), value1, value2, text.c_str());
    }

    /** Reboots the station. Calls KVO_HWS_rebootKVO. */
    Result<void> reboot() const { return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_rebootKVO), number()); }

    /** Asks whether the viewer runs.
     *  @return true if it runs. Calls KVO_HWS_isViewerActive
     */
    [[nodiscard]] Result<bool> is_viewer_active() const
    {
        return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_isViewerActive), number());
    }

    /** Reads which server the viewer shows.
     *  @return the server and its display; empty if none is shown. Calls KVO_HWS_getCurrentServer
     */
    [[nodiscard]] Result<std::optional<CurrentServer>> current_server() const
    {
        // Both texts fit: the function of C reads at most 1024 characters of each.
        char server[1025] = "";
        char display[1025] = "";
        std::uint32_t server_size = sizeof server;
        std::uint32_t display_size = sizeof display;
        const std::int32_t code = KVO_HWS_getCurrentServer(number(), server, &server_size, display, &display_size);
        return detail::stored_or_none<Use>("KVO_HWS_getCurrentServer", code, CurrentServer{server, display});
    }

    /** Requests the focus for the station.
     *  @return false if busy. Calls KVO_HWS_setActivateMe
     */
    Result<bool> activate_me() const { return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_setActivateMe), number()); }

    /** Starts the viewer with the given connection data.
     *  @param part1, part2, part3  the connection data, sent as "part1:part2:part3"; at most 998 bytes together
     *  @return false if busy; Errc::invalid_text. Calls KVO_HWS_setStartViewer
     */
    Result<bool> start_viewer(const std::string &part1, const std::string &part2, const std::string &part3) const
    {
        constexpr std::string_view command = "startViewer=\"::\" ";
        using detail::Place;
        const std::size_t line = command.size() + detail::kStationDigits + part1.size() + part2.size() + part3.size();
        if (const char *fault =
                detail::fault_of(line, {{part1, Place::quoted}, {part2, Place::quoted}, {part3, Place::quoted}})) {
            return detail::invalid_text("KVO_HWS_setStartViewer", fault);
        }
        return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_setStartViewer), number(), part1.c_str(), part2.c_str(), part3.c_str());
    }

    /** Starts the viewer for a configured connection.
     *  @param text, connection  the connection, sent as "text:connection"; the text has at most 988 bytes with a number of one digit
     *  @return false if busy; Errc::invalid_text. Calls KVO_HWS_startConfiguredViewer
     */
    Result<bool> start_configured_viewer(const std::string &text, std::uint32_t connection) const
    {
        constexpr std::string_view command = "startConfiguredViewer=\":\" ";
        const std::size_t line = command.size() + detail::kStationDigits + detail::digits(connection) + text.size();
        if (const char *fault = detail::fault_of(line, {{text, detail::Place::quoted}})) {
            return detail::invalid_text("KVO_HWS_startConfiguredViewer", fault);
        }
        return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_startConfiguredViewer), number(), text.c_str(), connection);
    }

    /** Stops the viewer.
     *  @return false if it is not running. Calls KVO_HWS_setStopViewer
     */
    Result<bool> stop_viewer() const { return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_setStopViewer), number()); }

    /** Stops the viewer ahead of other waiting requests.
     *  @return false if it is not running. Calls KVO_HWS_setStopViewerPreempt
     */
    Result<bool> stop_viewer_preempt() const { return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_setStopViewerPreempt), number()); }

    /** Stops the viewer without cleaning up after it.
     *  @return false if it is not running. Calls KVO_HWS_setStopViewerNoClean
     */
    Result<bool> stop_viewer_no_clean() const { return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_setStopViewerNoClean), number()); }

    // ---- Settings of the panel ----

    /** Switches the brightness. Calls KVO_HWS_setBrightness. */
    Result<void> set_brightness(Brightness brightness) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setBrightness), number(), static_cast<unsigned>(brightness));
    }

    /** Sets the brightness of the backlight.
     *  @param level  0 to 100 percent
     *  @return Errc::out_of_range. Calls KVO_HWS_setBacklightBrightness
     */
    Result<void> set_backlight_brightness(std::uint32_t level) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setBacklightBrightness), number(), level);
    }

    /** Sets the brightness of the backlight in one of its modes.
     *  @param level  0 to 100 percent
     *  @param mode   0 or 1
     *  @return Errc::out_of_range; Errc::unsupported if the station does not know the mode; Errc::not_active if its backlight is
     *  not active. Calls KVO_HWS_setBacklightBrightnessV2
     */
    Result<void> set_backlight_brightness_v2(std::uint32_t level, std::uint32_t mode) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setBacklightBrightnessV2), number(), level, mode);
    }

    /** Reads the brightness of the backlight in one of its modes.
     *  @param mode  0 or 1
     *  @return the level, usually 0 to 100 percent; empty if the station does not know the mode; Errc::out_of_range. Calls
     *  KVO_HWS_getBacklightBrightnessV2
     */
    [[nodiscard]] Result<std::optional<std::uint32_t>> backlight_brightness_v2(std::uint32_t mode) const
    {
        std::uint32_t level = 0;
        const std::int32_t code = KVO_HWS_getBacklightBrightnessV2(number(), &level, mode);
        return detail::stored_or_none<Use>("KVO_HWS_getBacklightBrightnessV2", code, level);
    }

    /** Disables or enables the NumLock key.
     *  @param disable  true disables the key
     *
     *  Calls KVO_HWS_setDisableNumLock.
     */
    Result<void> set_disable_num_lock(bool disable) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setDisableNumLock), number(), std::uint32_t{disable});
    }

    /** Disables or enables the CapsLock key.
     *  @param disable  true disables the key
     *
     *  Calls KVO_HWS_setDisableCapsLock.
     */
    Result<void> set_disable_caps_lock(bool disable) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setDisableCapsLock), number(), std::uint32_t{disable});
    }

    /** Reads whether the NumLock key is disabled.
     *  @return true if it is disabled. Calls KVO_HWS_getDisableNumLock
     */
    [[nodiscard]] Result<bool> disable_num_lock() const
    {
        return detail::number_as<Use, bool>(KVO_HWS_CALL(KVO_HWS_getDisableNumLock), number());
    }

    /** Reads whether the CapsLock key is disabled.
     *  @return true if it is disabled. Calls KVO_HWS_getDisableCapsLock
     */
    [[nodiscard]] Result<bool> disable_caps_lock() const
    {
        return detail::number_as<Use, bool>(KVO_HWS_CALL(KVO_HWS_getDisableCapsLock), number());
    }

    /** Reads the type of the station.
     *  @return 0, 1 or -1. Calls KVO_HWS_getStationType
     */
    [[nodiscard]] Result<std::int32_t> station_type() const
    {
        return detail::number_as<Use, std::int32_t>(KVO_HWS_CALL(KVO_HWS_getStationType), number());
    }

    /** Reads the state of the software CapsLock.
     *  @return 0, 1 or -1. Calls KVO_HWS_getSwCapsLock
     */
    [[nodiscard]] Result<std::int32_t> sw_caps_lock() const
    {
        return detail::number_as<Use, std::int32_t>(KVO_HWS_CALL(KVO_HWS_getSwCapsLock), number());
    }

    /** Sets the state of the software CapsLock.
     *  @param state  0, 1 or -1
     *  @return Errc::failed also for another state. Calls KVO_HWS_setSwCapsLock
     */
    Result<void> set_sw_caps_lock(std::int32_t state) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setSwCapsLock), number(), state);
    }

    /** Reads the mode of the handheld terminal (type RV4).
     *  @return the mode, which may be a number without a name; empty if the station has no such terminal. Calls
     *  KVO_HWS_getRV4Mode
     */
    [[nodiscard]] Result<std::optional<Rv4Mode>> rv4_mode() const
    {
        std::uint32_t mode = 0;
        const std::int32_t code = KVO_HWS_getRV4Mode(number(), &mode);
        return detail::stored_or_none<Use>("KVO_HWS_getRV4Mode", code, Rv4Mode{mode});
    }

    /** Sets the mode of the handheld terminal (type RV4).
     *  @return false if the station has no such terminal; Errc::out_of_range for a mode without a name. Calls KVO_HWS_setRV4Mode
     */
    Result<bool> set_rv4_mode(Rv4Mode mode) const
    {
        return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_setRV4Mode), number(), static_cast<std::uint32_t>(mode));
    }

    // ---- Addresses ----

    /** Reads the address of the machine control panel (MCP) that the station serves.
     *  @return 0 to 255. Calls KVO_HWS_getMCPAddress
     */
    [[nodiscard]] Result<std::uint32_t> mcp_address() const
    {
        return detail::number<Use>(KVO_HWS_CALL(KVO_HWS_getMCPAddress), number());
    }

    /** Sets the address of the MCP that the station serves.
     *  @param mcp_address  0 to 255; sent without a check
     *
     *  Calls KVO_HWS_setMCPAddress.
     */
    Result<void> set_mcp_address(std::uint32_t mcp_address) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setMCPAddress), number(), mcp_address);
    }

    /** Reads the KVO index.
     *  @return 0 to 255. Calls KVO_HWS_getKVOIndex
     */
    [[nodiscard]] Result<std::uint32_t> index() const
    {
        return detail::number<Use>(KVO_HWS_CALL(KVO_HWS_getKVOIndex), number());
    }

    /** Sets the KVO index.
     *  @param index  0 to 255; sent without a check
     *
     *  Calls KVO_HWS_setKVOIndex.
     */
    Result<void> set_index(std::uint32_t index) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setKVOIndex), number(), index);
    }

    /** Reads whether the direct control keys (DCK) are on.
     *  @return true if they are on. Calls KVO_HWS_getDCKEnable
     */
    [[nodiscard]] Result<bool> dck_enable() const
    {
        return detail::number_as<Use, bool>(KVO_HWS_CALL(KVO_HWS_getDCKEnable), number());
    }

    /** Switches the direct control keys (DCK) on or off. Calls KVO_HWS_setDCKEnable. */
    Result<void> set_dck_enable(bool enable) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setDCKEnable), number(), std::uint32_t{enable});
    }

    /** Reads the address of the direct control keys (DCK).
     *  @return 0 to 255. Calls KVO_HWS_getDCKAddress
     */
    [[nodiscard]] Result<std::uint32_t> dck_address() const
    {
        return detail::number<Use>(KVO_HWS_CALL(KVO_HWS_getDCKAddress), number());
    }

    /** Reads the cks index.
     *  @return any number. Calls KVO_HWS_getKVOCksIndex
     */
    [[nodiscard]] Result<std::uint32_t> cks_index() const
    {
        return detail::number<Use>(KVO_HWS_CALL(KVO_HWS_getKVOCksIndex), number());
    }

    /** Sets the cks index.
     *  @param index  0 to 255
     *  @return Errc::out_of_range. Calls KVO_HWS_setKVOCksIndex
     */
    Result<void> set_cks_index(std::uint32_t index) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setKVOCksIndex), number(), index);
    }

    /** Simulates a key of the MCP.
     *  @param value1, value2  the key; sent without a check
     *
     *  Calls KVO_HWS_simulateMCPKey.
     */
    Result<void> simulate_mcp_key(std::uint32_t value1, std::uint32_t value2) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_simulateMCPKey), number(), value1, value2);
    }

    /** Enables a key of the MCP.
     *  @param value1, value2  the key; sent without a check
     *
     *  Calls KVO_HWS_enableMCPKey.
     */
    Result<void> enable_mcp_key(std::uint32_t value1, std::uint32_t value2) const
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_enableMCPKey), number(), value1, value2);
    }

    // ---- Focus, start and channel information ----

    /** Reads the suspend options.
     *  @return them. Calls KVO_HWS_getKVOPriority
     */
    [[nodiscard]] Result<Priority> priority() const
    {
        std::uint32_t lock = 0;
        std::uint32_t prio = 0;
        const std::int32_t code = KVO_HWS_getKVOPriority(number(), &lock, &prio);
        return detail::stored<Use>("KVO_HWS_getKVOPriority", code, Priority{lock != 0, prio});
    }

    /** Reads whether the station becomes active at start.
     *  @return 0 to 2. Calls KVO_HWS_getKVOStartupActive
     */
    [[nodiscard]] Result<std::uint32_t> startup_active() const
    {
        return detail::number<Use>(KVO_HWS_CALL(KVO_HWS_getKVOStartupActive), number());
    }

    /** Reads the priority with which the station becomes active at start.
     *  @return any number. Calls KVO_HWS_getKVOStartupPrio
     */
    [[nodiscard]] Result<std::uint32_t> startup_prio() const
    {
        return detail::number<Use>(KVO_HWS_CALL(KVO_HWS_getKVOStartupPrio), number());
    }

    /** Reads the channel that the station shows when it gets the focus.
     *  @return 1 to 8. Calls KVO_HWS_getKVOChannelOnFocus
     */
    [[nodiscard]] Result<std::uint32_t> channel_on_focus() const
    {
        return detail::number<Use>(KVO_HWS_CALL(KVO_HWS_getKVOChannelOnFocus), number());
    }

    /** Reads the screen that the station shows when it gets the focus.
     *  @return the text, of any length. Sends the request of KVO_HWS_getKVOScreenOnFocus, and logs its messages; that function
     *  itself would copy a text of any length to a buffer whose size it does not know
     */
    [[nodiscard]] Result<std::string> screen_on_focus() const
    {
        static constexpr detail::TextRequest request{"KVO_HWS_getKVOScreenOnFocus",
                                                     "getKVOScreenOnFocus=",
                                                     "screen-on-focus=",
                                                     "get KVO screen on focus - can not send request",
                                                     "get KVO screen on focus - error sending request",
                                                     "get KVO screen on focus - unknown error sending request"};
        return detail::read_text<Use>(request, address_);
    }

    /** Reads the M:N assignment, a text that the daemon defines.
     *  @return the text, of any length. Sends the request of KVO_HWS_getKVOT2M2N, and logs its messages; that function itself
     *  would copy a text of any length to a buffer whose size it does not know
     */
    [[nodiscard]] Result<std::string> t2m2n() const
    {
        static constexpr detail::TextRequest request{"KVO_HWS_getKVOT2M2N",
                                                     "getKVOt2m2n=",
                                                     "",
                                                     "get KVO M:N - can not send request",
                                                     "get KVO M:N - error sending request",
                                                     ""};
        return detail::read_text<Use>(request, address_);
    }

    /** Stores the channel information.
     *  @param info  at most 230 bytes
     *  @return Errc::invalid_text. Calls KVO_HWS_setChannelInfo
     */
    Result<void> set_channel_info(const std::string &info) const
    {
        // The function of C checks the length, and logs a message.
        if (const char *fault = detail::fault_of(0, {{info, detail::Place::quoted}})) {
            return detail::invalid_text("KVO_HWS_setChannelInfo", fault);
        }
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setChannelInfo), number(), info.c_str());
    }

    /** Reads the channel information.
     *  @return the text; empty if the station has none; Errc::too_small for more than a million bytes. Calls
     *  KVO_HWS_getChannelInfo, and again with more memory for a text of more than 4095 bytes
     */
    [[nodiscard]] Result<std::optional<std::string>> channel_info() const
    {
        return detail::text<Use>("KVO_HWS_getChannelInfo", [this](char *text, std::uint32_t *size) {
            return KVO_HWS_getChannelInfo(number(), text, size);
        });
    }

    /** Deletes the channel information. Calls KVO_HWS_deleteChannelInfo. */
    Result<void> delete_channel_info() const { return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_deleteChannelInfo), number()); }

    // ---- Touch screen, input devices and display ----

    /** Discards the touch calibration.
     *  @return false if the station has no touch screen. Calls KVO_HWS_invalidateTouchScreen
     */
    Result<bool> invalidate_touch_screen() const
    {
        return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_invalidateTouchScreen), number());
    }

    /** Reads the touch calibration.
     *  @return the calibration; empty if the station has no touch screen. Calls KVO_HWS_getTouchScreenCalibParam
     */
    [[nodiscard]] Result<std::optional<Calibration>> touch_screen_calib_param() const
    {
        Calibration calibration;
        const std::int32_t code =
            KVO_HWS_getTouchScreenCalibParam(number(), &calibration.press_threshold, &calibration.nonlinear);
        return detail::stored_or_none<Use>("KVO_HWS_getTouchScreenCalibParam", code, calibration);
    }

    /** Sets the touch calibration.
     *  @return false if the station has no touch screen; Errc::out_of_range. Calls KVO_HWS_setTouchScreenCalibParam
     */
    Result<bool> set_touch_screen_calib_param(Calibration calibration) const
    {
        return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_setTouchScreenCalibParam), number(), calibration.press_threshold,
                                calibration.nonlinear);
    }

    /** Counts the input devices.
     *  @return keyboards, mice, and touch devices including multi-touch devices. A count of 4294967295 cannot be distinguished
     *  from a missing one, and is empty. Calls KVO_HWS_showInputDevice
     */
    [[nodiscard]] Result<InputDevices> show_input_device() const
    {
        detail::Count keyboards;
        detail::Count mice;
        detail::Count touch;
        const std::int32_t code = KVO_HWS_showInputDevice(number(), &keyboards.value, &mice.value, &touch.value);
        return detail::stored<Use>("KVO_HWS_showInputDevice", code,
                                   InputDevices{keyboards.get(), mice.get(), touch.value, {}, {}, {}});
    }

    /** Counts the input devices. Works as show_input_device(), and counts virtual keyboards too. Calls
     *  KVO_HWS_showInputDeviceV2.
     */
    [[nodiscard]] Result<InputDevices> show_input_device_v2() const
    {
        detail::Count keyboards;
        detail::Count mice;
        detail::Count touch;
        detail::Count virtuals;
        const std::int32_t code =
            KVO_HWS_showInputDeviceV2(number(), &keyboards.value, &mice.value, &touch.value, &virtuals.value);
        return detail::stored<Use>("KVO_HWS_showInputDeviceV2", code,
                                   InputDevices{keyboards.get(), mice.get(), touch.value, {}, {}, virtuals.get()});
    }

    /** Counts the input devices, with separate numbers for the two kinds of touch devices.
     *  @return the numbers that the station reports. Calls KVO_HWS_showInputDeviceV3
     */
    [[nodiscard]] Result<InputDevices> show_input_device_v3() const
    {
        std::uint32_t mask = 0;
        std::uint32_t counts[6] = {};
        const std::int32_t code =
            KVO_HWS_showInputDeviceV3(number(), &mask, &counts[0], &counts[1], &counts[2], &counts[3], &counts[4], &counts[5]);
        InputDevices devices;
        std::optional<std::uint32_t> *const members[] = {&devices.keyboards,    &devices.mice,
                                                         &devices.touch,        &devices.multitouch,
                                                         &devices.max_contacts, &devices.virtual_keyboards};
        for (unsigned bit = 0; bit < 6; ++bit) {
            if ((mask >> bit & 1U) != 0) {
                *members[bit] = counts[bit];
            }
        }
        return detail::stored<Use>("KVO_HWS_showInputDeviceV3", code, devices);
    }

    /** Reads the resolution of the display.
     *  @return dots per inch. Calls KVO_HWS_showDPI
     */
    [[nodiscard]] Result<std::int32_t> show_dpi() const
    {
        return detail::number_as<Use, std::int32_t>(KVO_HWS_CALL(KVO_HWS_showDPI), number());
    }

    // ---- USB lock and connectors ----

    /** Reads the USB lock; Service::set_usb_lock() sets it.
     *  @return its two numbers. Calls KVO_HWS_getUsbLock
     */
    [[nodiscard]] Result<UsbLock> usb_lock() const
    {
        UsbLock lock;
        const std::int32_t code = KVO_HWS_getUsbLock(number(), &lock.first, &lock.second);
        return detail::stored<Use>("KVO_HWS_getUsbLock", code, lock);
    }

    /** Reads the list of the station's USB connectors.
     *  @return the list; "" if it is empty; Errc::refused; Errc::unknown_reply; Errc::busy; Errc::too_small for more than a
     *  million bytes. Calls KVO_HWS_getUsbConnectorListOne, and again with more memory for a list of more than 4095 bytes
     */
    [[nodiscard]] Result<std::string> usb_connector_list() const
    {
        return detail::text_or_empty<Use>("KVO_HWS_getUsbConnectorListOne", [this](char *text, std::uint32_t *size) {
            return KVO_HWS_getUsbConnectorListOne(number(), text, size);
        });
    }

    // ---- Metrics and the kind of panel ----

    /** Reads a metric that is a number.
     *  @return the number; Errc::not_available if the station does not report this metric; Errc::unknown_reply for a malformed
     *  value; Errc::out_of_range for a metric without a name. Calls KVO_HWS_getStationMetrics
     */
    [[nodiscard]] Result<std::uint32_t> metric(Metric metric) const
    {
        // The text is not a number; the function of C refuses the metric 0.
        const auto id = static_cast<std::uint32_t>(metric);
        const std::uint32_t asked = id == detail::kPanelLayout ? 0 : id;
        std::uint32_t value[2] = {};
        const std::int32_t code = KVO_HWS_getStationMetrics(number(), asked, value);
        return detail::stored<Use>("KVO_HWS_getStationMetrics", code, value[0]);
    }

    /** Reads the layout of the panel.
     *  @return 1 to 7 characters; Errc::not_available if the station does not report it; Errc::unknown_reply for a malformed
     *  value. Calls KVO_HWS_getStationMetrics
     */
    [[nodiscard]] Result<std::string> panel_layout() const
    {
        char layout[8] = "";
        const std::int32_t code = KVO_HWS_getStationMetrics(number(), detail::kPanelLayout, layout);
        return detail::stored<Use>("KVO_HWS_getStationMetrics", code, std::string(layout));
    }

    /** Asks whether the panel is a Marovanti panel.
     *  @return true if it is one; Errc::refused if the panel was not found or the daemon failed; Errc::unknown_reply. Calls
     *  KVO_HWS_isMarovantiPanel
     */
    [[nodiscard]] Result<bool> is_marovanti_panel() const
    {
        return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_isMarovantiPanel), number());
    }

private:
    [[nodiscard]] constexpr std::uint32_t number() const noexcept { return address_.number(); }

    Address address_;
};

/** The class to use. It is a template only because the methods of templates cost compile time only where they are called. */
using Station = BasicStation<void>;

/** @} */

}  // namespace kvo

#endif
