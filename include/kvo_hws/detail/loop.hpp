/** @file
 *  Internal: the queue between the worker of kvo::Requests and the thread of the program's event loop.
 */
#ifndef KVO_HWS_DETAIL_LOOP_HPP
#define KVO_HWS_DETAIL_LOOP_HPP

#include <kvo_hws/result.hpp>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <list>
#include <memory>
#include <mutex>
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
class Request : public LoopItem {
public:
    explicit Request(std::unique_ptr<Question> asked) : question(std::move(asked)) {}
    [[nodiscard]] std::uint64_t id() const noexcept override { return number; }

    std::uint64_t number = 0;
    LoopClock::time_point deadline;
    std::unique_ptr<Question> question;
};

/* One timer is both clock and signal: it expires at the next deadline, or at once when something is ready to run. It is set
 * again for each item that is taken, so that loops that report only changes (edge-triggered) and nested loops see the rest. */
class Loop {
public:
    /* Owns the timer, a timerfd of CLOCK_MONOTONIC. */
    Loop(int timer, std::size_t capacity) noexcept : capacity_(capacity), timer_(timer) {}
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;
    ~Loop() { close(); }

    [[nodiscard]] int descriptor() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return timer_;
    }

    /* The number of requests whose completion has not begun. */
    [[nodiscard]] std::size_t pending() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return pending_;
    }

    /* Any thread. Items run in the order of posting, among the completions. False if the loop is closed: then the item is
     * destroyed here. An item that is dropped later is destroyed by the thread that closes the loop. */
    bool post(std::unique_ptr<LoopItem> item)
    {
        Items items;  // lives longer than the lock
        items.push_back(std::move(item));
        const std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            return false;
        }
        ready_.splice(ready_.end(), items);
        signal();
        return true;
    }

    /* Any thread. Errc::full, Errc::not_running. */
    Result<std::uint64_t> submit(std::unique_ptr<Request> request, std::chrono::milliseconds most)
    {
        Request &added = *request;
        added.deadline = LoopClock::now() + most;
        Items items;
        items.push_back(std::move(request));
        const std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            return Error("kvo::Requests::submit", KVO_HWS_FAILED, Errc::not_running, "the object was closed or moved from");
        }
        if (pending_ >= capacity_) {
            return Error("kvo::Requests::submit", KVO_HWS_FAILED, Errc::full,
                         "too many requests are pending: call dispatch() when the descriptor is readable, then submit again");
        }
        ++pending_;
        const std::uint64_t number = added.number = ++last_number_;
        next_deadline_ = added.deadline < next_deadline_ ? added.deadline : next_deadline_;
        if (next_deadline_ < armed_) {
            set_timer(next_deadline_);
        }
        waiting_.splice(waiting_.end(), items);
        wake_.notify_one();
        return number;
    }

    /* The thread of the loop. True if the request's completion has not begun: then it never will. */
    bool cancel(std::uint64_t number)
    {
        Items dropped;  // destroyed after the lock is released
        const std::lock_guard<std::mutex> lock(mutex_);
        for (Items *items : {&waiting_, &asked_, &ready_}) {
            for (auto item = items->begin(); item != items->end(); ++item) {
                if ((*item)->id() == number && number != 0) {
                    dropped.splice(dropped.end(), *items, item);
                    --pending_;
                    arm();
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
            const std::unique_ptr<LoopItem> item = take();
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
            const std::lock_guard<std::mutex> lock(mutex_);
            if (closed_) {
                return false;
            }
            closed_ = true;
            pending_ = 0;
            for (Items *items : {&asked_, &waiting_, &ready_}) {
                dropped.splice(dropped.end(), *items);
            }
            ::close(std::exchange(timer_, -1));
        }
        wake_.notify_all();
        return true;
    }

    /* The worker. */
    void work()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return closed_ || !waiting_.empty(); });
            if (closed_) {
                return;
            }
            Request &request = static_cast<Request &>(*waiting_.front());
            if (request.deadline <= LoopClock::now()) {
                ready_.splice(ready_.end(), waiting_, waiting_.begin());
                signal();
                continue;
            }
            std::unique_ptr<Question> question = std::move(request.question);
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
            signal();
        }
    }

private:
    /* A node moves from list to list, so nothing is allocated after submit() and post(). */
    using Items = std::list<std::unique_ptr<LoopItem>>;

    static constexpr LoopClock::time_point kAtOnce{std::chrono::nanoseconds(1)};
    static constexpr LoopClock::time_point kNever = LoopClock::time_point::max();

    std::size_t count_ready()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (const auto now = LoopClock::now(); next_deadline_ <= now) {
            expire(now);
        }
        if (ready_.empty()) {
            arm();
        }
        return ready_.size();
    }

    std::unique_ptr<LoopItem> take()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (ready_.empty()) {
            return nullptr;
        }
        std::unique_ptr<LoopItem> item = std::move(ready_.front());
        ready_.pop_front();
        pending_ -= item->id() != 0 ? 1U : 0U;
        arm();
        return item;
    }

    /* Locked: moves the requests whose deadline has passed to those that are ready, in the order of submission. */
    void expire(LoopClock::time_point now)
    {
        next_deadline_ = kNever;
        for (Items *items : {&asked_, &waiting_}) {
            for (auto next = items->begin(); next != items->end();) {
                const auto item = next++;
                const LoopClock::time_point deadline = static_cast<const Request &>(**item).deadline;
                if (deadline <= now) {
                    ready_.splice(ready_.end(), *items, item);
                } else if (deadline < next_deadline_) {
                    next_deadline_ = deadline;
                }
            }
        }
    }

    /* Locked: sets the timer for what is next. */
    void arm()
    {
        if (asked_.empty() && waiting_.empty()) {
            next_deadline_ = kNever;
        }
        set_timer(ready_.empty() ? next_deadline_ : kAtOnce);
    }

    /* Locked: makes the descriptor readable. */
    void signal()
    {
        if (armed_ != kAtOnce) {
            set_timer(kAtOnce);
        }
    }

    void set_timer(LoopClock::time_point time)
    {
        armed_ = time;
        itimerspec spec{};
        if (time != kNever) {
            const auto since = time.time_since_epoch();
            const auto seconds = std::chrono::duration_cast<std::chrono::duration<std::time_t>>(since);
            spec.it_value.tv_sec = seconds.count();
            spec.it_value.tv_nsec = std::chrono::duration_cast<std::chrono::duration<long, std::nano>>(since - seconds).count();
        }
        ::timerfd_settime(timer_, TFD_TIMER_ABSTIME, &spec, nullptr);  // fails only after close()
    }

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    Items waiting_;  // in the order of submission
    Items asked_;    // at most one: the worker has its question
    Items ready_;    // to run in the loop's thread, in this order
    const std::size_t capacity_;
    std::size_t pending_ = 0;
    std::uint64_t last_number_ = 0;
    LoopClock::time_point next_deadline_ = kNever;  // not later than any deadline in waiting_ and asked_
    LoopClock::time_point armed_ = kNever;
    int timer_;
    bool closed_ = false;
};

}  // namespace kvo::detail
/** @endcond */

#endif
