/** @file
 *  Internal: the queue between the worker of kvo::Requests and the thread of the program's event loop.
 */
#ifndef KVO_HWS_DETAIL_LOOP_HPP
#define KVO_HWS_DETAIL_LOOP_HPP

#include <kvo_hws/detail/late.hpp>
#include <kvo_hws/detail/lock.hpp>
#include <kvo_hws/result.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <list>
#include <memory>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

/** @cond internal */
namespace kvo::detail {

using LoopClock = std::chrono::steady_clock;

/* Something that runs in the thread of the event loop. It is destroyed in that thread too, or in the one that closes the loop. */
class LoopItem {
public:
    LoopItem() = default;
    LoopItem(const LoopItem &) = delete;
    LoopItem &operator=(const LoopItem &) = delete;
    virtual ~LoopItem() = default;
    virtual void run() = 0;
    /* The number of a request; 0 for anything else. */
    [[nodiscard]] virtual std::uint64_t id() const noexcept { return 0; }
};

/* The function of a request and, later, its result. */
class Question {
public:
    Question() = default;
    Question(const Question &) = delete;
    Question &operator=(const Question &) = delete;
    virtual ~Question() = default;
    /* Calls the function and destroys it. */
    virtual void ask() = 0;
};

/* A request. The thread of the loop owns it from beginning to end; only the question goes to the worker, and comes back if the
 * request still waits for it. So each part is destroyed in the thread that uses it. */
template <class Use>
class AnyRequest : public LoopItem {
public:
    explicit AnyRequest(Late<Use, std::unique_ptr<Question>> asked) : question(std::move(asked)) {}
    [[nodiscard]] std::uint64_t id() const noexcept override { return number; }

    std::uint64_t number = 0;
    LoopClock::time_point deadline;
    Late<Use, std::unique_ptr<Question>> question;
};

/* A descriptor that is readable after raise() until clear(), and from the time of the alarm on. One timerfd could be both signal
 * and clock, but to let it expire at once and to set it again takes several times as long as all other steps of a request. */
class Signal {
public:
    static constexpr LoopClock::time_point kNever = LoopClock::time_point::max();

    Signal() noexcept
        : both_(::epoll_create1(EPOLL_CLOEXEC)), event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
          timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK))
    {
        if (!add(event_) || !add(timer_)) {
            close();
        }
    }
    Signal(const Signal &) = delete;
    Signal &operator=(const Signal &) = delete;
    ~Signal() { close(); }

    /* -1 after close(), and if the system has no descriptor left. */
    [[nodiscard]] int descriptor() const noexcept { return both_; }
    [[nodiscard]] LoopClock::time_point alarm() const noexcept { return alarm_; }

    /* Each call is an edge for loops that report only changes. */
    void raise() noexcept
    {
        static_cast<void>(::eventfd_write(event_, 1));
        raised_ = true;
    }
    [[nodiscard]] bool is_raised() const noexcept { return raised_; }

    void clear() noexcept
    {
        if (raised_) {
            eventfd_t count = 0;
            static_cast<void>(::eventfd_read(event_, &count));
            raised_ = false;
        }
    }

    void set_alarm(LoopClock::time_point time) noexcept
    {
        alarm_ = time;
        itimerspec spec{};  // zeros: never
        if (time != kNever) {
            const auto since = time.time_since_epoch();
            const auto seconds = std::chrono::duration_cast<std::chrono::duration<std::time_t>>(since);
            spec.it_value.tv_sec = seconds.count();
            spec.it_value.tv_nsec = std::chrono::duration_cast<std::chrono::duration<long, std::nano>>(since - seconds).count();
        }
        static_cast<void>(::timerfd_settime(timer_, TFD_TIMER_ABSTIME, &spec, nullptr));
    }

    void close() noexcept
    {
        for (int *descriptor : {&both_, &event_, &timer_}) {
            if (*descriptor >= 0) {
                ::close(*descriptor);
                *descriptor = -1;
            }
        }
    }

