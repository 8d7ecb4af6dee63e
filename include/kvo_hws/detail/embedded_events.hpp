/** @file
 *  Internal: the state of kvo::EmbeddedEvents. Include embedded_events.hpp instead.
 */
#ifndef KVO_HWS_DETAIL_EMBEDDED_EVENTS_HPP
#define KVO_HWS_DETAIL_EMBEDDED_EVENTS_HPP

#include <kvo_hws/detail/handling.hpp>

/** @cond internal */
namespace kvo::detail {

/* Shared by the object, the listener's thread, and its events in a loop. */
class EmbeddedState : public Receiver {
public:
    virtual void receive_event(const std::shared_ptr<Receiver> &self, const char *name, const char *data) = 0;

    Registry *registry = nullptr; /* of the shared object that activated */
};

/* Hidden: each shared object has its own, which fits its callback. Never destroyed: the listener may outlive it. */
__attribute__((visibility("hidden"))) inline Registry &embedded_registry()
{
    static Registry &registry = *new Registry;
    return registry;
}

__attribute__((visibility("hidden"))) inline void embedded_callback(const char *name, const char *data)
{
    if (const std::shared_ptr<Receiver> current = embedded_registry().current()) {
        static_cast<EmbeddedState &>(*current).receive_event(current, name, data);
    }
}

inline Result<void> activate_embedded_events(const std::shared_ptr<EmbeddedState> &state)
{
    constexpr const char *function = "KVO_HWS_activateEmbKvoEvents";
    const Error running(
        function, KVO_HWS_ALREADY_RUNNING, Errc::already_running,
        "the process listens to the events of embedded stations already, or an earlier listener still waits for a "
        "service: close the other one first, and start a service");
    Registry &registry = embedded_registry();
    state->registry = &registry;
    if (!registry.claim(state)) {
        return running;
    }
    const int result = KVO_HWS_activateEmbKvoEvents(embedded_callback);
    if (result == KVO_HWS_OK) {
        return {};
    }
    state->close();
    registry.release(state);
    return result == KVO_HWS_ALREADY_RUNNING ? running : Error(function, result);
}

inline Result<void> close_embedded_events(const std::shared_ptr<EmbeddedState> &state)
{
    const int result = state->close() ? KVO_HWS_deactivateEmbKvoEvents() : KVO_HWS_OK;
    state->registry->release(state);
    state->await_calls();
    return result == KVO_HWS_OK ? Result<void>() : Error("KVO_HWS_deactivateEmbKvoEvents", result);
}

/* Only where a program activates the events. */
template <class EventType, bool kExceptions>
class EmbeddedStateOf final : public EmbeddedState {
public:
    using Event = EventType;
    using Handler = std::function<void(const Event &)>;

    EmbeddedStateOf(Handler handler, std::shared_ptr<Loop> loop) : handler_(std::move(handler)), loop_(std::move(loop)) {}

    void receive_event(const std::shared_ptr<Receiver> &self, const char *name, const char *data) override
    {
        /* In a loop the listener waits, so that events do not accumulate without a limit. */
        receive(std::static_pointer_cast<EmbeddedStateOf>(self), loop_.get(), true, [=] { return Event{name, data, false}; });
    }

    std::int32_t call_handler(const Event &event) const
    {
        handler_(event);
        return handler_done;
    }
    static void mark_late(Event &event) noexcept { event.late = true; }

private:
    void destroy_handler() override { Handler().swap(handler_); }

    Handler handler_;
    std::shared_ptr<Loop> loop_; /* null: the handler runs on the listener's thread */
};

}  // namespace kvo::detail
/** @endcond */

#endif
