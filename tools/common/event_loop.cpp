// The event loop, implemented with epoll.
#include "common/event_loop.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <system_error>

namespace tools {

namespace {

void check(int result, const char *step)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), step);
    }
}

void control(int poll, int operation, int fd, uint32_t number, uint32_t events)
{
    epoll_event event{};
    event.events = events;
    event.data.u64 = uint64_t{number} << 32 | static_cast<uint32_t>(fd);
    check(epoll_ctl(poll, operation, fd, &event), "epoll_ctl");
}

}  // namespace

EventLoop::EventLoop() : poll_(epoll_create1(EPOLL_CLOEXEC)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    check(poll_.get(), "epoll_create1");
    check(wake_.get(), "eventfd");
    watch(wake_.get(), EPOLLIN, [this](uint32_t) { stopped_ = true; });
}

void EventLoop::watch(int fd, uint32_t events, Callback callback)
{
    const uint32_t number = ++watches_;
    control(poll_.get(), EPOLL_CTL_ADD, fd, number, events);
    callbacks_[fd] = {number, std::make_shared<Callback>(std::move(callback))};
}

void EventLoop::setEvents(int fd, uint32_t events)
{
    control(poll_.get(), EPOLL_CTL_MOD, fd, callbacks_.at(fd).number, events);
}

void EventLoop::unwatch(int fd)
{
    control(poll_.get(), EPOLL_CTL_DEL, fd, 0, 0);
    unwatchClosing(fd);
}

void EventLoop::unwatchClosing(int fd) { callbacks_.erase(fd); }

void EventLoop::after(std::chrono::milliseconds delay, std::function<void()> action)
{
    actions_.emplace(Clock::now() + delay, std::move(action));
}

void EventLoop::run()
{
    std::array<epoll_event, 64> ready{};
    while (!stopped_) {
        const int count = epoll_wait(poll_.get(), ready.data(), static_cast<int>(ready.size()), millisecondsToNextAction());
        if (count < 0 && errno != EINTR) {
            check(count, "epoll_wait");
        }
        for (int i = 0; i < count && !stopped_; ++i) {
            const epoll_event &event = ready[static_cast<std::size_t>(i)];
            // An earlier callback of this round may have removed the descriptor.
            const auto found = callbacks_.find(static_cast<int>(event.data.u64 & 0xFFFFFFFF));
            if (found != callbacks_.end() && found->second.number == event.data.u64 >> 32) {
                const std::shared_ptr<Callback> callback = found->second.callback;
                (*callback)(event.events);
            }
        }
        runDueActions();
    }
}

void EventLoop::stop() noexcept { eventfd_write(wake_.get(), 1); }

void EventLoop::runDueActions()
{
    while (!stopped_ && !actions_.empty() && actions_.begin()->first <= Clock::now()) {
        const auto action = std::move(actions_.begin()->second);
        actions_.erase(actions_.begin());
        action();
    }
}

int EventLoop::millisecondsToNextAction() const
{
    if (actions_.empty()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(actions_.begin()->first - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

}  // namespace tools
