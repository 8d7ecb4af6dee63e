/** @file
 *  Internal: the state of kvo::UsbEvents. Include usbevents.hpp instead.
 *
 *  The library has one slot for a callback, sendUSBEvent2, which all shared objects of the process share. An object claims the
 *  events by setting it from null to its own function. The slot also shows their end: the library clears it after it has sent the
 *  last code. An object therefore waits until the slot is cleared before the next one may begin: a code that arrives later finds
 *  no callback, so the next object never takes it for its own end.
 */
#ifndef KVO_HWS_DETAIL_USBEVENTS_HPP
#define KVO_HWS_DETAIL_USBEVENTS_HPP

#include <kvo_hws/detail/handling.hpp>
#include <kvo_hws/runtime.h>

#include <cstring>

/** @cond internal */
namespace kvo::detail {

inline bool is_status(std::uint32_t code) noexcept
{
    switch (code) {
    case USB_EVENT_ACTIVATED:
    case USB_EVENT_DEACTIVATED:
    case USB_EVENT_BEGIN:
    case USB_EVENT_SERVER_FAILED:
    case USB_EVENT_REFUSED:
    case USB_EVENT_NO_SERVICE: return true;
    default: return false;
    }
}

inline bool is_usb_event(std::uint32_t code) noexcept
{
    switch (code) {
    case USB_EVENT_NEW_DEVICE:
    case USB_EVENT_REMOVED:
    case USB_EVENT_STATE:
    case USB_EVENT_DEVICE_REFUSED: return true;
    default: return is_status(code);
    }
}

/* ---- The state of one object ---- */

class UsbRegistry;

/* Shared by the object, the library's threads that call its handler, and its events in a loop. */
class UsbState : public Receiver {
public:
    /* Passes an event to the handler. Returns its answer. */
    virtual std::int32_t receive_event(const std::shared_ptr<Receiver> &self, const UsbEventV2 &event) = 0;

    [[nodiscard]] bool is_active() const noexcept { return __atomic_load_n(&status_, __ATOMIC_SEQ_CST) == USB_EVENT_ACTIVATED; }
    /* True after a final status. The library clears the slot when the call that reports it has returned. */
    [[nodiscard]] bool has_ended() const noexcept
    {
        const std::uint32_t status = __atomic_load_n(&status_, __ATOMIC_SEQ_CST);
        return is_status(status) && is_final(static_cast<UsbStatus>(status));
    }
    /* True in the handler after a final status: the slot may be cleared only after this call. */
    [[nodiscard]] bool ends_in_handler() { return has_ended() && is_called_here(); }
    [[nodiscard]] bool is_live() override { return !has_ended() && !is_closed(); }

    void note(std::uint32_t code) noexcept
    {
        if (is_status(code) && !has_ended()) {
            __atomic_store_n(&status_, code, __ATOMIC_SEQ_CST);
        }
    }

    /* Calls @p function on a thread that is created for it, and waits: the functions that activate and close USB events detach
     * their caller. Needs no memory, so that an object can always be closed. Returns false if no thread could be created. */
    static bool call_on_own_thread(const std::shared_ptr<UsbState> &state, std::int32_t (*function)(UsbState &),
                                   std::int32_t &result)
    {
        const NoCancellation whole_call;
        Lock lock(state->job_lock_);
        while (state->job_owner_ != nullptr) {
            state->job_ended_.wait(lock);
        }
        state->job_ = function;
        state->job_runs_ = true;
        state->job_owner_ = state;
        if (kvo_hws_CreateThread(run_job, state.get()) != 1) {
            state->job_owner_.reset();
            return false;
        }
        while (state->job_runs_) {
            state->job_ended_.wait(lock);
        }
        result = state->job_result_;
        return true;
    }

