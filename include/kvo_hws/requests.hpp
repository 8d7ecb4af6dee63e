/** @file
 *  Requests that an event loop waits for.
 *
 *  A request may take as long as the service stays silent: 4 s and more. kvo::Requests asks on a thread of its own, one request
 *  after the other, and calls back in the thread of the program's event loop:
 *
 *      auto requests = kvo::Requests::create().value();
 *      const auto id = requests.submit([=] { return station.mcp_address(); },
 *                                      [&](kvo::Result<std::uint32_t> mcp) { show(mcp); }, std::chrono::seconds(2));
 *
 *  The loop waits until requests.descriptor() is readable, and then calls requests.dispatch(), which calls the completions. Any
 *  loop can wait for the descriptor: poll(), epoll (also edge-triggered), GLib, Qt (QSocketNotifier), libuv. It is always the
 *  same one. Never read from it. dispatch() may find nothing to do. An object has three descriptors and one thread.
 *
 *  After a timeout: the completion comes at the deadline, but an exchange that has begun cannot be ended early. It keeps the worker,
 *  and the lock with which the process exchanges one request at a time, until the service replies or the library gives up (4 s
 *  after the last byte of a reply). Until then no other request is sent, by this object or by any thread of the process.
 *  Only a request that waits for its own worker is dropped at its deadline. If the exchange in progress is that of another thread
 *  or another kvo::Requests, the request has begun and waits for the lock: its completion comes at the deadline, but it is sent
 *  afterwards. So a program should have one kvo::Requests, and should ask only through it.
 *
 *  Threads: submit() and pending() may be called in any thread. Everything else belongs to the thread of the event loop, and so do
 *  the completions: they are called and destroyed there. The function of a request is called and then destroyed on the worker.
 *  If it is not called, it is destroyed in the thread of the loop. No lock is held while a function of the program runs.
 */
#ifndef KVO_HWS_REQUESTS_HPP
#define KVO_HWS_REQUESTS_HPP

#include <kvo_hws/detail/loop.hpp>
#include <kvo_hws/result.hpp>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <pthread.h>
#include <type_traits>
#include <utility>

namespace kvo {

/** @cond internal */
namespace detail {

template <class T>
struct ResultOf {
    using Type = Result<T>;
};
template <class T>
struct ResultOf<Result<T>> {
    using Type = Result<T>;
};

/* What the completion receives: a request may return a Result, another value, or nothing. */
template <class Function>
using Answer = typename ResultOf<std::decay_t<std::invoke_result_t<Function &>>>::Type;

template <class Function>
Answer<Function> answer_of(Function &function)
{
    if constexpr (std::is_void_v<std::invoke_result_t<Function &>>) {
        function();
        return {};
    } else {
        return function();
    }
}

/* kExceptions keeps the code of units with and without exceptions apart. */
template <class Function, bool kExceptions>
class QuestionOf final : public Question {
public:
    template <class Given>
    // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): called only by submit(), with the function that the program gave
    explicit QuestionOf(Given &&function) : function_(std::forward<Given>(function))
    {
    }

    void ask() override
    {
#if KVO_HWS_EXCEPTIONS
        try {
            answer.emplace(answer_of(*function_));
        } catch (const Exception &exception) {
            answer.emplace(exception.error());
        } catch (...) {
            answer.emplace(Error("kvo::Requests::submit", KVO_HWS_FAILED, Errc::exception,
                                 "the function of the request threw an exception"));
        }
#else
        answer.emplace(answer_of(*function_));
#endif
        function_.reset();
    }

    std::optional<Answer<Function>> answer;

private:
    std::optional<Function> function_;
};

template <class Function, class Completion, bool kExceptions>
class RequestOf final : public AnyRequest<Late<Function, void>> {
    using Base = AnyRequest<Late<Function, void>>;

public:
    template <class GivenFunction, class GivenCompletion>
    RequestOf(GivenFunction &&function, GivenCompletion &&completion)
        : Base(std::make_unique<QuestionOf<Function, kExceptions>>(std::forward<GivenFunction>(function))),
          completion_(std::forward<GivenCompletion>(completion))
    {
    }

    void run() override { completion_(result()); }

private:
    /* Without an answer, the deadline has passed: before the question was asked, or while the worker asks it. */
    Answer<Function> result()
    {
        auto *asked = static_cast<QuestionOf<Function, kExceptions> *>(this->question.get());
        if (asked != nullptr && asked->answer) {
            return std::move(*asked->answer);
        }
        return Error("kvo::Requests::submit", KVO_HWS_FAILED, Errc::timeout, "the request was not done by its deadline");
    }

