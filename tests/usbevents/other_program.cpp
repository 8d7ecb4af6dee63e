// A second program of the panel: activates USB events for an "a" on its standard input, closes them for a "c", and writes each
// code that its callback receives as a byte to its standard output.
#include <kvo_hws/usbevents.h>

#include "support/own_thread.h"

#include <csignal>
#include <cstdint>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

int32_t report(UsbEventV2 *event)
{
    const auto code = static_cast<uint8_t>(event->code);
    return write(STDOUT_FILENO, &code, 1) == 1 ? 0 : -1;
}

}  // namespace

int main()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (char order = 0; read(STDIN_FILENO, &order, 1) == 1;) {
        // The thread sanitizer cannot handle a detached main thread.
        support::onOwnThread([order] { return order == 'a' ? KVO_HWS_activateUSBEventsV2(report) : KVO_HWS_closeUSBEvents(); });
    }
    return 0;
}
