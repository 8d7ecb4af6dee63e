// The library tells events on its own threads. These run the user's program and leave the rest to the main thread, which alone
// writes, closes and waits; so nothing that hangs keeps it from ending.
#include "kvoctl/live/usb_event_session.h"

#include "kvoctl/live/attention.h"
#include "kvoctl/live/inbox.h"
#include "kvoctl/output/result.h"

#include <kvo_hws/result.h>
#include <kvo_hws/usbevents.h>

#include <chrono>
#include <cstdint>

using namespace std::chrono_literals;

namespace kvoctl {

namespace {

using Clock = std::chrono::steady_clock;

/// For the service's answer to the end.
constexpr auto kClosePatience = 5s;
constexpr int32_t kTellFailed = -1;
constexpr int32_t kTellDone = 0;

/// What the callbacks know.
struct SharedUsbEvents {
    Inbox<UsbEvent> inbox{};
    std::optional<EventProgram> program{};
};

int32_t tell(const UsbEvent &event)
{
    SharedUsbEvents &here = lasting<SharedUsbEvents>();
    here.inbox.put(event);
    const bool worked = !here.program || !event.isOfDevice() || here.program->run(event.shown());
    return worked ? kTellDone : kTellFailed;
}

int32_t newerCallback(UsbEventV2 *event) { return tell(usbEvent(*event)); }

int32_t olderCallback(uint32_t code, void *record) { return tell(usbEvent(code, record)); }

class UsbEventSession {
public:
    UsbEventSession(const UsbEventPlan &plan, const StopSignals &signals)
        : plan_(plan), attention_(signals, plan.format != nullptr)
    {
        lasting<SharedUsbEvents>().program = plan.program;
    }

    UsbEventEnd run()
    {
        activate();
        while (!isOver()) {
            await();
            // Never behind an end: that would close the events of the program that has taken them over.
            if (wantsToClose_ && !deadline_ && !end_) {
                close();
            }
        }
        attention_.drain();
        return result();
    }

private:
    void activate()
    {
        const Result result = plan_.olderCallback ? KVO_REQUEST(KVO_HWS_activateUSBEvents)(olderCallback)
                                                  : KVO_REQUEST(KVO_HWS_activateUSBEventsV2)(newerCallback);
        takeEvents();
        if (!end_) {  // which tells more
            require(result);
        }
    }

    [[nodiscard]] bool isOver() const { return end_ || (deadline_ && Clock::now() >= *deadline_); }

    /// Waits for whatever comes first and sees to it.
    void await()
    {
        pollfd inbox{.fd = lasting<SharedUsbEvents>().inbox.descriptor(), .events = POLLIN, .revents = 0};
        if (attention_.await({&inbox, 1}, timeLeft())) {
            takeEvents();
        }
        wantsToClose_ = wantsToClose_ || attention_.mustEnd();
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
        for (const UsbEvent &event : lasting<SharedUsbEvents>().inbox.take()) {
            if (plan_.format) {
                attention_.write(plan_.format(event.shown()));
            }
            wantsToClose_ = wantsToClose_ || (plan_.closeWhenActivated && event.code == USB_EVENT_ACTIVATED);
            if (event.isEnd() && !end_) {
                end_ = event.code;
            }
        }
    }

    /// Where no callback is set any more, the end has been told before.
    void close()
    {
        KVO_HWS_closeUSBEvents();
        deadline_ = Clock::now() + kClosePatience;
    }

    [[nodiscard]] UsbEventEnd result() const
    {
        const std::string subject = deadline_ ? "the events could not be given back: " : "the events could not be activated: ";
        if (!end_) {
            throw Failure(KVO_HWS_FAILED,
                          subject + "the service has not answered for " + std::to_string(kClosePatience.count()) + " s");
        }
        switch (*end_) {
        case USB_EVENT_SERVER_FAILED:
            throw Failure(KVO_HWS_SERVER_FAILED, subject + words({KVO_HWS_SERVER_FAILED, "KVO_HWS_activateUSBEventsV2"}));
        case USB_EVENT_REFUSED: throw Failure(KVO_HWS_FAILED, subject + words({KVO_HWS_FAILED}));
        case USB_EVENT_NO_SERVICE: throw Failure(KVO_HWS_NO_SERVICE, subject + words({KVO_HWS_NO_SERVICE}));
        default: break;
        }
        attention_.check();
        return deadline_ ? UsbEventEnd::closed : UsbEventEnd::takenOver;
    }

    const UsbEventPlan &plan_;
    Attention attention_;
    std::optional<uint32_t> end_;                ///< the code that told it
    std::optional<Clock::time_point> deadline_;  ///< of the close, once it has begun
    bool wantsToClose_ = false;
};

}  // namespace

UsbEventEnd runUsbEvents(const UsbEventPlan &plan, const StopSignals &signals) { return UsbEventSession(plan, signals).run(); }

}  // namespace kvoctl