    Completion completion_;
};

/* Whether the calling thread can be joined. */
inline bool is_joinable() noexcept
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return true;
    }
    int state = PTHREAD_CREATE_JOINABLE;
    pthread_attr_getdetachstate(&attributes, &state);
    pthread_attr_destroy(&attributes);
    return state == PTHREAD_CREATE_JOINABLE;
}

template <class Use>
void *run_worker(void *shared)
{
    const std::unique_ptr<std::shared_ptr<LoopOf<Use>>> loop(static_cast<std::shared_ptr<LoopOf<Use>> *>(shared));
    (*loop)->work();
    (*loop)->end_work(is_joinable());
    return nullptr;
}

/* The program's signal handlers do not run on the worker. The threads that the library creates inherit this mask; it wakes them
 * with SIGUSR1. The others report faults of the thread itself. */
template <class Use>
bool start_worker(const std::shared_ptr<LoopOf<Use>> &loop, pthread_t &thread)
{
    auto shared = std::make_unique<std::shared_ptr<LoopOf<Use>>>(loop);
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    for (const int kept : {SIGUSR1, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
        sigdelset(&blocked, kept);
    }
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
    const bool started = pthread_create(&thread, nullptr, run_worker<Use>, shared.get()) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (started) {
        static_cast<void>(shared.release());  // the worker owns it
    }
    return started;
}

}  // namespace detail
/** @endcond */

/** @defgroup kvo_cpp_requests Requests and the event loop in C++
 *  @{
 */

/** A queue of requests, with a worker thread that sends them and a descriptor that an event loop waits for.
 *
 *  Completions come in the order of submission, except those of requests that ran out of time. They may do anything with the
 *  object: submit, cancel, call dispatch(), close it and destroy it.
 */
template <class Use>
class BasicRequests {
    template <class T>
    using Result = detail::Late<Use, kvo::Result<T>>;

public:
    /** The number of a request, never 0. */
    using Id = std::uint64_t;

