/** @file
 *  Internal: the state of kvo::EmbeddedEvents. Include embedded_events.hpp instead.
 */
#ifndef KVO_HWS_DETAIL_EMBEDDED_EVENTS_HPP
#define KVO_HWS_DETAIL_EMBEDDED_EVENTS_HPP

#include <kvo_hws/detail/handling.hpp>

/** @cond internal */
namespace kvo::detail {

struct EmbeddedKind {
    using Event = EmbeddedEvent;
    using Handler = std::function<void(const EmbeddedEvent &)>;

    static std::int32_t call(const Handler &handler, const Event &event)
    {
        handler(event);
        return handler_done;
    }
    static void mark_late(Event &event) noexcept { event.late = true; }
};

struct EmbeddedState;

/* Compiled where the object is activated, because it differs between units with exceptions and units without. */
using ReceiveEmbeddedEvent = void (*)(const std::shared_ptr<EmbeddedState> &state, const char *name, const char *data);

/* Shared by the object, the listener's thread, and its events in a loop. */
struct EmbeddedState {
    EmbeddedState(EmbeddedKind::Handler handler, std::shared_ptr<Loop> in_loop, ReceiveEmbeddedEvent receiver)
        : empty(!handler), handling(std::move(handler)), loop(std::move(in_loop)), receive(receiver)
    {
    }

    [[nodiscard]] bool is_live() { return !handling.is_closed(); }

    const bool empty;
    Handling<EmbeddedKind> handling;
    const std::shared_ptr<Loop> loop;
    const ReceiveEmbeddedEvent receive;
    Registry<EmbeddedState> *registry = nullptr; /* of the shared object that activated */
};

/* Hidden: each shared object has its own, which fits its callback. Never destroyed: the listener may outlive it. */
__attribute__((visibility("hidden"))) inline Registry<EmbeddedState> &embedded_registry()
{
    static Registry<EmbeddedState> &registry = *new Registry<EmbeddedState>;
    return registry;
}

__attribute__((visibility("hidden"))) inline void embedded_callback(const char *name, const char *data)
{
    if (const std::shared_ptr<EmbeddedState> state = embedded_registry().current()) {
        state->receive(state, name, data);
    }
}

KVO_HWS_EXCEPTIONS_TAG inline void receive_embedded_event_now(const std::shared_ptr<EmbeddedState> &state, const char *name,
                                                              const char *data)
{
    without_exceptions([&] { return call_now(state->handling, EmbeddedEvent{name, data, false}); });
}

KVO_HWS_EXCEPTIONS_TAG inline void receive_embedded_event_in_loop(const std::shared_ptr<EmbeddedState> &state, const char *name,
                                                                  const char *data)
{
    without_exceptions([&] {
        const std::shared_ptr<Handling<EmbeddedKind>> handling(state, &state->handling);
        return call_in_loop(handling, *state->loop, EmbeddedEvent{name, data, false}, true);
    });
}

inline Result<std::shared_ptr<EmbeddedState>> activate_embedded_events(std::shared_ptr<EmbeddedState> state)
{
    constexpr const char *function = "KVO_HWS_activateEmbKvoEvents";
    const Error running(
        function, KVO_HWS_ALREADY_RUNNING, Errc::already_running,
        "the process listens to the events of embedded stations already, or an earlier listener still waits for a "
        "service: close the other one first, and start a service");
    if (state->empty) {
        return Error(function, KVO_HWS_NULL_POINTER, Errc::null_pointer, "the handler is empty: pass a function");
    }
    Registry<EmbeddedState> &registry = embedded_registry();
    state->registry = &registry;
    if (!registry.claim(state)) {
        return running;
    }
    const int result = KVO_HWS_activateEmbKvoEvents(embedded_callback);
    if (result != KVO_HWS_OK) {
        state->handling.close();
        registry.release(state);
        return result == KVO_HWS_ALREADY_RUNNING ? running : Error(function, result);
    }
    return state;
}

inline Result<void> close_embedded_events(const std::shared_ptr<EmbeddedState> &state)
{
    state->handling.close();
    const int result = KVO_HWS_deactivateEmbKvoEvents();
    state->registry->release(state);
    state->handling.await_calls();
    return result == KVO_HWS_OK ? Result<void>() : Error("KVO_HWS_deactivateEmbKvoEvents", result);
}

}  // namespace kvo::detail
/** @endcond */

#endif