    enum class Closing : std::uint8_t {
        not_yet,
        called,   /* KVO_HWS_closeUSBEvents has returned */
        abandoned /* no thread could be created for it: nothing ends the events until the next activation or close */
    };
    [[nodiscard]] Closing closing() const noexcept
    {
        return static_cast<Closing>(__atomic_load_n(&closing_, __ATOMIC_SEQ_CST));
    }
    [[nodiscard]] bool is_abandoned() const noexcept { return closing() == Closing::abandoned; }
    void set_closing(Closing closing) noexcept
    {
        __atomic_store_n(&closing_, static_cast<std::uint8_t>(closing), __ATOMIC_SEQ_CST);
    }

    UsbRegistry *registry = nullptr; /* of the shared object that activated: the object may be moved to another one */

private:
    static void *run_job(void *argument)
    {
        kvo_hws_detach_thread(); /* the functions refuse to detach in some cases; a second time does no harm */
        auto &state = *static_cast<UsbState *>(argument);
        const std::int32_t result = state.job_(state);
        std::shared_ptr<UsbState> owner; /* released last, without the lock */
        const Lock lock(state.job_lock_);
        owner.swap(state.job_owner_);
        state.job_result_ = result;
        state.job_runs_ = false;
        state.job_ended_.notify_all();
        return nullptr;
    }

    std::uint32_t status_ = 0;
    std::uint8_t closing_ = 0; /* a Closing */
    Mutex job_lock_;
    Condition job_ended_;
    std::int32_t (*job_)(UsbState &) = nullptr;
    std::int32_t job_result_ = 0;
    bool job_runs_ = false;
    std::shared_ptr<UsbState> job_owner_; /* while the thread runs */
};

/* ---- The claim ---- */

/* One in each shared object, together with the function that it passes to the library. */
class UsbRegistry : public Registry {
public:
    explicit UsbRegistry(SendUsbEventV2 function) noexcept : callback_(function) {}

    [[nodiscard]] SendUsbEventV2 callback() const noexcept { return callback_; }

    [[nodiscard]] bool has_slot() const noexcept { return __atomic_load_n(&sendUSBEvent2, __ATOMIC_SEQ_CST) == callback_; }

