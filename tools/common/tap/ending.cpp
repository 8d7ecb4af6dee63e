// Looks at the links until none has an exchange under way.
#include "common/tap/ending.h"

namespace tools::tap {

namespace {

constexpr std::chrono::milliseconds kPeriod{20};
/// A connection that stays open without an exchange is not worth a longer wait.
constexpr std::chrono::seconds kLongestExchange{10};

}  // namespace

Ending::Ending(EventLoop &loop, const Links &links, std::chrono::milliseconds acceptingTime,
               std::function<void()> stopAccepting, std::function<void()> ended)
    : loop_(loop), links_(links), ended_(std::move(ended)), until_(Clock::now() + acceptingTime + kLongestExchange)
{
    loop_.after(acceptingTime, [this, alive = std::weak_ptr(alive_), stopAccepting = std::move(stopAccepting)] {
        if (!alive.expired()) {
            stopAccepting();
            wait();
        }
    });
}

void Ending::wait()
{
    if (!links_.areBusy() || Clock::now() > until_) {
        ended_();
        return;
    }
    loop_.after(kPeriod, [this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) {
            wait();
        }
    });
}

}  // namespace tools::tap
