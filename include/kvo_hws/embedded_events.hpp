/** @file
 *  The events that the local service publishes for embedded stations: a name and its data.
 *
 *      auto events = kvo::EmbeddedEvents::activate([](const kvo::EmbeddedEvent &event) {
 *          std::printf("%s: %s\n", event.name.c_str(), event.data.c_str());
 *      });
 */
#ifndef KVO_HWS_EMBEDDED_EVENTS_HPP
#define KVO_HWS_EMBEDDED_EVENTS_HPP

#include <kvo_hws/agent.h>
#include <kvo_hws/detail/late.hpp>
#include <kvo_hws/requests.hpp>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace kvo {

/** @defgroup kvo_cpp_embedded_events Events of embedded stations in C++
 *  @{
 */

/** An event of the local service. */
struct EmbeddedEvent {
    std::string name;  /**< at most 19 bytes */
    std::string data;  /**< the text that follows the comma and one more character */
    bool late = false; /**< the handler begins too late: the listener has already gone on. Only with Requests */
};

/** @} */

}  // namespace kvo

#include <kvo_hws/detail/embedded_events.hpp>

namespace kvo {

/** @addtogroup kvo_cpp_embedded_events
 *  @{
 */

/** The events of embedded stations, from the activation until the destruction. Can be moved.
 *
 *  The listener connects to the service every second until one is running, and again after the connection was lost. Events that
 *  are published before that are missed. **The listener replaces the process's handler of SIGUSR1** with one that does nothing.
 *
 *  An object may be used in one thread at a time. The handler's calls end as follows:
 *  - Destruction and close() wait for the call that runs. In the handler itself, on the same thread, they do not.
 *  - A call that begins after that finds the object closed: the handler is not called.
 *  - The handler lives until its last call has returned.
 */
template <class Use>
class BasicEmbeddedEvents {
    template <class T>
    using Result = detail::Late<Use, kvo::Result<T>>;

public:
    /** The handler. The library calls it on a thread of its own, for one event at a time. Exceptions are ignored. It may call
     *  every function of the library, and may destroy the object. It must not end its thread.
     */
    using Handler = std::function<void(const EmbeddedEvent &)>;

    /** Starts to listen, and does not wait for a connection.
     *  @param handler  receives the events
     *  @return the events; Errc::already_running the process listens already (another object, or a call of
     *  KVO_HWS_activateEmbKvoEvents), or an earlier listener still waits for a service, Errc::null_pointer the handler is empty,
     *  Errc::no_thread no thread or no memory
     *
     *  Calls KVO_HWS_activateEmbKvoEvents. Safe from any thread.
     */
    template <class Event = EmbeddedEvent>
    [[nodiscard]] static Result<BasicEmbeddedEvents> activate(Handler handler)
    {
        return activated<Event>(std::move(handler), nullptr);
    }

    /** As activate(Handler), but the handler is called where the program calls @p requests' dispatch().
     *  @param requests  the loop; it may be destroyed before the object, then no event arrives any more
     *  @param handler   receives the events. If it throws, the exception leaves dispatch()
     *  @return as activate(Handler); also Errc::not_running @p requests was closed or moved from
     *
     *  The listener waits at most 3.5 s for the handler, so that events do not accumulate without a limit. Then it goes on, and
     *  the handler still receives the event, marked as late. Destruction does not need dispatch().
     */
    template <class Event = EmbeddedEvent>
    [[nodiscard]] static Result<BasicEmbeddedEvents> activate(Requests &requests, Handler handler)
    {
        std::shared_ptr<detail::Loop> loop = requests.loop();
        if (loop == nullptr || loop->descriptor() < 0) {
            return Error("KVO_HWS_activateEmbKvoEvents", KVO_HWS_FAILED, Errc::not_running,
                         "the Requests was closed or moved from: create another one");
        }
        return activated<Event>(std::move(handler), std::move(loop));
    }

    /** Takes the events over from @p other, which is closed then. */
    BasicEmbeddedEvents(BasicEmbeddedEvents &&other) noexcept = default;
    /** Closes the object, then takes the events over from @p other. */
    BasicEmbeddedEvents &operator=(BasicEmbeddedEvents &&other) noexcept
    {
        if (this != &other) {
            static_cast<void>(close());
            state_ = std::move(other.state_);
        }
        return *this;
    }
    /** An object cannot be copied. */
    BasicEmbeddedEvents(const BasicEmbeddedEvents &) = delete;
    /** An object cannot be copied. */
    BasicEmbeddedEvents &operator=(const BasicEmbeddedEvents &) = delete;
    /** Closes the object. */
    ~BasicEmbeddedEvents() { static_cast<void>(close()); }

    /** Stops listening, and waits until the handler is not running. Does nothing if the object was closed or moved from.
     *  @return Errc::timeout the listener is still running, or no listener was running: the object is closed anyway
     *
     *  Takes up to a second. If the listener waits for a service, it ends only when a service starts; until then, it cannot be
     *  activated again. Calls KVO_HWS_deactivateEmbKvoEvents, which ends whatever listener the process has: do not start one with
     *  the functions of C while this object exists.
     */
    Result<void> close()
    {
        // A handler that is destroyed may own this object: nothing of it is used after this.
        const std::shared_ptr<detail::EmbeddedState> state = state_;
        if (state == nullptr) {
            return {};
        }
        if (!state->is_called_here()) {
            state_.reset();  // otherwise the destruction waits for the handler
        }
        return detail::close_embedded_events(state);
    }

private:
    explicit BasicEmbeddedEvents(std::shared_ptr<detail::EmbeddedState> state) noexcept : state_(std::move(state)) {}

    template <class Event>
    static Result<BasicEmbeddedEvents> activated(std::function<void(const Event &)> handler, std::shared_ptr<detail::Loop> loop)
    {
        if (!handler) {
            return Error("KVO_HWS_activateEmbKvoEvents", KVO_HWS_NULL_POINTER, Errc::null_pointer,
                         "the handler is empty: pass a function");
        }
        std::shared_ptr<detail::EmbeddedState> state =
            std::make_shared<detail::EmbeddedStateOf<Event, KVO_HWS_EXCEPTIONS != 0>>(std::move(handler), std::move(loop));
        const Result<void> result = detail::activate_embedded_events(state);
        if (!result) {
            return result.error();
        }
        return BasicEmbeddedEvents(std::move(state));
    }

    std::shared_ptr<detail::EmbeddedState> state_;
};

/** The class to use, as `kvo::Station`. */
using EmbeddedEvents = BasicEmbeddedEvents<void>;

/** @} */

}  // namespace kvo

#endif
