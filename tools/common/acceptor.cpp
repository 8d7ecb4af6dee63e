// Accepts connections, and retries later when no descriptors are left.
#include "common/acceptor.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace tools {

namespace {

constexpr std::chrono::milliseconds kRetryDelay{100};
constexpr int kMaxAcceptedAtOnce = 16;  // then other descriptors are served

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
    loop_.watch(listener_, EPOLLIN, [this](uint32_t) { acceptSome(); });
    watching_ = true;
}

void Acceptor::acceptSome()
{
    for (int accepted = 0; accepted < kMaxAcceptedAtOnce; ++accepted) {
        Descriptor connection(accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (connection.valid()) {
            onConnection_(std::move(connection));
        } else if (errno == EMFILE || errno == ENFILE) {
            pause();
            return;
        } else if (errno != ECONNABORTED && errno != EINTR) {
            return;
        }
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
