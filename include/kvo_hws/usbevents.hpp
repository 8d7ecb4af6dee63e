/** @file
 *  USB events of all stations: a device was plugged in, removed or refused, or changed its state.
 *
 *      auto events = kvo::UsbEvents::activate([](const kvo::UsbEvent &event) {
 *          if (const auto *device = std::get_if<kvo::UsbNewDevice>(&event)) {
 *              std::printf("%s: %s\n", device->ip_address.c_str(), device->text4.c_str());
 *          }
 *          return true;
 *      });
 *
 *  Only one program of a panel receives the events at a time, and in it only one object: a program that activates them takes
 *  them over, and the previous program receives UsbStatus::deactivated.
 */
#ifndef KVO_HWS_USBEVENTS_HPP
#define KVO_HWS_USBEVENTS_HPP

#include <kvo_hws/address.hpp>
#include <kvo_hws/detail/late.hpp>
#include <kvo_hws/requests.hpp>
#include <kvo_hws/usbevents.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <variant>

namespace kvo {

/** @defgroup kvo_cpp_usb_events USB events in C++
 *  @{
 */

/** The progress of an activation. The values are those of UsbEventCode. */
enum class UsbStatus : std::uint32_t {
    activated = USB_EVENT_ACTIVATED,         /**< the service has accepted the activation: events follow */
    deactivated = USB_EVENT_DEACTIVATED,     /**< the events have ended: another program took them over, or a call of
                                                KVO_HWS_closeUSBEvents closed them */
    begin = USB_EVENT_BEGIN,                 /**< the activation begins */
    server_failed = USB_EVENT_SERVER_FAILED, /**< the events have ended: a server could not be stopped or started */
    refused = USB_EVENT_REFUSED,             /**< the events have ended: the service did not reply "ok" */
    no_service = USB_EVENT_NO_SERVICE        /**< the events have ended: the service sent no reply */
};

/** True if no events follow this status: the object has only to be destroyed. */
[[nodiscard]] constexpr bool is_final(UsbStatus status) noexcept
{
    return status != UsbStatus::activated && status != UsbStatus::begin;
}

/** What the events of devices have in common. The two idents identify a device of a station. */
struct UsbDeviceEvent {
    std::string ip_address; /**< the station, as the service sent it: usually a dotted quad */
    std::string ident2;     /**< identifies the device within the station, together with ident3 */
    std::string ident3;     /**< see ident2 */
    bool late = false;      /**< the handler begins too late: the service has been answered "failed". Only with Requests */

    /** The station.
     *  @return the address; Errc::invalid_address if the service sent something else
     */
    [[nodiscard]] Result<Address> station() const { return Address::parse(ip_address); }
};

/** The bits of UsbNewDevice::flag_bits. */
enum class UsbDeviceFlag : std::uint8_t {
    id1_bit0 = 1,       /**< bit 0 of the device's id1 */
    id2_bit0 = 2,       /**< bit 0 of the device's id2 */
    id2_bit1 = 4,       /**< bit 1 of the device's id2 */
    flag_word_bit31 = 8 /**< bit 31 of the flag word */
};

/** A device was plugged in. */
struct UsbNewDevice : UsbDeviceEvent {
    std::string text4;           /**< text of the device, at most 21 bytes */
    std::string text5;           /**< text of the device, at most 9 bytes */
    std::string text6;           /**< text of the device, at most 39 bytes */
    std::string text7;           /**< text of the device, at most 39 bytes */
    std::uint32_t number1 = 0;   /**< number of the device */
    std::uint32_t number2 = 0;   /**< number of the device */
    std::uint32_t flag_word = 0; /**< flags; the daemon defines their meaning */
    std::uint8_t flag_bits = 0;  /**< flags, see UsbDeviceFlag */

