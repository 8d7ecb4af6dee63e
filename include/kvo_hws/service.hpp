/** @file
 *  The requests about the service, the panel that the program runs on, and all stations, as functions of a class without state.
 */
#ifndef KVO_HWS_SERVICE_HPP
#define KVO_HWS_SERVICE_HPP

#include <kvo_hws/address.hpp>
#include <kvo_hws/detail/call.hpp>
#include <kvo_hws/station.hpp>
#include <kvo_hws/usbevents.h>
#include <kvo_hws/values.hpp>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvo {

/** @cond internal */
namespace detail {

/* Addresses of a registry list are stored as inet_addr stores them: in network byte order. */
inline StationDescription registry_station_of(const KvoDescription &record)
{
    unsigned char bytes[4];
    std::memcpy(bytes, &record.address, sizeof bytes);
    StationDescription station = station_of(record);
    station.address = Address(std::uint32_t{bytes[0]} << 24U | std::uint32_t{bytes[1]} << 16U | std::uint32_t{bytes[2]} << 8U |
                              std::uint32_t{bytes[3]});
    return station;
}

inline Client client_of(const KvoClientEntry &record) { return {record.value, record.name}; }

inline std::uint32_t whole_seconds(std::chrono::seconds time) noexcept
{
    if (time.count() < 0) {
        return 0;
    }
    return time.count() > 0xFFFFFFFF ? 0xFFFFFFFF : static_cast<std::uint32_t>(time.count());
}

/* The address that a look-up by number stores. */
template <class Use>
Late<Use, Result<std::optional<Address>>> look_up(const char *name, std::int32_t (*function)(std::uint32_t, std::uint32_t *),
                                                  std::uint32_t key)
{
    std::uint32_t address = 0;
    const std::int32_t code = function(key, &address);
    return stored_or_none<Use>(name, code, Address(address));
}

}  // namespace detail
/** @endcond */

/** @defgroup kvo_cpp_service The service in C++
 *  @{
 */

/** The hardware service: the requests that are not about one station. The class has no state; write `kvo::Service::version()`.
 *
 *  What kvo::Station says about errors, texts, threads and messages holds here too.
 */
template <class Use>
class BasicService {
    template <class T>
    using Result = detail::Late<Use, kvo::Result<T>>;

public:
    // ---- Basic requests ----

