// The event loop of one thread: waits for ready descriptors, for timers, and for the request to stop.
#pragma once

#include "common/descriptor.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

namespace tools {

using Clock = std::chrono::steady_clock;

class EventLoop {
public:
    using Callback = std::function<void(uint32_t events)>;

    EventLoop();
    EventLoop(const EventLoop &) = delete;
    EventLoop &operator=(const EventLoop &) = delete;

    /// Calls @p callback whenever one of @p events (EPOLLIN, EPOLLOUT) occurs on @p fd, until unwatch() is called. Errors and
    /// hang-ups are always reported.
    void watch(int fd, uint32_t events, Callback callback);
    /// Replaces the events of a watched descriptor.
    void setEvents(int fd, uint32_t events);
    /// Stops watching @p fd. Call it before the descriptor is closed. A callback may call it for its own descriptor.
    void unwatch(int fd);
    /// The same for a descriptor that is closed right afterwards: the kernel then stops watching it by itself. If a child process
    /// has a duplicate for a moment, its events are ignored.
    void unwatchClosing(int fd);
    /// Calls @p action once, on the loop's thread.
    void after(std::chrono::milliseconds delay, std::function<void()> action);

    /// Waits and calls callbacks until stop() is called.
    void run();
    /// Ends the loop after the current callback. May be called from any thread.
    void stop() noexcept;

private:
    void runDueActions();
    [[nodiscard]] int millisecondsToNextAction() const;

    Descriptor poll_;
    Descriptor wake_;
    bool stopped_ = false;
    // Shared pointers: a callback that removes itself must stay alive until it returns. The numbers tell the events of a closed
    // descriptor from those of a new one that has got the same descriptor number meanwhile.
    struct Watched {
        uint32_t number;  // not that of an earlier watch of the same descriptor number
        std::shared_ptr<Callback> callback;
    };
    std::map<int, Watched> callbacks_;
    uint32_t watches_ = 0;
    std::multimap<Clock::time_point, std::function<void()>> actions_;
};

}  // namespace tools