    /** True if a flag is set. */
    [[nodiscard]] constexpr bool has(UsbDeviceFlag flag) const noexcept
    {
        return (flag_bits & static_cast<std::uint8_t>(flag)) != 0;
    }
};

/** A device was plugged in, and the service refused it. */
struct UsbDeviceRefused : UsbDeviceEvent {
    std::string text4;         /**< text of the device, at most 21 bytes */
    std::string text5;         /**< text of the device, at most 9 bytes */
    std::string text8;         /**< text of the device, at most 79 bytes */
    std::uint32_t number1 = 0; /**< number of the device */
    std::uint32_t number2 = 0; /**< number of the device */
    std::uint16_t number3 = 0; /**< the low 8 bits of the number that the service sent */
};

/** A device changed its state. */
struct UsbStateChanged : UsbDeviceEvent {
    std::uint32_t state = 0; /**< the new state */
};

/** A device was removed. */
struct UsbDeviceRemoved : UsbDeviceEvent {};

/** A USB event: a status, or an event of a device. */
using UsbEvent = std::variant<UsbStatus, UsbNewDevice, UsbDeviceRemoved, UsbStateChanged, UsbDeviceRefused>;

/** @} */

}  // namespace kvo

#include <kvo_hws/detail/usbevents.hpp>

namespace kvo {

/** @addtogroup kvo_cpp_usb_events
 *  @{
 */

/** The USB events of all stations, from the activation until the destruction. Can be moved.
 *
 *  An object may be used in one thread at a time. The handler's calls end as follows:
 *  - Destruction and close() wait for the calls that run. In the handler itself, on the same thread, they wait for none, and not
 *    for the service to confirm the end; the next activation waits for that.
 *  - A call that begins after that finds the object closed: the handler is not called, and the service is answered "failed".
 *  - The handler lives until its last call has returned.
 */
template <class Use>
class BasicUsbEvents {
    template <class T>
    using Result = detail::Late<Use, kvo::Result<T>>;

public:
    /** The handler: returns true if it has handled the event, and false to answer the service "failed". The answer to a status
     *  is ignored. An exception counts as false, but only if the unit that activates is compiled with exceptions: in a unit
     *  without them, a handler must not throw.
     *
     *  Without a Requests, the library calls it on threads of its own, several at a time, and UsbStatus::begin and
     *  UsbStatus::server_failed before activate() returns. The service waits 4 s for the answer. The handler may call every
     *  function of the library, and may destroy the object and activate another one. It must not end its thread.
     */
    using Handler = std::function<bool(const UsbEvent &)>;

    /** Activates the events. The handler receives the outcome: UsbStatus::begin before this function returns, then
     *  UsbStatus::activated or a final status. The activation waits without a limit until the service is ready.
     *  @param handler  receives the events; the thread that activates must not hold a lock that the handler takes
     *  @return the events; Errc::already_running the process has USB events already (another object, or a call of
     *  KVO_HWS_activateUSBEvents or KVO_HWS_activateUSBEventsV2), Errc::null_pointer the
     *  handler is empty, Errc::server_failed a server could not be stopped or started (the handler received
     *  UsbStatus::server_failed), Errc::no_thread
     *
     *  Takes up to some seconds (KVO_HWS_activateUSBEvents lists the times); a program with an event loop can do it in a
     *  request of its Requests. If the previous object is just being closed, also waits for that. Calls
     *  KVO_HWS_activateUSBEventsV2 on a thread of its own, because that function detaches its caller. Safe from any thread.
     */
    template <class Event = UsbEvent>
    [[nodiscard]] static Result<BasicUsbEvents> activate(Handler handler)
    {
        return activated<Event>(std::move(handler), nullptr);
    }