private:
    [[nodiscard]] bool add(int descriptor) const noexcept
    {
        epoll_event event{};
        event.events = EPOLLIN;
        return ::epoll_ctl(both_, EPOLL_CTL_ADD, descriptor, &event) == 0;
    }

    int both_;
    int event_;
    int timer_;
    bool raised_ = false;
    LoopClock::time_point alarm_ = kNever;
};

/* What waits for the worker, and what waits for the thread of the loop. */
template <class Use>
class LoopOf {
    using Request = AnyRequest<Use>;
    using Item = Late<Use, std::unique_ptr<LoopItem>>;
    /* A node moves from list to list, so nothing is allocated after submit() and post(). */
    using Items = Late<Use, std::list<std::unique_ptr<LoopItem>>>;

public:
    explicit LoopOf(std::size_t capacity) noexcept : capacity_(capacity) {}
    LoopOf(const LoopOf &) = delete;
    LoopOf &operator=(const LoopOf &) = delete;
    ~LoopOf() = default;

    /* -1 after close(), and if the system has no descriptor left. */
    [[nodiscard]] int descriptor() const
    {
        const Lock lock(mutex_);
        return signal_.descriptor();
    }

    /* The number of requests whose completion has not begun. */
    [[nodiscard]] std::size_t pending() const
    {
        const Lock lock(mutex_);
        return pending_;
    }

    /* Any thread. Items run in the order of posting, among the completions. False if the loop is closed: then the item is
     * destroyed here. An item that is dropped later is destroyed by the thread that closes the loop. */
    bool post(Item item)
    {
        Items items;  // lives longer than the lock
        items.push_back(std::move(item));
        const Lock lock(mutex_);
        if (closed_) {
            return false;
        }
        ready_.splice(ready_.end(), items);
        raise();
        return true;
    }

    /* Any thread. Errc::full, Errc::not_running. */
    Late<Use, Result<std::uint64_t>> submit(std::unique_ptr<Request> request, std::chrono::milliseconds most)
    {
        Request &added = *request;
        added.deadline = LoopClock::now() + most;
        Items items;  // lives longer than the lock
        items.push_back(std::move(request));
        std::uint64_t number = 0;
        {
            const Lock lock(mutex_);
            if (closed_) {
                return Error("kvo::Requests::submit", KVO_HWS_FAILED, Errc::not_running, "the object was closed or moved from");
            }
            if (pending_ >= capacity_) {
                return Error(
                    "kvo::Requests::submit", KVO_HWS_FAILED, Errc::full,
                    "too many requests are pending: call dispatch() when the descriptor is readable, then submit again");
            }
            ++pending_;
            number = added.number = ++last_number_;
            if (added.deadline < signal_.alarm()) {
                signal_.set_alarm(added.deadline);
            }
            waiting_.splice(waiting_.end(), items);
        }
        wake_.notify_one();
        return number;
    }

    /* The thread of the loop. True if the request's completion has not begun: then it never will. */
    bool cancel(std::uint64_t number)
    {
        Items dropped;  // destroyed after the lock is released
        const Lock lock(mutex_);
        for (Items *items : {&waiting_, &asked_, &ready_}) {
            for (auto item = items->begin(); item != items->end(); ++item) {
                if ((*item)->id() == number && number != 0) {
                    dropped.splice(dropped.end(), *items, item);
                    --pending_;
                    if (ready_.empty()) {
                        signal_.clear();
                    }
                    return true;
                }
            }
        }
        return false;
    }

    /* The thread of the loop. Runs what was ready when it was called: what becomes ready meanwhile must not keep the loop from
     * its other work. Returns the number of items that ran. */
    KVO_HWS_EXCEPTIONS_TAG std::size_t dispatch()
    {
        const std::size_t most = count_ready();
        std::size_t count = 0;
        while (count < most) {
            const Item item = take();
            if (item == nullptr) {
                break;  // a nested call ran it, or the object was closed
            }
            ++count;
            item->run();
        }
        return count;
    }