    /** The shortest deadline. */
    static constexpr std::chrono::milliseconds shortest_deadline{10};
    /** The longest deadline. */
    static constexpr std::chrono::milliseconds longest_deadline{60'000};

    /** Creates the worker and the descriptor. The worker blocks all signals except SIGUSR1, which the library uses, and those
     *  that report a fault of the thread itself.
     *  @param capacity  how many requests may be pending, at least 1
     *  @return the object; Errc::out_of_range, Errc::no_thread (also if the process has no free descriptor)
     */
    static Result<BasicRequests> create(std::size_t capacity = 256)
    {
        if (capacity == 0) {
            return Error("kvo::Requests::create", KVO_HWS_OUT_OF_RANGE, Errc::out_of_range,
                         "the capacity is 0: write at least 1");
        }
        BasicRequests requests(std::make_shared<detail::LoopOf<Use>>(capacity));
        if (requests.descriptor() < 0) {
            requests.loop_->close();
            return Error("kvo::Requests::create", KVO_HWS_NO_THREAD, Errc::no_thread,
                         "a descriptor could not be created: close some, or raise the limit (ulimit -n)");
        }
        if (!detail::start_worker(requests.loop_, requests.worker_)) {
            requests.loop_->close();
            return Error("kvo::Requests::create", KVO_HWS_NO_THREAD, Errc::no_thread, "the worker thread could not be created");
        }
        return requests;
    }

    /** The other object is then as if it were closed. Only while no other thread uses either. */
    BasicRequests(BasicRequests &&) noexcept = default;
    /** Destroys what this object was. Only while no other thread uses either. */
    BasicRequests &operator=(BasicRequests &&other) noexcept
    {
        if (this != &other) {
            const BasicRequests before(std::move(*this));
            loop_ = std::move(other.loop_);
            worker_ = other.worker_;
        }
        return *this;
    }

    /** Drops the requests that are pending, closes the descriptor and returns at once. No completion is called. An exchange in
     *  progress ends by itself; until then the worker runs, and the function that it calls must find what it uses.
     *  In the thread of the loop, also in a completion.
     */
    ~BasicRequests()
    {
        if (loop_ != nullptr && !loop_->is_closed()) {
            pthread_detach(worker_);  // while it runs; it ends after the next step
            loop_->close();
        }
    }

    /** Does what the destructor does, and waits until the exchange in progress and the worker have ended. Remove the descriptor
     *  from the loop before. Later calls do nothing. In the thread of the loop, also in a completion.
     */
    void close()
    {
        if (loop_ == nullptr || loop_->is_closed()) {
            return;
        }
        if (pthread_equal(worker_, pthread_self()) != 0) {
            pthread_detach(worker_);  // the function of a request owned the object's owner
            loop_->close();
            return;
        }
        loop_->close();
        if (loop_->await_worker()) {
            pthread_join(worker_, nullptr);
        }
    }

    /** Submits a request. Returns at once.
     *  @param request     is called on the worker, without arguments; asks the service. It returns a Result, another value or
     *                     nothing. It may be a function object that can only be moved.
     *  @param completion  is called in dispatch() with the Result: the one that the request returned, its value, or an error:
     *                     Errc::timeout at the deadline; Errc::exception if the request threw an exception, except that of a
     *                     kvo::Exception, which is the error that it carries. It may be an object that can only be moved.
     *  @param deadline    10 ms to 60 s from now. If it passes before the request is sent, the request is not sent.
     *  @return the number of the request, for cancel(); Errc::out_of_range for the deadline; Errc::full if as many requests are
     *          pending as the capacity allows; Errc::not_running after close(). With an error, both functions are destroyed.
     *  In any thread.
     */
    template <class Function, class Completion>
    Result<Id> submit(Function &&request, Completion &&completion, std::chrono::milliseconds deadline = std::chrono::seconds(5))
    {
        using Given = std::decay_t<Function>;
        using Called = std::decay_t<Completion>;
        static_assert(std::is_invocable_v<Given &>, "a request is called without arguments");
        static_assert(std::is_invocable_v<Called &, detail::Answer<Given>>,
                      "a completion is called with the Result of its request");
        if (deadline < shortest_deadline || deadline > longest_deadline) {
            return Error("kvo::Requests::submit", KVO_HWS_OUT_OF_RANGE, Errc::out_of_range,
                         "the deadline is not one of 10 ms to 60 s");
        }
        if (loop_ == nullptr) {
            return Error("kvo::Requests::submit", KVO_HWS_FAILED, Errc::not_running, "the object was moved from");
        }
        return loop_->submit(std::make_unique<detail::RequestOf<Given, Called, KVO_HWS_EXCEPTIONS != 0>>(
                                 std::forward<Function>(request), std::forward<Completion>(completion)),
                             deadline);
    }

    /** Drops a request. If it waits, it is not sent. If it has been sent, its exchange goes on without it, as after a timeout.
     *  @param id  what submit() returned
     *  @return true if the completion has not been called, and never will be; false for any other number
     *  In the thread of the loop, also in a completion.
     */
    bool cancel(Id id) { return loop_ != nullptr && loop_->cancel(id); }

    /** The number of requests whose completion has not been called and that were not cancelled. In any thread. */
    [[nodiscard]] std::size_t pending() const { return loop_ != nullptr ? loop_->pending() : 0; }

    /** The descriptor that becomes readable when dispatch() has something to do; -1 after close(). The object closes it. */
    [[nodiscard]] int descriptor() const { return loop_ != nullptr ? loop_->descriptor() : -1; }

    /** Calls the completions of the requests that are done or out of time, and the handlers of the events that come through this
     *  object. Calls only what was ready when it began, so that it cannot hold the loop; if more is ready, the descriptor stays
     *  readable. An exception that a completion or handler throws leaves this function, and nothing else is lost.
     *  In the thread of the loop, and in no other at the same time; also in a completion, for example in a dialog that waits.
     *  @return the number of completions and handlers that were called
     */
    KVO_HWS_EXCEPTIONS_TAG std::size_t dispatch()
    {
        const std::shared_ptr<detail::LoopOf<Use>> loop = loop_;  // a completion may destroy this object
        return loop != nullptr ? loop->dispatch() : 0;
    }

    /** @cond internal */
    [[nodiscard]] const std::shared_ptr<detail::LoopOf<Use>> &loop() const noexcept { return loop_; }
    /** @endcond */

private:
    explicit BasicRequests(std::shared_ptr<detail::LoopOf<Use>> loop) : loop_(std::move(loop)) {}

    std::shared_ptr<detail::LoopOf<Use>> loop_;
    pthread_t worker_{};
};

/** The class to use, as `kvo::Station`. */
using Requests = BasicRequests<void>;

/** @} */

}  // namespace kvo

#endif
