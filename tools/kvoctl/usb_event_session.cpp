// The library tells events on its own threads. These run the user's program and leave the rest to the main thread, which alone
// writes, closes and waits; so nothing that hangs keeps it from ending.
#include "usb_event_session.h"

#include "result.h"

#include <kvo_hws/result.h>
#include <kvo_hws/usbevents.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <sys/eventfd.h>
#include <utility>

using namespace std::chrono_literals;

namespace kvoctl {

namespace {

using Clock = std::chrono::steady_clock;

/// For the service's answer to the end.
constexpr auto kClosePatience = 5s;
constexpr int32_t kTellFailed = -1;
constexpr int32_t kTellDone = 0;

/// Events on their way from the library's threads to the main thread.
class Inbox {
public:
    Inbox() : wakeUp_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd") {}

    void put(const UsbEvent &event)
    {
        const std::lock_guard lock(lock_);
        events_.push_back(event);
        eventfd_write(wakeUp_.get(), 1);
    }

    std::vector<UsbEvent> take()
    {
        const std::lock_guard lock(lock_);
        eventfd_t count = 0;
        eventfd_read(wakeUp_.get(), &count);
        return std::exchange(events_, {});
    }

    /// Readable while there is something to take.
    [[nodiscard]] int descriptor() const noexcept { return wakeUp_.get(); }

private:
    Descriptor wakeUp_;
    std::mutex lock_;
    std::vector<UsbEvent> events_;
};

/// What the callbacks know, which are given nothing but the event.
struct Shared {
    Inbox inbox{};
    std::optional<EventProgram> program{};
};

/// Never destroyed: callbacks may still run while the process ends.
Shared &shared()
{
    union Lasting {
        Lasting() : value() {}
        Lasting(const Lasting &) = delete;
        Lasting &operator=(const Lasting &) = delete;
        ~Lasting() {}
        Shared value;
    };
    static Lasting lasting;
    return lasting.value;
}

int32_t tell(const UsbEvent &event)
{
    Shared &here = shared();
    here.inbox.put(event);
    const bool worked = !here.program || !event.isOfDevice() || here.program->run(event);
    return worked ? kTellDone : kTellFailed;
}

int32_t newerCallback(UsbEventV2 *event) { return tell(usbEvent(*event)); }

int32_t olderCallback(uint32_t code, void *record) { return tell(usbEvent(code, record)); }

class Session {
public:
    Session(const UsbEventPlan &plan, const StopSignals &signals) : plan_(plan), signals_(signals)
    {
        shared().program = plan.program;
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
        output_.drain();
        return result();
    }

private:
    void activate()
    {
        const int32_t result =
            plan_.olderCallback ? KVO_HWS_activateUSBEvents(olderCallback) : KVO_HWS_activateUSBEventsV2(newerCallback);
        takeEvents();
        if (!end_) {  // which tells more
            require(result, {{KVO_HWS_NO_THREAD, "no thread could be started that asks the service"}});
        }
    }

    [[nodiscard]] bool isOver() const { return end_ || (deadline_ && Clock::now() >= *deadline_); }

    /// Waits for whatever comes first and sees to it.
    void await()
    {
        std::array<pollfd, 3> sources{pollfd{.fd = shared().inbox.descriptor(), .events = POLLIN, .revents = 0},
                                      pollfd{.fd = deadline_ ? -1 : signals_.descriptor(), .events = POLLIN, .revents = 0},
                                      plan_.format ? output_.wish() : pollfd{.fd = -1, .events = 0, .revents = 0}};
        if (poll(sources.data(), sources.size(), deadline_ ? millisecondsLeft() : -1) <= 0) {
            return;
        }
        takeEvents();
        output_.serve(sources[2]);
        wantsToClose_ = wantsToClose_ || sources[1].revents != 0 || output_.hasEnded();
    }

    [[nodiscard]] int millisecondsLeft() const
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline_ - Clock::now());
        return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
    }

    void takeEvents()
    {
        for (const UsbEvent &event : shared().inbox.take()) {
            if (plan_.format) {
                output_.add(plan_.format(event));
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
            throw Failure(KVO_HWS_SERVER_FAILED, subject + "their server could not be started or stopped");
        case USB_EVENT_REFUSED: throw Failure(KVO_HWS_FAILED, subject + words(KVO_HWS_FAILED, {}));
        case USB_EVENT_NO_SERVICE: throw Failure(KVO_HWS_NO_SERVICE, subject + words(KVO_HWS_NO_SERVICE, {}));
        default: break;
        }
        output_.check();
        return deadline_ ? UsbEventEnd::closed : UsbEventEnd::takenOver;
    }

    const UsbEventPlan &plan_;
    const StopSignals &signals_;
    LineOutput output_;
    std::optional<uint32_t> end_;                ///< the code that told it
    std::optional<Clock::time_point> deadline_;  ///< of the close, once it has begun
    bool wantsToClose_ = false;
};

}  // namespace

UsbEventEnd runUsbEvents(const UsbEventPlan &plan, const StopSignals &signals) { return Session(plan, signals).run(); }

}  // namespace kvoctl
