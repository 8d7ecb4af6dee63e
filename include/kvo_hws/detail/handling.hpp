/** @file
 *  Internal: a program's handler, the calls of it, and its way through the loop of a kvo::Requests. Include usbevents.hpp,
 *  embedded_events.hpp or agent.hpp instead.
 */
#ifndef KVO_HWS_DETAIL_HANDLING_HPP
#define KVO_HWS_DETAIL_HANDLING_HPP

#include <kvo_hws/detail/loop.hpp>
#include <kvo_hws/result.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
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

/* An event that waits for its handler in a loop. The Handling's lock protects it. */
struct Passage {
    enum class Phase : std::uint8_t { queued, running, done };
    Phase phase = Phase::queued;
    bool given_up = false; /* the service has been answered */
    std::int32_t answer = handler_failed;
};

/* A handler, and the calls of it that run. After close() no call begins. The handler lives until its last call has returned.
 * @p Kind has the types Handler and Event, the function call(handler, event), and mark_late(event) if it uses a loop. */
template <class Kind>
class Handling {
public:
    using Handler = typename Kind::Handler;

    explicit Handling(Handler handler) : handler_(std::move(handler)) {}
    Handling(const Handling &) = delete;
    Handling &operator=(const Handling &) = delete;
    ~Handling() = default;

    /* One call, on the stack of its thread. */
    class Call {
    public:
        explicit Call(Handling &handling) : handling_(handling), thread_(pthread_self()), open_(handling.enter(*this)) {}
        ~Call()
        {
            if (open_) {
                handling_.leave(*this);
            }
        }
        Call(const Call &) = delete;
        Call &operator=(const Call &) = delete;

        /* False if the object is closed. */
        explicit operator bool() const noexcept { return open_; }
        [[nodiscard]] const Handler &handler() const noexcept { return handling_.handler_; }

    private:
        friend class Handling;
        Handling &handling_;
        pthread_t thread_;
        Call *next_ = nullptr;
        bool open_;
    };

    [[nodiscard]] bool is_closed()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return closed_;
    }

    /* No call begins any more, and no event waits for one. */
    void close()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

    /* After close(): waits until no call runs, then destroys the handler. In a call, waits for none: the last call destroys it. */
    void await_calls()
    {
        const NoCancellation whole_wait;
        Handler last; /* destroyed without the lock: it may be the program's last owner of anything */
        std::unique_lock<std::mutex> lock(mutex_);
        if (runs_on_this_thread()) {
            return;
        }
        changed_.wait(lock, [this] { return calls_ == nullptr; });
        last.swap(handler_);
        lock.unlock();
    }

    /* True in the handler. */
    [[nodiscard]] bool is_called_here()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return runs_on_this_thread();
    }

    /* ---- Events that wait in a loop ---- */

    /* The answer of the handler; failed if the object was closed before the call began, or at @p deadline. */
    std::int32_t await(Passage &passage, std::chrono::steady_clock::time_point deadline)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_until(lock, deadline, [&] {
            return passage.phase == Passage::Phase::done || (closed_ && passage.phase == Passage::Phase::queued);
        });
        passage.given_up = passage.phase != Passage::Phase::done;
        return passage.answer;
    }

    /* The call begins. Returns true if it is late. */
    bool begin(Passage &passage)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        passage.phase = Passage::Phase::running;
        return passage.given_up;
    }

    void answer(Passage &passage, std::int32_t answer)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (passage.phase != Passage::Phase::done) {
            passage.phase = Passage::Phase::done;
            passage.answer = answer;
            changed_.notify_all();
        }
    }

private:
    bool enter(Call &call)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            return false;
        }
        call.next_ = calls_;
        calls_ = &call;
        return true;
    }

    void leave(Call &call)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (closed_ && calls_ == &call && call.next_ == nullptr) {
            Handler last;
            last.swap(handler_);
            lock.unlock();
            last = nullptr; /* still part of the call: a thread that waits for it relies on this */
            lock.lock();
        }
        Call **place = &calls_;
        while (*place != &call) {
            place = &(*place)->next_;
        }
        *place = call.next_;
        changed_.notify_all();
    }

    /* With the lock. */
    [[nodiscard]] bool runs_on_this_thread() const
    {
        for (const Call *call = calls_; call != nullptr; call = call->next_) {
            if (pthread_equal(call->thread_, pthread_self()) != 0) {
                return true;
            }
        }
        return false;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    Call *calls_ = nullptr;
    bool closed_ = false;
    Handler handler_;
};

