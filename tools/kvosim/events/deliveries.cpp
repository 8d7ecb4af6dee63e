// Each delivery has a thread of its own, as the library's sender detaches the thread that calls it.
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

constexpr std::chrono::milliseconds kPatienceAtEnd{1'000};

// What the library's sender returns.
constexpr int kSent = 1;
constexpr int kNoConnection = 3;
constexpr int kNoThread = 0;  // none of these

/// Signals stay with the loop's thread: it may not have blocked them yet.
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

const char *wordsFor(Delivery delivery)
{
    switch (delivery) {
    case Delivery::delivered: return "delivered";
    case Delivery::nobodyListens: return "nobody listens";
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

struct Deliveries::Errand {
    std::shared_ptr<Result> result;
    std::string text;

    static void *run(void *argument)
    {
        const std::unique_ptr<Errand> errand(static_cast<Errand *>(argument));
        errand->result->set(SendUsbMsg2DLL(errand->text.c_str()));
        return nullptr;
    }
};

Deliveries::Deliveries(EventLoop &loop, std::function<bool()> wanted)
    : loop_(loop), wanted_(std::move(wanted)), result_(std::make_shared<Result>())
{
    if (!result_->ready.valid()) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    loop_.watch(result_->ready.get(), EPOLLIN, [this](uint32_t) { finish(); });
}

Deliveries::~Deliveries()
{
    loop_.forget(result_->ready.get());
    if (underWay_) {
        pollfd ready{.fd = result_->ready.get(), .events = POLLIN, .revents = 0};
        poll(&ready, 1, static_cast<int>(kPatienceAtEnd.count()));
    }
}

void Deliveries::checkRoom() const
{
    if (ended_) {
        throw tools::Refused("the simulator is ending");
    }
    if (jobs_.size() >= kMost) {
        throw tools::Refused("as many as " + std::to_string(kMost) +
                             " USB events wait for their receiver, which may hang; try again when it has answered");
    }
}

void Deliveries::send(std::string text, Done done)
{
    checkRoom();
    jobs_.push_back({std::move(text), std::move(done)});
    if (!underWay_) {
        begin();
    }
}

void Deliveries::end()
{
    ended_ = true;
    // The one on its way has its thread, which needs nothing from here.
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
    underWay_ = true;
    auto errand = std::make_unique<Errand>(Errand{result_, std::move(jobs_.front().text)});
    const SignalsBlocked blocked;
    if (kvo_hws_CreateThread(Errand::run, errand.get()) == 1) {
        static_cast<void>(errand.release());  // it is the thread's now
    } else {
        result_->set(kNoThread);
    }
}

void Deliveries::finish()
{
    eventfd_t count = 0;
    eventfd_read(result_->ready.get(), &count);
    underWay_ = false;
    if (jobs_.empty()) {
        return;  // ended meanwhile
    }
    const int result = result_->value;
    const Job job = std::move(jobs_.front());
    jobs_.pop_front();
    if (!wanted_()) {
        dropAll(Delivery::notActivated);
    } else if (!jobs_.empty()) {
        begin();
    }
    job.done(result == kSent ? Delivery::delivered : result == kNoConnection ? Delivery::nobodyListens : Delivery::notWritten);
}

}  // namespace kvosim
