// Waits for the end of a process, or asks the kernel again and again.
#include "common/tap/server_watch.h"

#include "common/tap/listening.h"

#include <sys/epoll.h>
#include <sys/syscall.h>

namespace tools::tap {

ServerWatch::ServerWatch(EventLoop &loop, const FileId &file, pid_t process, std::function<void()> onEnd)
    : loop_(loop), file_(file), onEnd_(std::move(onEnd)),
      process_(process > 0 ? static_cast<int>(syscall(SYS_pidfd_open, process, 0)) : -1)
{
    if (process_.valid()) {
        loop_.watch(process_.get(), EPOLLIN, [this](uint32_t) { processEnded(); });
    } else if (listeningAt(file_) == Listening::yes) {
        lookLater();
    }
}

ServerWatch::~ServerWatch()
{
    if (process_.valid()) {
        loop_.unwatch(process_.get());
    }
}

/// The process that began to listen may have passed its socket on to another one.
void ServerWatch::processEnded()
{
    loop_.unwatch(process_.get());
    process_ = Descriptor();
    if (listeningAt(file_) == Listening::yes) {
        lookLater();
    } else {
        end();
    }
}

/// The callback may destroy this object.
void ServerWatch::end()
{
    const auto onEnd = std::move(onEnd_);
    onEnd();
}

void ServerWatch::lookLater()
{
    loop_.after(kPeriod, [this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) {
            look();
        }
    });
}

void ServerWatch::look()
{
    if (listeningAt(file_) == Listening::no) {
        end();
    } else {
        lookLater();
    }
}

}  // namespace tools::tap
