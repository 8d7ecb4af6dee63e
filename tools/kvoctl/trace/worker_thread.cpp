// Blocks the signals while the thread starts: it inherits the mask.
#include "kvoctl/trace/worker_thread.h"

#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>

namespace kvoctl {

namespace {

template <class Start>
std::thread withoutSignals(Start start)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread(std::move(start));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

}  // namespace

WorkerThread::WorkerThread(Work work)
    : abort_(eventfd(0, EFD_CLOEXEC), "eventfd"), ended_(eventfd(0, EFD_CLOEXEC), "eventfd"),
      thread_(withoutSignals([work = std::move(work), abort = abort_.get(), ended = ended_.get()] {
          work(abort);
          eventfd_write(ended, 1);
      }))
{
}

void WorkerThread::finish(std::optional<std::chrono::milliseconds> timeout)
{
    if (!thread_.joinable()) {
        return;
    }
    pollfd ended{.fd = ended_.get(), .events = POLLIN, .revents = 0};
    poll(&ended, 1, timeout ? static_cast<int>(timeout->count()) : -1);
    eventfd_write(abort_.get(), 1);
    thread_.join();
}

}  // namespace kvoctl
