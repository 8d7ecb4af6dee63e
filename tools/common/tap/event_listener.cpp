// Reads the lines that the service publishes.
#include "common/tap/event_listener.h"

#include "common/tap/unix_address.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace tools::tap {

EventListener::EventListener(EventLoop &loop, std::filesystem::path path, Observer &observer, Clock::time_point start)
    : loop_(loop), path_(std::move(path)), lines_(observer, start, {})
{
    look();
}

EventListener::~EventListener() { disconnect(); }

bool EventListener::look()
{
    if (connection_.valid()) {
        return true;
    }
    const sockaddr_un address = unixAddress(path_);
    Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!connection.valid() || connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        return false;
    }
    connection_ = std::move(connection);
    loop_.watch(connection_.get(), EPOLLIN, [this](uint32_t) { read(); });
    return true;
}

void EventListener::read()
{
    std::array<char, 16UL * 1024> bytes{};
    const ssize_t size = recv(connection_.get(), bytes.data(), bytes.size(), 0);
    if (size > 0) {
        lines_.add({bytes.data(), static_cast<std::size_t>(size)});
    } else if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
        disconnect();
    }
}

void EventListener::disconnect()
{
    if (connection_.valid()) {
        loop_.unwatch(connection_.get());
        connection_ = Descriptor();
        lines_.end();
    }
}

}  // namespace tools::tap
