// The library reports events on its own threads. These only run the user's program. The main thread alone writes, closes and
// waits, so a blocked thread of the library cannot keep it from ending.
#include "kvoctl/live/usb_event_session.h"

#include "kvoctl/live/event_queue.h"
#include "kvoctl/live/poll_loop.h"
#include "kvoctl/output/result.h"

#include <kvo_hws/result.h>
#include <kvo_hws/usbevents.h>

#include <chrono>
#include <cstdint>

using namespace std::chrono_literals;

namespace kvoctl {

namespace {

using Clock = std::chrono::steady_clock;

/// The time for the service to confirm the close.
constexpr auto kCloseTimeout = 5s;
constexpr int32_t kCallbackFailed = -1;
constexpr int32_t kCallbackDone = 0;

/// The state that the callbacks use.
struct SharedUsbEvents {
    EventQueue<UsbEvent> queue{};
    std::optional<EventProgram> program{};
};

int32_t handle(const UsbEvent &event)
{
    SharedUsbEvents &shared = neverDestroyed<SharedUsbEvents>();
    shared.queue.put(event);
    const bool worked = !shared.program || !event.isDeviceEvent() || shared.program->run(event.toEvent());
    return worked ? kCallbackDone : kCallbackFailed;
}

int32_t newerCallback(UsbEventV2 *event) { return handle(usbEvent(*event)); }

int32_t olderCallback(uint32_t code, void *record) { return handle(usbEvent(code, record)); }

class UsbEventSession {
public:
    UsbEventSession(const UsbEventOptions &options, const StopSignals &signals)
        : options_(options), loop_(signals, options.format != nullptr)
    {
        neverDestroyed<SharedUsbEvents>().program = options.program;
    }

    UsbEventEnd run()
    {
        activate();
        while (!isOver()) {
            wait();
            // Never after an end: that would close the events of the program that has taken them over.
            if (wantsToClose_ && !deadline_ && !end_) {
                close();
            }
        }
        loop_.drain();
        return result();
    }

private:
    void activate()
    {
        const Result result = options_.olderCallback ? KVO_REQUEST(KVO_HWS_activateUSBEvents)(olderCallback)
                                                     : KVO_REQUEST(KVO_HWS_activateUSBEventsV2)(newerCallback);
        takeEvents();
        if (!end_) {  // an end event has more information than the result
            require(result);
        }
    }

    [[nodiscard]] bool isOver() const { return end_ || (deadline_ && Clock::now() >= *deadline_); }

    /// Waits for the next event, signal or deadline and handles it.
    void wait()
    {
        pollfd queue{.fd = neverDestroyed<SharedUsbEvents>().queue.descriptor(), .events = POLLIN, .revents = 0};
        if (loop_.wait({&queue, 1}, timeLeft())) {
            takeEvents();
        }
        wantsToClose_ = wantsToClose_ || loop_.mustEnd();
    }

    [[nodiscard]] std::optional<std::chrono::milliseconds> timeLeft() const
    {
        if (!deadline_) {
            return std::nullopt;
        }
        return std::chrono::ceil<std::chrono::milliseconds>(*deadline_ - Clock::now());
    }

    void takeEvents()
    {
        for (const UsbEvent &event : neverDestroyed<SharedUsbEvents>().queue.take()) {
            if (options_.format) {
                loop_.write(options_.format(event.toEvent()));
            }
            wantsToClose_ = wantsToClose_ || (options_.closeWhenActivated && event.code == USB_EVENT_ACTIVATED);
            if (event.isEnd() && !end_) {
                end_ = event.code;
            }
        }
    }

    /// Ignores the result: if no callback is set any more, an end event has already been reported.
    void close()
    {
        KVO_HWS_closeUSBEvents();
        deadline_ = Clock::now() + kCloseTimeout;
    }

    [[nodiscard]] UsbEventEnd result() const
    {
        const std::string subject = deadline_ ? "the events could not be closed: " : "the events could not be activated: ";
        if (!end_) {
            throw Failure(KVO_HWS_FAILED,
                          subject + "the service did not answer within " + std::to_string(kCloseTimeout.count()) + " s");
        }
        switch (*end_) {
        case USB_EVENT_SERVER_FAILED:
            throw Failure(KVO_HWS_SERVER_FAILED, subject + meaningOf({KVO_HWS_SERVER_FAILED, "KVO_HWS_activateUSBEventsV2"}));
        case USB_EVENT_REFUSED: throw Failure(KVO_HWS_FAILED, subject + meaningOf({KVO_HWS_FAILED}));
        case USB_EVENT_NO_SERVICE: throw Failure(KVO_HWS_NO_SERVICE, subject + meaningOf({KVO_HWS_NO_SERVICE}));
        default: break;
        }
        loop_.check();
        return deadline_ ? UsbEventEnd::closed : UsbEventEnd::takenOver;
    }

    const UsbEventOptions &options_;
    PollLoop loop_;
    std::optional<uint32_t> end_;                ///< the code of the end event
    std::optional<Clock::time_point> deadline_;  ///< of the close, after it has begun
    bool wantsToClose_ = false;
};

}  // namespace

UsbEventEnd runUsbEvents(const UsbEventOptions &options, const StopSignals &signals)
{
    return UsbEventSession(options, signals).run();
}

}  // namespace kvoctl
