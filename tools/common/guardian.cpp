// The guardian waits for a pidfd of the guarded process, and for a word on a connection.
#include "common/guardian.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tools {

namespace {

constexpr char kDone = 'd';

/// Keeps only these descriptors and numbers them from 0.
void keepOnly(const std::vector<int> &descriptors)
{
    const int count = static_cast<int>(descriptors.size());
    std::vector<int> moved(descriptors.size());
    std::transform(descriptors.begin(), descriptors.end(), moved.begin(),
                   [count](int descriptor) { return fcntl(descriptor, F_DUPFD, count); });
    int number = 0;
    for (const int descriptor : moved) {
        dup2(descriptor, number++);
    }
    syscall(SYS_close_range, static_cast<unsigned>(count), ~0U, 0);
}

void receiveAllSignals()
{
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void guard(const char *name, std::vector<int> descriptors, int connection, int process, const Guardian::Work &work)
{
    setsid();
    prctl(PR_SET_NAME, name);
    receiveAllSignals();
    const int kept = static_cast<int>(descriptors.size());
    descriptors.insert(descriptors.end(), {connection, process});
    keepOnly(descriptors);
    if (chdir("/") != 0) {
        _exit(1);
    }
    GuardedProcess guarded(kept, kept + 1);
    work(guarded);
    _exit(0);
}

}  // namespace

void GuardedProcess::waitForEnd() const
{
    std::array<pollfd, 2> events{pollfd{.fd = connection_.get(), .events = POLLIN, .revents = 0},
                                 pollfd{.fd = process_.get(), .events = POLLIN, .revents = 0}};
    for (;;) {
        if (poll(events.data(), events.size(), -1) < 0) {
            continue;
        }
        char word = 0;
        if (events[1].revents != 0 || (events[0].revents != 0 && read(connection_.get(), &word, 1) == 1)) {
            return;
        }
        events[0].fd = -1;  // closed: the process has executed another program
    }
}

void GuardedProcess::release() noexcept
{
    connection_ = Descriptor();
    process_ = Descriptor();
}

Guardian Guardian::start(const char *name, const std::vector<int> &descriptors, const Work &work)
{
    std::array<int, 2> ends{};
    const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)));
    if (!process.valid() || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return {};
    }
    Guardian started;
    started.connection_ = Descriptor(ends[0]);
    const Descriptor guardians(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        if (fork() == 0) {
            guard(name, descriptors, guardians.get(), process.get(), work);
        }
        _exit(0);
    }
    if (child > 0) {
        waitpid(child, nullptr, 0);
    }
    return started;
}

void Guardian::finish(std::chrono::milliseconds timeout) const
{
    if (!isRunning() || send(connection_.get(), &kDone, 1, MSG_NOSIGNAL) != 1) {
        return;
    }
    pollfd gone{.fd = connection_.get(), .events = POLLIN, .revents = 0};
    poll(&gone, 1, static_cast<int>(timeout.count()));
}

}  // namespace tools
