// The connection to the guardian becomes readable when the guardian ends.
#include "common/tap/tap_guardian.h"

#include <sys/epoll.h>

namespace tools::tap {

namespace {

constexpr std::chrono::milliseconds kRestartPause{10};
constexpr std::chrono::milliseconds kCleanUpTimeout{1'000};

}  // namespace

TapGuardian::TapGuardian(EventLoop &loop, std::function<void()> cleanUp) : loop_(loop), cleanUp_(std::move(cleanUp))
{
    start();
}

TapGuardian::~TapGuardian()
{
    if (guardian_.isRunning()) {
        loop_.unwatch(guardian_.descriptor());
        guardian_.finish(kCleanUpTimeout);
    }
}

void TapGuardian::start()
{
    guardian_ = Guardian::start("kvo_tap_guard", {}, [this](GuardedProcess &tap) {
        tap.waitForEnd();
        cleanUp_();
    });
    if (guardian_.isRunning()) {
        loop_.watch(guardian_.descriptor(), EPOLLIN, [this](uint32_t) { ended(); });
    } else {
        startLater();  // the system has no descriptors or processes left
    }
}

void TapGuardian::ended()
{
    loop_.unwatch(guardian_.descriptor());
    guardian_ = {};
    startLater();
}

/// If something ends each guardian at once, the tap still has time for the programs.
void TapGuardian::startLater()
{
    loop_.after(kRestartPause, [this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) {
            start();
        }
    });
}

}  // namespace tools::tap
