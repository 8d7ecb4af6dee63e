// Each delivery runs in its own thread because the library's send function detaches the thread that calls it.
#include "kvosim/events/deliveries.h"

#include "common/refused.h"

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <utility>

namespace kvosim {

namespace {

constexpr std::chrono::milliseconds kShutdownTimeout{1'000};

// Return values of the library's send function.
constexpr int kSent = 1;
constexpr int kNoConnection = 3;
constexpr int kThreadNotStarted = 0;  // differs from both

/// Blocks all signals, so a thread started meanwhile does not receive them: the loop's thread handles them, and may not have
/// blocked them yet.
class SignalsBlocked {
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &previous_);
    }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

private:
    sigset_t previous_{};
};

}  // namespace

const char *deliveryName(Delivery delivery)
{
    switch (delivery) {
    case Delivery::delivered: return "delivered";
    case Delivery::noListener: return "nobody listens";  // part of the JSON interface; phrases: allow
    case Delivery::notWritten: return "not written";
    case Delivery::notActivated: return "not activated";
    case Delivery::simulatorEnds: break;
    }
    return "the simulator ends";
}

struct Deliveries::Result {
    tools::Descriptor ready{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::atomic<int> value{0};

    void set(int newValue)
    {
        value = newValue;
        eventfd_write(ready.get(), 1);
    }
};

struct Deliveries::Task {
    std::shared_ptr<Result> result;
    std::string text;

    static void *run(void *argument)
    {
        const std::unique_ptr<Task> task(static_cast<Task *>(argument));
        task->result->set(SendUsbMsg2DLL(task->text.c_str()));
        return nullptr;
    }
};

Deliveries::Deliveries(tools::EventLoop &loop, std::function<bool()> isActive)
    : loop_(loop), isActive_(std::move(isActive)), result_(std::make_shared<Result>())
{
    if (!result_->ready.valid()) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    loop_.watch(result_->ready.get(), EPOLLIN, [this](uint32_t) { finish(); });
}

Deliveries::~Deliveries()
{
    loop_.unwatch(result_->ready.get());
    if (inProgress_) {
        pollfd ready{.fd = result_->ready.get(), .events = POLLIN, .revents = 0};
        poll(&ready, 1, static_cast<int>(kShutdownTimeout.count()));
    }
}

void Deliveries::checkCapacity() const
{
    if (ended_) {
        throw tools::Refused("the simulator is ending");
    }
    if (jobs_.size() >= kMaxPending) {
        throw tools::Refused(std::to_string(kMaxPending) +
                             " USB events already wait for their receiver, which may hang; try again when it has answered");
    }
}

void Deliveries::send(std::string text, Done done)
{
    checkCapacity();
    jobs_.push_back({std::move(text), std::move(done)});
    if (!inProgress_) {
        begin();
    }
}

void Deliveries::end()
{
    ended_ = true;
    // The delivery in progress continues in its thread, which uses nothing of this object.
    dropAll(Delivery::simulatorEnds);
}

void Deliveries::dropAll(Delivery reason)
{
    for (const Job &job : std::exchange(jobs_, {})) {
        job.done(reason);
    }
}

void Deliveries::begin()
{
    inProgress_ = true;
    auto task = std::make_unique<Task>(Task{result_, std::move(jobs_.front().text)});
    const SignalsBlocked blocked;
    if (kvo_hws_CreateThread(Task::run, task.get()) == 1) {
        static_cast<void>(task.release());  // the thread owns it now
    } else {
        result_->set(kThreadNotStarted);
    }
}

void Deliveries::finish()
{
    eventfd_t count = 0;
    eventfd_read(result_->ready.get(), &count);
    inProgress_ = false;
    if (jobs_.empty()) {
        return;  // end() was called during the delivery
    }
    const int result = result_->value;
    const Job job = std::move(jobs_.front());
    jobs_.pop_front();
    if (!isActive_()) {
        dropAll(Delivery::notActivated);
    } else if (!jobs_.empty()) {
        begin();
    }
    job.done(result == kSent ? Delivery::delivered : result == kNoConnection ? Delivery::noListener : Delivery::notWritten);
}

}  // namespace kvosim