    /** Asks whether the daemon has finished starting.
     *  @return false if it is still starting. Calls KVO_HWS_isInitComplete
     */
    [[nodiscard]] static Result<bool> is_init_complete() { return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_isInitComplete)); }

    /** Reads the daemon's version text.
     *  @return the text, of any length; it is not checked. Sends the request of KVO_HWS_getKVOHWSVersion, and logs its messages;
     *  that function itself does not distinguish a small buffer from a broken exchange
     */
    [[nodiscard]] static Result<std::string> version()
    {
        static constexpr detail::TextRequest request{
            "KVO_HWS_getKVOHWSVersion", "getVersion", "", "get KVO HWS version - can not send request", nullptr, ""};
        return detail::read_text<Use>(request, request.command);
    }

    /** Reads the daemon's debug level.
     *  @return the level. Calls KVO_HWS_getDebugLevel
     */
    [[nodiscard]] static Result<DebugLevel> debug_level()
    {
        const std::int32_t level = KVO_HWS_getDebugLevel();
        if (level < 0) {
            return Error("KVO_HWS_getDebugLevel", level);
        }
        return DebugLevel{level};
    }

    /** Sets the daemon's debug level. Calls KVO_HWS_setDebugLevel. */
    static Result<void> set_debug_level(DebugLevel level)
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setDebugLevel), static_cast<int>(level));
    }

    /** Switches the panel's backlight. Calls KVO_HWS_setBacklight. */
    static Result<void> set_backlight(Backlight mode)
    {
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setBacklight), static_cast<unsigned>(mode));
    }

    /** Acquires the daemon's lock on its registry files.
     *  @return false if another client has the lock; try again. Errc::failed also if no service answers. Calls
     *  KVO_HWS_lockKVORegData
     */
    static Result<bool> lock_registry() { return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_lockKVORegData)); }

    /** Releases the daemon's lock on its registry files.
     *  @return Errc::failed also if no service answers. Calls KVO_HWS_unlockKVORegData
     */
    static Result<void> unlock_registry() { return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_unlockKVORegData)); }

    /** Asks the service to end. Calls KVO_HWS_killDaemon. */
    static Result<void> kill_daemon() { return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_killDaemon)); }

    // ---- Lists: each is asked again until it fits, and each call begins with room for 64 elements, or as many as the last ----

    /** Reads the list of all stations that the daemon knows.
     *  @return the stations; Errc::too_small if the list grew with each of 8 attempts, or has more than a million stations. Calls
     *  KVO_HWS_getDescriptionList
     */
    [[nodiscard]] static Result<std::vector<StationDescription>> description_list()
    {
        return detail::list<Use>(
            "KVO_HWS_getDescriptionList", detail::List::stations, detail::station_of,
            [](KvoDescription *list, std::uint32_t *count) { return KVO_HWS_getDescriptionList(list, count); });
    }

    /** Reads the list of all stations with their extended attributes.
     *  @return as description_list(). Calls KVO_HWS_getDescriptionListEx
     */
    [[nodiscard]] static Result<std::vector<StationDescriptionEx>> description_list_ex()
    {
        return detail::list<Use>(
            "KVO_HWS_getDescriptionListEx", detail::List::stations_ex, detail::extended_station_of,
            [](KvoDescriptionEx *list, std::uint32_t *count) { return KVO_HWS_getDescriptionListEx(list, count); });
    }

    /** Finds a station by its name; Station::description() finds one by its address.
     *  @param name  at most 1007 bytes
     *  @return the station; empty if no station has this name; Errc::invalid_text. Calls KVO_HWS_getDescriptionEx
     */
    [[nodiscard]] static Result<std::optional<StationDescriptionEx>> description(const std::string &name)
    {
        constexpr std::string_view command = "getExDescByName ";
        if (const char *fault = detail::fault_of(command.size() + name.size(), {{name, detail::Place::last}})) {
            return detail::invalid_text("KVO_HWS_getDescriptionEx", fault);
        }
        return detail::describe<Use>(0, name.c_str());
    }

    /** Reads the station list that the daemon saved to disk at its last start, under the daemon's registry lock. Names are cut at
     *  259 bytes. Stations whose attr1 is 0 are not included.
     *  @param timeout  longest wait for the lock, from 0 s; the lock is tried at least once
     *  @return the stations; empty if the daemon is still starting; Errc::timeout if the lock was not obtained in time;
     *  Errc::failed also if the file cannot be read; Errc::too_small as for description_list(). Calls
     *  KVO_HWS_getKVOPreviousListFromRegistry
     */
    [[nodiscard]] static Result<std::optional<std::vector<StationDescription>>>
    previous_list_from_registry(std::chrono::seconds timeout)
    {
        return detail::list_or_none<Use>("KVO_HWS_getKVOPreviousListFromRegistry", detail::List::previous,
                                         detail::registry_station_of, [timeout](KvoDescription *list, std::uint32_t *count) {
                                             return KVO_HWS_getKVOPreviousListFromRegistry(list, count,
                                                                                           detail::whole_seconds(timeout));
                                         });
    }

    /** Reads the station list that the daemon has on disk now. Works as previous_list_from_registry(). Calls
     *  KVO_HWS_getKVOCurrentListFromRegistry.
     */
    [[nodiscard]] static Result<std::optional<std::vector<StationDescription>>>
    current_list_from_registry(std::chrono::seconds timeout)
    {
        return detail::list_or_none<Use>("KVO_HWS_getKVOCurrentListFromRegistry", detail::List::current,
                                         detail::registry_station_of, [timeout](KvoDescription *list, std::uint32_t *count) {
                                             return KVO_HWS_getKVOCurrentListFromRegistry(list, count,
                                                                                          detail::whole_seconds(timeout));
                                         });
    }

    /** Reads the list of connected clients.
     *  @param flags  flags that the daemon defines; sent without a check
     *  @return the clients; Errc::too_small as for description_list(). Calls KVO_HWS_getClientList
     */
    [[nodiscard]] static Result<std::vector<Client>> client_list(unsigned long flags = 0)
    {
        return detail::list<Use>(
            "KVO_HWS_getClientList", detail::List::clients, detail::client_of,
            [flags](KvoClientEntry *list, std::uint32_t *count) { return KVO_HWS_getClientList(list, count, flags); });
    }

    // ---- Finding stations ----

    /** Finds the station that serves the machine control panel (MCP) with an address.
     *  @return the station's address; empty if there is none; Errc::ambiguous if there are several. Calls
     *  KVO_HWS_getIPbyMCPAddress
     */
    [[nodiscard]] static Result<std::optional<Address>> ip_by_mcp_address(std::uint32_t mcp_address)
    {
        return detail::look_up<Use>(KVO_HWS_CALL(KVO_HWS_getIPbyMCPAddress), mcp_address);
    }

    /** Finds the station that has an address of direct control keys (DCK). Works as ip_by_mcp_address(). Calls
     *  KVO_HWS_getIPbyDCKAddress.
     */
    [[nodiscard]] static Result<std::optional<Address>> ip_by_dck_address(std::uint32_t dck_address)
    {
        return detail::look_up<Use>(KVO_HWS_CALL(KVO_HWS_getIPbyDCKAddress), dck_address);
    }

    /** Finds the station that has a KVO index. Works as ip_by_mcp_address(). Calls KVO_HWS_getIPbyKVOIndex. */
    [[nodiscard]] static Result<std::optional<Address>> ip_by_index(std::uint32_t index)
    {
        return detail::look_up<Use>(KVO_HWS_CALL(KVO_HWS_getIPbyKVOIndex), index);
    }

    // ---- USB lock, connectors and events ----

    /** Sets the USB lock of stations with datagrams on the panel's internal network. Sends nothing to the service and waits for no
     *  reply.
     *  @param stations  at least one; 0.0.0.0 stands for every station
     *  @param lock      sent without a check
     *  @return Errc::failed if no datagram was sent; Errc::invalid_address for 127.0.0.1; Errc::out_of_range if no station is
     *  given. Calls KVO_HWS_setUsbLock
     */
    static Result<void> set_usb_lock(const std::vector<Address> &stations, UsbLock lock)
    {
        if (stations.empty()) {
            // The function of C would lock every station.
            return Error("KVO_HWS_setUsbLock", KVO_HWS_OUT_OF_RANGE, Errc::out_of_range,
                         "no station is given; to set the lock of every station, call set_usb_lock_everywhere()");
        }
        detail::Late<Use, std::vector<std::string>> texts;
        detail::Late<Use, std::vector<const char *>> hosts;
        texts.reserve(stations.size());
        hosts.reserve(stations.size());
        for (const Address station : stations) {
            texts.push_back(station.to_string());
            hosts.push_back(texts.back().c_str());
        }
        return detail::done<Use>(KVO_HWS_CALL(KVO_HWS_setUsbLock), static_cast<std::uint32_t>(hosts.size()), hosts.data(),
                                 static_cast<int>(lock.first), static_cast<int>(lock.second));
    }

    /** Sets the USB lock of every station. Works as set_usb_lock(). */
    static Result<void> set_usb_lock_everywhere(UsbLock lock) { return set_usb_lock({Address()}, lock); }

    /** Reads the list of the USB connectors of all stations. Works as Station::usb_connector_list(). Calls
     *  KVO_HWS_getUsbConnectorList.
     */
    [[nodiscard]] static Result<std::string> usb_connector_list()
    {
        return detail::text_or_empty<Use>(KVO_HWS_CALL(KVO_HWS_getUsbConnectorList));
    }

    /** Asks whether a program has activated USB events.
     *  @return true if one has; Errc::failed also if no service answers. Calls KVO_HWS_isUSBEventsActivated
     */
    [[nodiscard]] static Result<bool> is_usb_events_activated()
    {
        return detail::yes<Use>(KVO_HWS_CALL(KVO_HWS_isUSBEventsActivated));
    }
};

/** The class to use, as `kvo::Station`. */
using Service = BasicService<void>;

/** Reads the library's version text, the same in every build; KVO_HWS_VERSION_STRING is the version of these headers. Sends
 *  nothing.
 *  @return 12 characters. Calls KVO_HWS_getDLLVersion
 */
template <class Use = void>
[[nodiscard]] detail::Late<Use, Result<std::string>> library_version()
{
    char version[13] = "";
    unsigned size = sizeof version;
    const std::int32_t code = KVO_HWS_getDLLVersion(version, &size);
    return detail::stored<Use>("KVO_HWS_getDLLVersion", code, std::string(version));
}

/** Enables the most verbose logging of this process: debug level 2, and the channel of debug messages. Calls
 *  KVO_HWS_activateDebugDLL.
 */
inline void activate_debug() { KVO_HWS_activateDebugDLL(); }

/** Ends the logging that activate_debug() enables: debug level 0, and no debug messages. Calls KVO_HWS_deactivateDebugDLL. */
inline void deactivate_debug() { KVO_HWS_deactivateDebugDLL(); }

/** @} */

}  // namespace kvo

#endif
