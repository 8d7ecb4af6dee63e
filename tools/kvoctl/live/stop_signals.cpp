// Blocks the signals and receives them with a signalfd.
#include "kvoctl/live/stop_signals.h"

#include <sys/signalfd.h>

namespace kvoctl {

namespace {

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

/// Returns the signals that were blocked before.
sigset_t blockSignals()
{
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGPIPE);
    for (const int signal : kStopSignals) {
        sigaddset(&blocked, signal);
    }
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    return before;
}

int openSignalDescriptor()
{
    sigset_t awaited;
    sigemptyset(&awaited);
    for (const int signal : kStopSignals) {
        sigaddset(&awaited, signal);
    }
    return signalfd(-1, &awaited, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

StopSignals::StopSignals() : previousMask_(blockSignals()), descriptor_(openSignalDescriptor(), "signalfd") {}

}  // namespace kvoctl
