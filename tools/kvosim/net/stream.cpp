// Reads and writes connected stream sockets.
#include "kvosim/net/stream.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <system_error>

namespace kvosim {

namespace {

bool isTransient() noexcept { return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR; }

}  // namespace

Stream::Stream(tools::EventLoop &loop, tools::Descriptor socket, std::size_t capacity, Callbacks callbacks)
    : loop_(loop), socket_(std::move(socket)), capacity_(capacity), callbacks_(std::move(callbacks))
{
    loop_.watch(socket_.get(), EPOLLIN, [this](uint32_t events) { handleEvents(events); });
}

Stream::~Stream() { loop_.unwatch(socket_.get()); }

bool Stream::write(std::string_view bytes)
{
    if (bytes.size() > capacity_ - unsent_.size()) {
        return false;
    }
    unsent_ += bytes;
    return flush();
}

void Stream::resetWhenClosed() const noexcept
{
    const linger now{.l_onoff = 1, .l_linger = 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

void Stream::handleEvents(uint32_t events)
{
    if ((events & EPOLLOUT) != 0) {
        static_cast<void>(flush());  // receive() reports errors
    }
    if ((events & ~uint32_t{EPOLLOUT}) != 0) {
        receive();  // must come last: its callbacks may destroy this object
    }
}

/// Reads one piece at a time, so a flood does not delay other connections.
void Stream::receive()
{
    std::array<char, std::size_t{16} * 1024> piece{};
    const ssize_t count = recv(socket_.get(), piece.data(), piece.size(), 0);
    if (count > 0) {
        callbacks_.received({piece.data(), static_cast<std::size_t>(count)});
    } else if (count == 0) {
        callbacks_.closed("the other side closed the connection");
    } else if (!isTransient()) {
        callbacks_.closed(std::generic_category().message(errno));
    }
}

bool Stream::flush()
{
    const ssize_t count = unsent_.empty() ? 0 : send(socket_.get(), unsent_.data(), unsent_.size(), MSG_NOSIGNAL);
    const bool failed = count < 0 && !isTransient();
    if (failed) {
        unsent_.clear();
    } else if (count > 0) {
        unsent_.erase(0, static_cast<std::size_t>(count));
    }
    loop_.setEvents(socket_.get(), unsent_.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT);
    return !failed;
}

}  // namespace kvosim