    void clear_slot() const noexcept
    {
        SendUsbEventV2 own = callback_;
        __atomic_compare_exchange_n(&sendUSBEvent2, &own, nullptr, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    }

    /* Claims the events of the process. If the end of the previous object is still in progress, waits for it. */
    bool claim(const std::shared_ptr<UsbState> &state)
    {
        const NoCancellation whole_wait;
        constexpr time_t longest_close = 12;
        const time_t deadline = seconds_now() + longest_close;
        for (;;) {
            switch (try_claim(state, seconds_now() >= deadline)) {
            case Claim::granted: return true;
            case Claim::refused: return false;
            case Claim::not_yet: pause_a_millisecond(); break;
            }
        }
    }

    /* Waits until the slot is cleared. Returns false after 5 s: the service had 4 s for its reply. */
    [[nodiscard]] bool await_cleared_slot() const noexcept
    {
        const NoCancellation whole_wait;
        constexpr time_t longest_reply = 5;
        const time_t deadline = seconds_now() + 1 + longest_reply; /* the current second has passed in part */
        while (has_slot() && seconds_now() < deadline) {
            pause_a_millisecond();
        }
        return !has_slot();
    }

private:
    enum class Claim : std::uint8_t { granted, refused, not_yet };

    Claim try_claim(const std::shared_ptr<UsbState> &state, bool last_try)
    {
        std::shared_ptr<Receiver> previous; /* released without the lock */
        const Lock lock(mutex_);
        if ((current_ != nullptr && current_->is_live()) || __atomic_load_n(&sendUSBEvent, __ATOMIC_SEQ_CST) != nullptr) {
            return Claim::refused;
        }
        SendUsbEventV2 slot = nullptr;
        if (!__atomic_compare_exchange_n(&sendUSBEvent2, &slot, callback_, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)) {
            if (slot != callback_) {
                return Claim::refused;
            }
            /* The previous object of this shared object ends, but the library has not cleared the slot yet. If this is the
             * handler that responds to the end by an activation, the library does so only after it. */
            auto *const ending = static_cast<UsbState *>(current_.get());
            if (!last_try && (ending == nullptr || !(ending->ends_in_handler() || ending->is_abandoned()))) {
                return Claim::not_yet;
            }
        }
        previous.swap(current_);
        current_ = state;
        return Claim::granted;
    }

    const SendUsbEventV2 callback_;
};

/* Hidden: the executable and a plugin each have their own registry and their own callback, which fit together. With the usual
 * visibility, they may or may not share one of the two. */
__attribute__((visibility("hidden"))) inline std::int32_t usb_callback(UsbEventV2 *event);

/* Never destroyed: a callback may still be called while the process ends. */
__attribute__((visibility("hidden"))) inline UsbRegistry &usb_registry()
{
    static UsbRegistry &registry = *new UsbRegistry(usb_callback);
    return registry;
}

inline std::int32_t usb_callback(UsbEventV2 *event)
{
    const std::shared_ptr<Receiver> current = usb_registry().current();
    if (current == nullptr || !is_usb_event(event->code)) {
        return handler_failed;
    }
    auto &state = static_cast<UsbState &>(*current);
    state.note(event->code);
    return state.receive_event(current, *event);
}

/* ---- Activating and closing ---- */

/* The first half of closing: no call begins any more, and the library ends the events. */
inline Result<void> close_usb_events(const std::shared_ptr<UsbState> &state)
{
    UsbRegistry &registry = *state->registry;
    state->close();
    if (state->closing() == UsbState::Closing::called || state->has_ended() || registry.current() != state ||
        !registry.has_slot()) {
        return {};
    }
    std::int32_t result = 0;
    const auto close = [](UsbState &) { return KVO_HWS_closeUSBEvents(); };
    const bool called = UsbState::call_on_own_thread(state, close, result);
    state->set_closing(called ? UsbState::Closing::called : UsbState::Closing::abandoned);
    if (!called) {
        return Error("KVO_HWS_closeUSBEvents", KVO_HWS_FAILED, Errc::no_thread,
                     "the thread that closes the events could not be created: try again");
    }
    if (result == KVO_HWS_SERVER_FAILED) {
        return Error("KVO_HWS_closeUSBEvents", result);
    }
    return {}; /* also if another thread or program has just ended them */
}

/* Waits until the library has cleared the slot. */
inline Result<void> await_end_of_usb_events(const std::shared_ptr<UsbState> &state)
{
    UsbRegistry &registry = *state->registry;
    if (registry.current() != state || registry.await_cleared_slot()) {
        return {};
    }
    std::int32_t result = 0;
    /* If the library could not start the thread that asks the service, its second close succeeds. */
    UsbState::call_on_own_thread(
        state, [](UsbState &) { return KVO_HWS_closeUSBEvents(); }, result);
    if (registry.await_cleared_slot()) {
        return {};
    }
    registry.clear_slot();
    return Error("KVO_HWS_closeUSBEvents", KVO_HWS_FAILED, Errc::timeout, "the service did not confirm the end of the events");
}

/* The second half of closing: waits for the handler's calls and for the service. */
inline Result<void> settle_usb_events(const std::shared_ptr<UsbState> &state, const Result<void> &closed)
{
    state->await_calls();
    /* In the handler, the service may confirm only after the handler's answer: the next activation, or the next close(), waits. */
    if (state->is_abandoned() || state->is_called_here()) {
        return closed;
    }
    const Result<void> ended = await_end_of_usb_events(state);
    state->registry->release(state);
    return closed ? ended : closed;
}

/* Undoes a claim whose activation failed. */
inline Error give_up_usb_events(const std::shared_ptr<UsbState> &state, const Error &error)
{
    static_cast<void>(settle_usb_events(state, close_usb_events(state)));
    if (state->is_abandoned()) {
        state->registry->clear_slot(); /* the service knows nothing of this activation */
        state->registry->release(state);
    }
    return error;
}

/* Claims the events of the process and activates them. */
inline Result<void> activate_usb_events(const std::shared_ptr<UsbState> &state)
{
    constexpr const char *function = "KVO_HWS_activateUSBEventsV2";
    UsbRegistry &registry = usb_registry();
    state->registry = &registry;
    if (!registry.claim(state)) {
        return Error(function, KVO_HWS_ALREADY_RUNNING, Errc::already_running,
                     "the process receives USB events already, and can do so only once: close the other UsbEvents, or call "
                     "KVO_HWS_closeUSBEvents, first");
    }
    std::int32_t result = 0;
    const auto activate = [](UsbState &own) { return KVO_HWS_activateUSBEventsV2(own.registry->callback()); };
    if (!UsbState::call_on_own_thread(state, activate, result)) {
        state->close();
        registry.clear_slot(); /* the library knows nothing of this activation */
        registry.release(state);
        return Error(function, KVO_HWS_NO_THREAD, Errc::no_thread, "the thread that activates the events could not be created");
    }
    if (result != KVO_HWS_OK) {
        return give_up_usb_events(state, Error(function, result));
    }
    return {};
}

/* ---- The kinds of events, and the handler: only where a program activates the events ---- */

template <std::size_t Size>
std::string text_of(const char (&field)[Size])
{
    return {field, strnlen(field, Size)};
}

template <class Kind, class Record>
Kind usb_device_event(const Record &record)
{
    Kind event;
    event.ip_address = text_of(record.ipAddress);
    event.ident2 = text_of(record.ident2);
    event.ident3 = text_of(record.ident3);
    return event;
}

template <class Kind>
Kind usb_device(const UsbDeviceInfo &device)
{
    auto event = usb_device_event<Kind>(device);
    event.text4 = text_of(device.text4);
    event.text5 = text_of(device.text5);
    event.number1 = device.number1;
    event.number2 = device.number2;
    return event;
}

/* From the record of C. */
template <class Event>
Event usb_event(const UsbEventV2 &record)
{
    switch (record.code) {
    case USB_EVENT_NEW_DEVICE: {
        auto plugged = usb_device<std::variant_alternative_t<1, Event>>(record.payload.device);
        plugged.text6 = text_of(record.payload.device.text6);
        plugged.text7 = text_of(record.payload.device.text7);
        plugged.flag_word = record.payload.device.flagWord;
        plugged.flag_bits = record.payload.device.flagBits;
        return plugged;
    }
    case USB_EVENT_REMOVED: return usb_device_event<std::variant_alternative_t<2, Event>>(record.payload.removed);
    case USB_EVENT_STATE: {
        auto changed = usb_device_event<std::variant_alternative_t<3, Event>>(record.payload.state);
        changed.state = record.payload.state.state;
        return changed;
    }
    case USB_EVENT_DEVICE_REFUSED: {
        auto refused = usb_device<std::variant_alternative_t<4, Event>>(record.payload.device);
        refused.text8 = text_of(record.payload.device.text8);
        refused.number3 = record.payload.device.number3;
        return refused;
    }
    default: return static_cast<UsbStatus>(record.code);
    }
}

struct MarkLate {
    void operator()(UsbStatus) const noexcept {}
    void operator()(UsbDeviceEvent &event) const noexcept { event.late = true; }
};

template <class EventType, bool kExceptions>
class UsbStateOf final : public UsbState {
public:
    using Event = EventType;
    using Handler = std::function<bool(const Event &)>;

    UsbStateOf(Handler handler, std::shared_ptr<Loop> loop) : handler_(std::move(handler)), loop_(std::move(loop)) {}

    std::int32_t receive_event(const std::shared_ptr<Receiver> &self, const UsbEventV2 &event) override
    {
        return receive(std::static_pointer_cast<UsbStateOf>(self), loop_.get(), !is_status(event.code),
                       [&event] { return usb_event<Event>(event); });
    }

    std::int32_t call_handler(const Event &event) const { return handler_(event) ? handler_done : handler_failed; }
    static void mark_late(Event &event) { std::visit(MarkLate{}, event); }

private:
    void destroy_handler() override { Handler().swap(handler_); }

    Handler handler_;
    std::shared_ptr<Loop> loop_; /* null: the handler runs on the library's threads */
};

}  // namespace kvo::detail
/** @endcond */

#endif
