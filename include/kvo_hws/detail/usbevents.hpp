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

#include <atomic>
#include <cstring>
#include <ctime>
#include <optional>

/** @cond internal */
namespace kvo::detail {

/* ---- From the record of C to the kinds of events ---- */

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

/* No value for a code that this header does not know. */
inline std::optional<UsbEvent> usb_event(const UsbEventV2 &event)
{
    switch (event.code) {
    case USB_EVENT_NEW_DEVICE: {
        const UsbDeviceInfo &device = event.payload.device;
        auto plugged = usb_device<UsbNewDevice>(device);
        plugged.text6 = text_of(device.text6);
        plugged.text7 = text_of(device.text7);
        plugged.flag_word = device.flagWord;
        plugged.flag_bits = device.flagBits;
        return plugged;
    }
    case USB_EVENT_DEVICE_REFUSED: {
        auto refused = usb_device<UsbDeviceRefused>(event.payload.device);
        refused.text8 = text_of(event.payload.device.text8);
        refused.number3 = event.payload.device.number3;
        return refused;
    }
    case USB_EVENT_STATE: {
        auto changed = usb_device_event<UsbStateChanged>(event.payload.state);
        changed.state = event.payload.state.state;
        return changed;
    }
    case USB_EVENT_REMOVED: return usb_device_event<UsbDeviceRemoved>(event.payload.removed);
    default:
        if (is_status(event.code)) {
            return static_cast<UsbStatus>(event.code);
        }
        return std::nullopt;
    }
}

struct MarkLate {
    void operator()(UsbStatus) const noexcept {}
    void operator()(UsbDeviceEvent &event) const noexcept { event.late = true; }
};

struct UsbKind {
    using Event = UsbEvent;
    using Handler = std::function<bool(const UsbEvent &)>;

    static std::int32_t call(const Handler &handler, const Event &event)
    {
        return handler(event) ? handler_done : handler_failed;
    }
    static void mark_late(Event &event) { std::visit(MarkLate{}, event); }
};

/* ---- The state of one object ---- */

class UsbState;
class UsbRegistry;

/* A function that calls the state's handler. It is compiled where the object is activated, because it differs between units with
 * exceptions and units without. */
using ReceiveUsbEvent = std::int32_t (*)(const std::shared_ptr<UsbState> &state, const UsbEventV2 &event);

/* Shared by the object, the library's threads that call its handler, and its events in a loop. */
class UsbState {
public:
    UsbState(UsbKind::Handler handler, std::shared_ptr<Loop> in_loop, ReceiveUsbEvent receiver)
        : empty(!handler), handling(std::move(handler)), loop(std::move(in_loop)), receive(receiver)
    {
    }

    [[nodiscard]] bool is_active() const noexcept { return status_.load() == USB_EVENT_ACTIVATED; }
    /* True after a final status. The library clears the slot when the call that reports it has returned. */
    [[nodiscard]] bool has_ended() const noexcept { return ended_.load(); }
    /* True in the handler after a final status: the slot may be cleared only after this call. */
    [[nodiscard]] bool ends_in_handler() { return has_ended() && handling.is_called_here(); }
    [[nodiscard]] bool is_live() { return !has_ended() && !handling.is_closed(); }

    void note(std::uint32_t code) noexcept
    {
        if (is_status(code) && !has_ended()) {
            status_.store(code);
            ended_.store(is_final(static_cast<UsbStatus>(code)));
        }
    }

    /* Calls @p function on a thread that is created for it, and waits: the functions that activate and close USB events detach
     * their caller. Needs no memory, so that an object can always be closed. Returns false if no thread could be created. */
    static bool call_on_own_thread(const std::shared_ptr<UsbState> &state, std::int32_t (*function)(UsbState &),
                                   std::int32_t &result)
    {
        const NoCancellation whole_call;
        std::unique_lock<std::mutex> lock(state->job_lock_);
        state->job_ended_.wait(lock, [&] { return state->job_owner_ == nullptr; });
        state->job_ = function;
        state->job_runs_ = true;
        state->job_owner_ = state;
        if (kvo_hws_CreateThread(run_job, state.get()) != 1) {
            state->job_owner_.reset();
            return false;
        }
        state->job_ended_.wait(lock, [&] { return !state->job_runs_; });
        result = state->job_result_;
        return true;
    }

    /* True if no thread could be created for the last close: nothing ends the events until the next activation or close. */
    [[nodiscard]] bool is_abandoned() const noexcept { return abandoned_.load(); }
    void set_abandoned(bool abandoned) noexcept { abandoned_.store(abandoned); }

    const bool empty;
    Handling<UsbKind> handling;
    const std::shared_ptr<Loop> loop;
    const ReceiveUsbEvent receive;
    UsbRegistry *registry = nullptr; /* of the shared object that activated: the object may be moved to another one */

private:
    static void *run_job(void *argument)
    {
        kvo_hws_detach_thread(); /* the functions refuse to detach in some cases; a second time does no harm */
        auto &state = *static_cast<UsbState *>(argument);
        const std::int32_t result = state.job_(state);
        std::shared_ptr<UsbState> owner; /* released last, without the lock */
        const std::lock_guard<std::mutex> lock(state.job_lock_);
        owner.swap(state.job_owner_);
        state.job_result_ = result;
        state.job_runs_ = false;
        state.job_ended_.notify_all();
        return nullptr;
    }