/* An event in a loop. If it does not run, its destruction answers the thread that waits for it. */
template <class Kind>
class KVO_HWS_EXCEPTIONS_TAG QueuedEvent final : public LoopItem {
public:
    using Event = typename Kind::Event;

    /* @p passage  null if no thread waits for the answer */
    QueuedEvent(std::shared_ptr<Handling<Kind>> handling, Event event, std::shared_ptr<Passage> passage)
        : handling_(std::move(handling)), event_(std::move(event)), passage_(std::move(passage))
    {
    }
    QueuedEvent(const QueuedEvent &) = delete;
    QueuedEvent &operator=(const QueuedEvent &) = delete;
    ~QueuedEvent() override { answer(handler_failed); }

    void run() override
    {
        const typename Handling<Kind>::Call call(*handling_);
        if (!call) {
            return;
        }
        if (passage_ != nullptr && handling_->begin(*passage_)) {
            Kind::mark_late(event_);
        }
        Answer answer_at_the_end{*this}; /* also if the handler throws; the exception leaves dispatch() */
        answer_at_the_end.value = Kind::call(call.handler(), event_);
    }

private:
    struct Answer {
        QueuedEvent &event;
        std::int32_t value = handler_failed;
        ~Answer() { event.answer(value); }
    };

    void answer(std::int32_t value)
    {
        if (passage_ != nullptr) {
            handling_->answer(*passage_, value);
        }
    }

    std::shared_ptr<Handling<Kind>> handling_;
    Event event_;
    std::shared_ptr<Passage> passage_;
};

/* The result of @p body; failed if it throws. */
template <class Body>
KVO_HWS_EXCEPTIONS_TAG std::int32_t without_exceptions(Body body)
{
#if KVO_HWS_EXCEPTIONS
    try {
        return body();
    } catch (...) {
        return handler_failed;
    }
#else
    return body();
#endif
}

/* Calls the handler on this thread. */
template <class Kind>
KVO_HWS_EXCEPTIONS_TAG std::int32_t call_now(Handling<Kind> &handling, const typename Kind::Event &event)
{
    const typename Handling<Kind>::Call call(handling);
    return call ? Kind::call(call.handler(), event) : handler_failed;
}

/* Lets a loop call the handler, and waits for its answer if @p waits. */
template <class Kind>
KVO_HWS_EXCEPTIONS_TAG std::int32_t call_in_loop(const std::shared_ptr<Handling<Kind>> &handling, Loop &loop,
                                                 typename Kind::Event event, bool waits)
{
    const auto deadline = std::chrono::steady_clock::now() + handler_time;
    const std::shared_ptr<Passage> passage = waits ? std::make_shared<Passage>() : nullptr;
    if (!loop.post(std::make_unique<QueuedEvent<Kind>>(handling, std::move(event), passage))) {
        return handler_failed;
    }
    return waits ? handling->await(*passage, deadline) : handler_done;
}

/* The object of this process that receives events, as far as this shared object knows. */
template <class State>
class Registry {
public:
    [[nodiscard]] std::shared_ptr<State> current()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return current_;
    }

    /* Makes @p state the current one, unless another one is live. */
    bool claim(const std::shared_ptr<State> &state)
    {
        std::shared_ptr<State> previous; /* released without the lock */
        const std::lock_guard<std::mutex> lock(mutex_);
        if (current_ != nullptr && current_->is_live()) {
            return false;
        }
        previous.swap(current_);
        current_ = state;
        return true;
    }

    void release(const std::shared_ptr<State> &state)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (current_ == state) {
            current_.reset(); /* @p state still owns it */
        }
    }

protected:
    std::mutex mutex_;
    std::shared_ptr<State> current_;
};

}  // namespace kvo::detail
/** @endcond */

#endif
