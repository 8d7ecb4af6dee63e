/** @file
 *  Internal: a program's handler, the calls of it, and its way through the loop of a kvo::Requests. Include usbevents.hpp,
 *  embedded_events.hpp or agent.hpp instead.
 *
 *  Everything that uses the handler or an event is a template, which is instantiated where a program activates an object. So a
 *  unit that only includes the header compiles little of it.
 */
#ifndef KVO_HWS_DETAIL_HANDLING_HPP
#define KVO_HWS_DETAIL_HANDLING_HPP

#include <kvo_hws/detail/lock.hpp>
#include <kvo_hws/detail/loop.hpp>
#include <kvo_hws/result.hpp>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <pthread.h>
#include <utility>

/** @cond internal */
namespace kvo::detail {

/* The result of a handler that failed, and of a call that finds its object closed. */
inline constexpr std::int32_t handler_failed = -1;
inline constexpr std::int32_t handler_done = 1;

/* How long an event waits for its handler in a loop; the service gives up after 4 s. A variable, so that tests need not wait. */
inline std::chrono::milliseconds handler_time{3500};

/* pthread_cancel must not end a thread in a wait of this interface, just as in the functions of C. */
class NoCancellation {
public:
    NoCancellation() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~NoCancellation() { pthread_setcancelstate(before_, nullptr); }
    NoCancellation(const NoCancellation &) = delete;
    NoCancellation &operator=(const NoCancellation &) = delete;

private:
    int before_ = 0;
};

inline void pause_a_millisecond() noexcept
{
    const timespec pause{0, 1'000'000};
    nanosleep(&pause, nullptr);
}

/* Time that passes while the machine runs. */
inline time_t seconds_now() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

/* An event that waits for its handler in a loop. The Receiver's lock protects it. */
struct Passage {
    enum class Phase : std::uint8_t { queued, running, done };
    Phase phase = Phase::queued;
    bool given_up = false; /* the service has been answered */
    std::int32_t answer = handler_failed;
};

/* Owns a handler, and knows the calls of it that run. After close() no call begins. The handler lives until its last call has
 * returned. The object, the library's threads and the events in a loop share it. */
class Receiver {
public:
    Receiver() = default;
    Receiver(const Receiver &) = delete;
    Receiver &operator=(const Receiver &) = delete;
    virtual ~Receiver() = default;

    /* One call, on the stack of its thread. */
    class Call {
    public:
        explicit Call(Receiver &receiver) : receiver_(receiver), thread_(pthread_self()), open_(receiver.enter(*this)) {}
        ~Call()
        {
            if (open_) {
                receiver_.leave(*this);
            }
        }
        Call(const Call &) = delete;
        Call &operator=(const Call &) = delete;

        /* False if the object is closed. */
        explicit operator bool() const noexcept { return open_; }

    private:
        friend class Receiver;
        Receiver &receiver_;
        pthread_t thread_;
        Call *next_ = nullptr;
        bool open_;
    };

    /* True while the process cannot have another such object. */
    [[nodiscard]] virtual bool is_live() { return !is_closed(); }

    [[nodiscard]] bool is_closed()
    {
        const Lock lock(mutex_);
        return closed_;
    }

    /* No call begins any more, and no event waits for one. Returns false if it was closed before. */
    bool close()
    {
        const Lock lock(mutex_);
        changed_.notify_all();
        return !std::exchange(closed_, true);
    }

    /* After close(): waits until no call runs, then destroys the handler. In a call, waits for none: the last call destroys it. */
    void await_calls()
    {
        const NoCancellation whole_wait;
        Lock lock(mutex_);
        if (runs_on_this_thread()) {
            return;
        }
        while (calls_ != nullptr) {
            changed_.wait(lock);
        }
        drop_handler(lock);
    }

    /* True in the handler. */
    [[nodiscard]] bool is_called_here()
    {
        const Lock lock(mutex_);
        return runs_on_this_thread();
    }

    /* ---- Events that wait in a loop ---- */

    /* The answer of the handler; failed if the object was closed before the call began, or at @p deadline. */
    template <class Time>
    std::int32_t await(Passage &passage, Time deadline)
    {
        Lock lock(mutex_);
        changed_.wait_until(lock, deadline, [&] {
            return passage.phase == Passage::Phase::done || (closed_ && passage.phase == Passage::Phase::queued);
        });
        passage.given_up = passage.phase != Passage::Phase::done;
        return passage.answer;
    }

    /* The call begins. Returns true if it is late. */
    bool begin(Passage &passage)
    {
        const Lock lock(mutex_);
        passage.phase = Passage::Phase::running;
        return passage.given_up;
    }

    void answer(Passage &passage, std::int32_t answer)
    {
        const Lock lock(mutex_);
        if (passage.phase != Passage::Phase::done) {
            passage.phase = Passage::Phase::done;
            passage.answer = answer;
            changed_.notify_all();
        }
    }

private:
    /* Destroys the handler, which may be the program's last owner of anything. */
    virtual void destroy_handler() = 0;

