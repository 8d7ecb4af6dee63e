// One thread's wait for everything: descriptors that become ready, times that come, and the request to end.
#pragma once

#include "common/descriptor.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

namespace kvosim {

using Clock = std::chrono::steady_clock;

class EventLoop {
public:
    using Reaction = std::function<void(uint32_t events)>;

    EventLoop();
    EventLoop(const EventLoop &) = delete;
    EventLoop &operator=(const EventLoop &) = delete;

    /// Calls @p reaction whenever one of @p events (EPOLLIN, EPOLLOUT) has come for @p fd, until forget. Errors and hang-ups
    /// are reported unasked.
    void watch(int fd, uint32_t events, Reaction reaction);
    /// Waits for other events of a watched descriptor.
    void change(int fd, uint32_t events);
    /// Before the descriptor is closed. A reaction may forget its own descriptor.
    void forget(int fd);
    /// Calls @p action once, on the loop's thread.
    void after(std::chrono::milliseconds delay, std::function<void()> action);

    /// Reacts until stop is called.
    void run();
    /// From any thread: the loop ends after the reaction that runs now.
    void stop() noexcept;

private:
    void runDueActions();
    [[nodiscard]] int millisecondsToNextAction() const;

    tools::Descriptor poll_;
    tools::Descriptor wake_;
    bool stopped_ = false;
    // Shared, so that a reaction that forgets itself lives until it returns.
    std::map<int, std::shared_ptr<Reaction>> reactions_;
    std::multimap<Clock::time_point, std::function<void()>> actions_;
};

}  // namespace kvosim
