// The end of a tap: it still accepts the programs that have already found it, and completes their exchanges.
#pragma once

#include "common/event_loop.h"
#include "common/tap/links.h"

#include <functional>
#include <memory>

namespace tools::tap {

class Ending {
public:
    static constexpr std::chrono::milliseconds kAcceptingTime{1'000};

    /// After @p acceptingTime calls @p stopAccepting; then, when no exchange is under way, @p ended.
    Ending(EventLoop &loop, const Links &links, std::chrono::milliseconds acceptingTime, std::function<void()> stopAccepting,
           std::function<void()> ended);
    Ending(const Ending &) = delete;
    Ending &operator=(const Ending &) = delete;

private:
    void wait();

    EventLoop &loop_;
    const Links &links_;
    std::function<void()> ended_;
    Clock::time_point until_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tools::tap
