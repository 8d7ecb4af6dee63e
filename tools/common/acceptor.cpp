// Accepts connections, and retries later when no descriptors are left.
#include "common/acceptor.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace tools {

namespace {

constexpr std::chrono::milliseconds kRetryDelay{100};

}  // namespace

Acceptor::Acceptor(EventLoop &loop, int listener, std::function<void(Descriptor connection)> onConnection)
    : loop_(loop), listener_(listener), onConnection_(std::move(onConnection))
{
    watch();
}

Acceptor::~Acceptor()
{
    if (watching_) {
        loop_.unwatch(listener_);
    }
}

void Acceptor::watch()
{
    loop_.watch(listener_, EPOLLIN, [this](uint32_t) { acceptOne(); });
    watching_ = true;
}

/// Accepts one connection, because a failing call is expensive. The loop reports the next one after it has served other descriptors.
void Acceptor::acceptOne()
{
    Descriptor connection(accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (connection.valid()) {
        onConnection_(std::move(connection));
    } else if (errno == EMFILE || errno == ENFILE) {
        pause();
    }
}

/// The listening socket stays ready while no connection can be accepted. Without a pause the loop would do nothing else.
void Acceptor::pause()
{
    loop_.unwatch(listener_);
    watching_ = false;
    loop_.after(kRetryDelay, [this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) {
            watch();
        }
    });
}

}  // namespace tools