    /* Drops everything, and lets the worker end after the exchange in progress. True for the first call. */
    bool close()
    {
        Items dropped;  // destroyed after the lock is released
        {
            const Lock lock(mutex_);
            if (closed_) {
                return false;
            }
            closed_ = true;
            pending_ = 0;
            for (Items *items : {&asked_, &waiting_, &ready_}) {
                dropped.splice(dropped.end(), *items);
            }
            signal_.close();
        }
        wake_.notify_all();
        return true;
    }

    /* Any thread. */
    [[nodiscard]] bool is_closed() const
    {
        const Lock lock(mutex_);
        return closed_;
    }

    /* The worker, at its end. @p joinable  false if a request has detached it, as some functions of C do. */
    void end_work(bool joinable)
    {
        const Lock lock(mutex_);
        worker_ended_ = true;
        worker_joinable_ = joinable;
        wake_.notify_all();
    }

    /* After close(): waits until the worker ends. Returns whether it can be joined. */
    bool await_worker()
    {
        Lock lock(mutex_);
        wake_.wait(lock, [this] { return worker_ended_; });
        return worker_joinable_;
    }

    /* The worker. */
    void work()
    {
        Lock lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return closed_ || !waiting_.empty(); });
            if (closed_) {
                return;
            }
            Request &request = static_cast<Request &>(*waiting_.front());
            if (request.deadline <= LoopClock::now()) {
                ready_.splice(ready_.end(), waiting_, waiting_.begin());
                raise();
                continue;
            }
            auto question = std::move(request.question);
            asked_.splice(asked_.end(), waiting_, waiting_.begin());
            lock.unlock();
            question->ask();
            lock.lock();
            if (asked_.empty()) {  // it was cancelled, or ran out of time
                lock.unlock();
                question.reset();
                lock.lock();
                continue;
            }
            static_cast<Request &>(*asked_.front()).question = std::move(question);
            ready_.splice(ready_.end(), asked_);
            raise();
        }
    }

private:
    std::size_t count_ready()
    {
        const Lock lock(mutex_);
        if (const auto now = LoopClock::now(); signal_.alarm() <= now) {
            expire(now);
        }
        return ready_.size();
    }

    Item take()
    {
        const Lock lock(mutex_);
        if (ready_.empty()) {
            return nullptr;
        }
        Item item = std::move(ready_.front());
        ready_.pop_front();
        pending_ -= item->id() != 0 ? 1U : 0U;
        if (ready_.empty()) {
            signal_.clear();
        } else {
            signal_.raise();  // again, for a nested loop that reports only changes, and for an exception
        }
        return item;
    }

    /* Locked: moves the requests whose deadline has passed to those that are ready, in the order of submission. */
    void expire(LoopClock::time_point now)
    {
        LoopClock::time_point alarm = Signal::kNever;
        for (Items *items : {&asked_, &waiting_}) {
            for (auto next = items->begin(); next != items->end();) {
                const auto item = next++;
                const LoopClock::time_point deadline = static_cast<const Request &>(**item).deadline;
                if (deadline <= now) {
                    ready_.splice(ready_.end(), *items, item);
                } else if (deadline < alarm) {
                    alarm = deadline;
                }
            }
        }
        signal_.set_alarm(alarm);
    }

    /* Locked. */
    void raise()
    {
        if (!signal_.is_raised()) {
            signal_.raise();
        }
    }

    mutable Mutex mutex_;
    Condition wake_;
    Items waiting_;  // in the order of submission
    Items asked_;    // at most one: the worker has its question
    Items ready_;    // to run in the loop's thread, in this order
    const std::size_t capacity_;
    std::size_t pending_ = 0;
    std::uint64_t last_number_ = 0;
    Signal signal_;  // raised while something is ready; the alarm is not later than any deadline in waiting_ and asked_
    bool closed_ = false;
    bool worker_ended_ = false;
    bool worker_joinable_ = true;
};

using Loop = LoopOf<void>;

}  // namespace kvo::detail
/** @endcond */

#endif