    /** As activate(Handler), but the handler is called where the program calls @p requests' dispatch().
     *  @param requests  the loop; it may be destroyed before the object, then every event is answered "failed"
     *  @param handler   receives the events. If it throws, the event is answered "failed", and the exception leaves dispatch()
     *  @return as activate(Handler); also Errc::not_running @p requests was closed or moved from
     *
     *  The library's thread waits at most 3.5 s for the handler's answer. After that, the service is answered "failed", and the
     *  handler still receives the event, marked as late. A status is queued and never waited for, so this function and the
     *  destruction do not need dispatch(). Destruction answers the events that still wait with "failed".
     */
    template <class Event = UsbEvent>
    [[nodiscard]] static Result<BasicUsbEvents> activate(Requests &requests, Handler handler)
    {
        std::shared_ptr<detail::Loop> loop = requests.loop();
        if (loop == nullptr || loop->descriptor() < 0) {
            return Error("KVO_HWS_activateUSBEventsV2", KVO_HWS_FAILED, Errc::not_running,
                         "the Requests was closed or moved from: create another one");
        }
        return activated<Event>(std::move(handler), std::move(loop));
    }

    /** Takes the events over from @p other, which is closed then. */
    BasicUsbEvents(BasicUsbEvents &&other) noexcept = default;
    /** Closes the object, then takes the events over from @p other. */
    BasicUsbEvents &operator=(BasicUsbEvents &&other) noexcept
    {
        if (this != &other) {
            static_cast<void>(close());
            state_ = std::move(other.state_);
        }
        return *this;
    }
    /** An object cannot be copied. */
    BasicUsbEvents(const BasicUsbEvents &) = delete;
    /** An object cannot be copied. */
    BasicUsbEvents &operator=(const BasicUsbEvents &) = delete;
    /** Closes the object. If no thread can be created for that, every event is answered "failed" until the next activation, which
     *  is possible, or KVO_HWS_closeUSBEvents.
     */
    ~BasicUsbEvents() { static_cast<void>(close()); }

    /** True after the service has accepted the activation, until the events end. Also false after this program has taken the
     *  events over with KVO_HWS_activateUSBEvents or KVO_HWS_activateUSBEventsV2, which no status reports.
     */
    [[nodiscard]] bool active() const noexcept
    {
        return state_ != nullptr && state_->is_active() && state_->registry->has_slot();
    }

    /** Ends the events, and waits until the service has confirmed the end and no call of the handler runs. Does nothing if they
     *  have ended, or the object was closed or moved from.
     *  @return Errc::server_failed the server could not be stopped, Errc::timeout the service did not confirm the end within
     *  10 s: the object is closed anyway; Errc::no_thread nothing was done: try again
     *
     *  Takes about a second. If the service is silent, takes up to 10 s more: the request that ends the events waits for an
     *  exchange in progress, and then for its own reply. Calls KVO_HWS_closeUSBEvents on a thread of its own,
     *  because that function detaches its caller.
     */
    Result<void> close()
    {
        // A handler that is destroyed may own this object: nothing of it is used at the end.
        const std::shared_ptr<detail::UsbState> state = state_;
        if (state == nullptr) {
            return {};
        }
        const Result<void> closed = detail::close_usb_events(state);
        if (!state->is_abandoned() && !state->is_called_here()) {
            state_.reset();  // otherwise the destruction goes on, or waits for the handler
        }
        return detail::settle_usb_events(state, closed);
    }

private:
    explicit BasicUsbEvents(std::shared_ptr<detail::UsbState> state) noexcept : state_(std::move(state)) {}

    template <class Event>
    static Result<BasicUsbEvents> activated(std::function<bool(const Event &)> handler, std::shared_ptr<detail::Loop> loop)
    {
        if (!handler) {
            return Error("KVO_HWS_activateUSBEventsV2", KVO_HWS_FAILED, Errc::null_pointer,
                         "the handler is empty: pass a function");
        }
        std::shared_ptr<detail::UsbState> state =
            std::make_shared<detail::UsbStateOf<Event, KVO_HWS_EXCEPTIONS != 0>>(std::move(handler), std::move(loop));
        const Result<void> result = detail::activate_usb_events(state);
        if (!result) {
            return result.error();
        }
        return BasicUsbEvents(std::move(state));
    }

    std::shared_ptr<detail::UsbState> state_;
};

/** The class to use, as `kvo::Station`. */
using UsbEvents = BasicUsbEvents<void>;

/** @} */

}  // namespace kvo

#endif