    /* Not inline: gcc would take the call in the list, which leaves it in time, for a dangling one. */
    [[gnu::noinline]] bool enter(Call &call)
    {
        const Lock lock(mutex_);
        if (closed_) {
            return false;
        }
        call.next_ = calls_;
        calls_ = &call;
        return true;
    }

    void leave(Call &call)
    {
        Lock lock(mutex_);
        if (closed_ && calls_ == &call && call.next_ == nullptr) {
            drop_handler(lock); /* still part of the call: a thread that waits for it relies on this */
        }
        Call **place = &calls_;
        while (*place != &call) {
            place = &(*place)->next_;
        }
        *place = call.next_;
        changed_.notify_all();
    }

    void drop_handler(Lock &lock)
    {
        if (!dropped_) {
            dropped_ = true;
            lock.unlock();
            destroy_handler();
            lock.lock();
        }
    }

    /* With the lock. */
    [[nodiscard]] bool runs_on_this_thread() const noexcept
    {
        for (const Call *call = calls_; call != nullptr; call = call->next_) {
            if (pthread_equal(call->thread_, pthread_self()) != 0) {
                return true;
            }
        }
        return false;
    }

    Mutex mutex_;
    Condition changed_;
    Call *calls_ = nullptr;
    bool closed_ = false;
    bool dropped_ = false;
};

/* The object of this process that receives events, as far as this shared object knows. */
class Registry {
public:
    [[nodiscard]] std::shared_ptr<Receiver> current()
    {
        const Lock lock(mutex_);
        return current_;
    }

    /* Makes @p receiver the current one, unless another one is live. */
    bool claim(const std::shared_ptr<Receiver> &receiver)
    {
        std::shared_ptr<Receiver> previous; /* released without the lock */
        const Lock lock(mutex_);
        if (current_ != nullptr && current_->is_live()) {
            return false;
        }
        previous.swap(current_);
        current_ = receiver;
        return true;
    }

    void release(const std::shared_ptr<Receiver> &receiver)
    {
        const Lock lock(mutex_);
        if (current_ == receiver) {
            current_.reset(); /* the caller still owns it */
        }
    }

protected:
    Mutex mutex_;
    std::shared_ptr<Receiver> current_;
};

/* ---- Only where a program activates an object ---- */

/* An event in a loop. If it does not run, its destruction answers the thread that waits for it. */
template <class State>
class QueuedEvent final : public LoopItem {
public:
    using Event = typename State::Event;

    /* @p passage  null if no thread waits for the answer */
    QueuedEvent(std::shared_ptr<State> state, Event event, std::shared_ptr<Passage> passage)
        : state_(std::move(state)), event_(std::move(event)), passage_(std::move(passage))
    {
    }
    QueuedEvent(const QueuedEvent &) = delete;
    QueuedEvent &operator=(const QueuedEvent &) = delete;
    ~QueuedEvent() override { answer(handler_failed); }

    void run() override
    {
        const Receiver::Call call(*state_);
        if (!call) {
            return;
        }
        if (passage_ != nullptr && state_->begin(*passage_)) {
            State::mark_late(event_);
        }
        Answer at_the_end{*this, handler_failed}; /* also if the handler throws; the exception leaves dispatch() */
        at_the_end.value = state_->call_handler(event_);
    }

private:
    struct Answer {
        QueuedEvent &event;
        std::int32_t value;
        ~Answer() { event.answer(value); }
    };

    void answer(std::int32_t value)
    {
        if (passage_ != nullptr) {
            state_->answer(*passage_, value);
        }
    }

    std::shared_ptr<State> state_;
    Event event_;
    std::shared_ptr<Passage> passage_;
};

/* Calls the handler with what @p make_event returns: on this thread, or in @p loop if there is one. There it waits for the answer
 * if @p waits. A handler that throws counts as failed. State has kExceptions, which keeps the code of units with and without
 * exceptions apart. */
template <class State, class MakeEvent>
std::int32_t receive(const std::shared_ptr<State> &state, Loop *loop, bool waits, MakeEvent make_event)
{
#if KVO_HWS_EXCEPTIONS
    try {
#endif
        if (loop == nullptr) {
            const auto event = make_event();
            const Receiver::Call call(*state);
            return call ? state->call_handler(event) : handler_failed;
        }
        const auto deadline = std::chrono::steady_clock::now() + handler_time;
        const std::shared_ptr<Passage> passage = waits ? std::make_shared<Passage>() : nullptr;
        if (!loop->post(std::make_unique<QueuedEvent<State>>(state, make_event(), passage))) {
            return handler_failed;
        }
        return waits ? state->await(*passage, deadline) : handler_done;
#if KVO_HWS_EXCEPTIONS
    } catch (...) {
        return handler_failed;
    }
#endif
}

}  // namespace kvo::detail
/** @endcond */

#endif
