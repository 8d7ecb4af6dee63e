// Accepts the listeners of the event socket and sends events to them.
#include "kvosim/events/embedded_events.h"

#include "kvosim/base/exchange_log.h"

#include <algorithm>
#include <vector>

namespace kvosim {

EmbeddedEvents::EmbeddedEvents(tools::EventLoop &loop, std::filesystem::path socket, std::chrono::seconds alive,
                               std::function<void(std::string_view line)> report, mode_t mode)
    : loop_(loop), report_(std::move(report))
{
    socket_.emplace(std::move(socket), mode);
    acceptor_ = std::make_unique<tools::Acceptor>(loop, socket_->get(),
                                                  [this](tools::Descriptor connection) { add(std::move(connection)); });
    if (alive.count() > 0) {
        keepAlive(alive);
    }
}

void EmbeddedEvents::add(tools::Descriptor connection)
{
    if (listeners_.size() >= kMaxListeners) {
        report_("refused an event listener: " + std::to_string(kMaxListeners) + " are already connected");
        return;
    }
    const uint64_t number = ++accepted_;
    listeners_[number] = std::make_unique<Stream>(
        loop_, std::move(connection), kMaxUnread,
        Stream::Callbacks{[](std::string_view) {},  // data from a listener is ignored
                          [this, number](const std::string &reason) { remove(number, std::string(reason)); }});
    report_("event listener " + std::to_string(number) + " connected");
    onListener_(number);
}

void EmbeddedEvents::remove(uint64_t number, const std::string &reason)
{
    listeners_.erase(number);
    report_("event listener " + std::to_string(number) + " disconnected: " + reason);
}

std::size_t EmbeddedEvents::publish(std::string_view text)
{
    const std::size_t count = send(std::string(text) + '\n');
    report_("event " + printable(text) + " -> " + std::to_string(count) + " listeners");
    return count;
}

std::size_t EmbeddedEvents::send(std::string_view bytes, std::optional<uint64_t> listener)
{
    std::size_t count = 0;
    std::vector<uint64_t> lost;
    for (const auto &[number, stream] : listeners_) {
        if (listener && *listener != number) {
            continue;
        }
        if (stream->write(bytes)) {
            ++count;
        } else {
            lost.push_back(number);
        }
    }
    for (const uint64_t number : lost) {
        remove(number, "it does not read, or it has closed");
    }
    return count;
}

bool EmbeddedEvents::isBusy(std::optional<uint64_t> listener) const
{
    return std::any_of(listeners_.begin(), listeners_.end(), [listener](const auto &each) {
        return (!listener || *listener == each.first) && each.second->unsent() > kMaxUnread / 2;
    });
}

void EmbeddedEvents::keepAlive(std::chrono::seconds period)
{
    loop_.after(period, [this, period, alive = std::weak_ptr(alive_)] {
        if (!alive.expired() && socket_) {
            publish(kAlive);
            keepAlive(period);
        }
    });
}

void EmbeddedEvents::end()
{
    acceptor_.reset();
    socket_.reset();
    listeners_.clear();
}

}  // namespace kvosim
