// Receives signals through signalfd.
#include "common/signals.h"

#include <cerrno>
#include <sys/epoll.h>
#include <system_error>

namespace tools {

Signals::Signals(EventLoop &loop, std::initializer_list<int> numbers, Callback callback) : loop_(loop)
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : numbers) {
        sigaddset(&set, number);
    }
    pthread_sigmask(SIG_BLOCK, &set, &previous_);
    fd_ = Descriptor(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
    if (!fd_.valid()) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    loop_.watch(fd_.get(), EPOLLIN, [fd = fd_.get(), callback = std::move(callback)](uint32_t) {
        signalfd_siginfo signal{};
        while (read(fd, &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
            callback(signal);
        }
    });
}

Signals::~Signals() { loop_.unwatch(fd_.get()); }

}  // namespace tools