    std::atomic<std::uint32_t> status_{0};
    std::atomic<bool> ended_{false};
    std::atomic<bool> abandoned_{false};
    std::mutex job_lock_;
    std::condition_variable job_ended_;
    std::int32_t (*job_)(UsbState &) = nullptr;
    std::int32_t job_result_ = 0;
    bool job_runs_ = false;
    std::shared_ptr<UsbState> job_owner_; /* while the thread runs */
};

/* ---- The claim ---- */

/* One in each shared object, together with the function that it passes to the library. */
class UsbRegistry : public Registry<UsbState> {
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
        constexpr auto longest_close = std::chrono::seconds(12);
        const auto deadline = std::chrono::steady_clock::now() + longest_close;
        for (;;) {
            switch (try_claim(state, std::chrono::steady_clock::now() >= deadline)) {
            case Claim::granted: return true;
            case Claim::refused: return false;
            case Claim::not_yet: pause_for_slot(); break;
            }
        }
    }

    /* Waits until the slot is cleared. Returns false after 5 s: the service had 4 s for its reply. */
    [[nodiscard]] bool await_cleared_slot() const noexcept
    {
        const NoCancellation whole_wait;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (has_slot() && std::chrono::steady_clock::now() < deadline) {
            pause_for_slot();
        }
        return !has_slot();
    }

private:
    enum class Claim : std::uint8_t { granted, refused, not_yet };

    Claim try_claim(const std::shared_ptr<UsbState> &state, bool last_try)
    {
        std::shared_ptr<UsbState> previous; /* released without the lock */
        const std::lock_guard<std::mutex> lock(mutex_);
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
            if (!last_try && (current_ == nullptr || !(current_->ends_in_handler() || current_->is_abandoned()))) {
                return Claim::not_yet;
            }
        }
        previous.swap(current_);
        current_ = state;
        return Claim::granted;
    }

    static void pause_for_slot() noexcept
    {
        const timespec pause{0, 1'000'000};
        nanosleep(&pause, nullptr);
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
    const std::shared_ptr<UsbState> state = usb_registry().current();
    if (state == nullptr) {
        return handler_failed;
    }
    state->note(event->code);
    return state->receive(state, *event);
}

/* ---- Calling the handler ---- */

inline std::shared_ptr<Handling<UsbKind>> handling_of(const std::shared_ptr<UsbState> &state)
{
    return {state, &state->handling};
}

KVO_HWS_EXCEPTIONS_TAG inline std::int32_t receive_usb_event_now(const std::shared_ptr<UsbState> &state,
                                                                 const UsbEventV2 &event)
{
    return without_exceptions([&] {
        const std::optional<UsbEvent> kind = usb_event(event);
        return kind ? call_now(state->handling, *kind) : handler_failed;
    });
}

KVO_HWS_EXCEPTIONS_TAG inline std::int32_t receive_usb_event_in_loop(const std::shared_ptr<UsbState> &state,
                                                                     const UsbEventV2 &event)
{
    return without_exceptions([&] {
        std::optional<UsbEvent> kind = usb_event(event);
        return kind ? call_in_loop(handling_of(state), *state->loop, std::move(*kind), !is_status(event.code)) : handler_failed;
    });
}

/* ---- Activating and closing ---- */

/* The first half of closing: no call begins any more, and the library ends the events. */
inline Result<void> close_usb_events(const std::shared_ptr<UsbState> &state)
{
    UsbRegistry &registry = *state->registry;
    state->handling.close();
    if (state->has_ended() || registry.current() != state || !registry.has_slot()) {
        return {};
    }
    std::int32_t result = 0;
    if (!UsbState::call_on_own_thread(
            state, [](UsbState &) { return KVO_HWS_closeUSBEvents(); }, result)) {
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
    state->handling.await_calls();
    if (state->is_abandoned() || state->ends_in_handler()) {
        return closed; /* the next activation, or the next close(), goes on */
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

inline Result<std::shared_ptr<UsbState>> activate_usb_events(std::shared_ptr<UsbState> state)
{
    constexpr const char *function = "KVO_HWS_activateUSBEventsV2";
    if (state->empty) {
        return Error(function, KVO_HWS_FAILED, Errc::null_pointer, "the handler is empty: pass a function");
    }
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
        state->handling.close();
        registry.clear_slot(); /* the library knows nothing of this activation */
        registry.release(state);
        return Error(function, KVO_HWS_NO_THREAD, Errc::no_thread, "the thread that activates the events could not be created");
    }
    if (result != KVO_HWS_OK) {
        return give_up_usb_events(state, Error(function, result));
    }
    return state;
}

}  // namespace kvo::detail
/** @endcond */

#endif
