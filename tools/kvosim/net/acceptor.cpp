// Acceptance, also where descriptors run out.
#include "kvosim/net/acceptor.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace kvosim {

namespace {

constexpr std::chrono::milliseconds kPause{100};
constexpr int kAcceptedAtOnce = 16;  // then everybody else has a turn

}  // namespace

Acceptor::Acceptor(EventLoop &loop, int listener, std::function<void(tools::Descriptor connection)> take)
    : loop_(loop), listener_(listener), take_(std::move(take))
{
    watch();
}

Acceptor::~Acceptor()
{
    if (watching_) {
        loop_.forget(listener_);
    }
}

void Acceptor::watch()
{
    loop_.watch(listener_, EPOLLIN, [this](uint32_t) { acceptSome(); });
    watching_ = true;
}

void Acceptor::acceptSome()
{
    for (int accepted = 0; accepted < kAcceptedAtOnce; ++accepted) {
        tools::Descriptor connection(accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (connection.valid()) {
            take_(std::move(connection));
        } else if (errno == EMFILE || errno == ENFILE) {
            pause();
            return;
        } else if (errno != ECONNABORTED && errno != EINTR) {
            return;
        }
    }
}

/// A listening socket stays ready while nobody can be taken: without a pause the loop would do nothing else.
void Acceptor::pause()
{
    loop_.forget(listener_);
    watching_ = false;
    loop_.after(kPause, [this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) {
            watch();
        }
    });
}

}  // namespace kvosim
