// The scenario of USB events, from their activation to their end.
#include "reliability/scenarios.h"

#include "common/join.h"
#include "reliability/fixtures.h"
#include "reliability/healthy_service.h"
#include "support/eventually.h"
#include "support/own_thread.h"
#include "support/usb_events.h"

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <string>

using namespace std::chrono_literals;

namespace reliability {

namespace {

/// The event codes that the callback received, stored without allocations: the callback also runs when memory is exhausted.
class ReceivedCodes {
public:
    static int32_t callback(UsbEventV2 *event)
    {
        const std::size_t place = count_++;
        if (place < codes_.size()) {
            codes_[place] = event->code;
        }
        return 0;
    }
    static void reset()
    {
        count_ = 0;
        for (auto &code : codes_) {
            code = 0;
        }
    }
    /// Whether one of these codes was received at position @p begin or later.
    static bool any(std::initializer_list<uint32_t> wanted, std::size_t begin = 0)
    {
        return std::any_of(codes_.begin() + static_cast<std::ptrdiff_t>(begin), codes_.end(),
                           [wanted](const auto &code) { return std::ranges::find(wanted, code.load()) != wanted.end(); });
    }
    static std::size_t count() { return count_; }
    static std::string text()
    {
        std::string text;
        for (std::size_t place = 0; place < std::min<std::size_t>(count_, codes_.size()); ++place) {
            tools::appendTo(text, " ", std::to_string(codes_[place]));
        }
        return text;
    }

private:
    static inline std::array<std::atomic<uint32_t>, 16> codes_{};
    static inline std::atomic<std::size_t> count_{0};
};

bool eventsAreSet() { return __atomic_load_n(&sendUSBEvent2, __ATOMIC_SEQ_CST) != nullptr; }

class UsbEvents : public Scenario {
public:
    void run(Run &run) override
    {
        ReceivedCodes::reset();
        const int activated =
            onOwnThread(run, "activate", {1, -3, -8}, [] { return KVO_HWS_activateUSBEventsV2(ReceivedCodes::callback); });
        if (activated == 1) {
            support::eventually(
                [] {
                    return ReceivedCodes::any({USB_EVENT_ACTIVATED, USB_EVENT_REFUSED, USB_EVENT_NO_SERVICE});
                },
                2s);
        }
        std::string answer = support::usbServerReplyLine("changeStateUSBdevice*10.0.0.5*usb1*1-1.4*00000007*\n");
        std::erase(answer, '\n');
        run.note("answer to an event", answer.empty() ? "none" : answer);
        for (int close = 0; close < 2 && eventsAreSet(); ++close) {
            closeOnce(run);
        }
        run.note("callback codes", ReceivedCodes::text());
        run.note("callback", eventsAreSet() ? "set" : "cleared");
        // If the service refuses, the library clears the callback but keeps the server.
        if (support::serverState() != NOTIFY_STOPPED) {
            support::onOwnThread([] { return KillUsbServer(); });
        }
    }

private:
    static void closeOnce(Run &run)
    {
        const std::size_t before = ReceivedCodes::count();
        const int closed = onOwnThread(run, "close", {1, -8, -9}, KVO_HWS_closeUSBEvents);
        if (closed == 1) {
            support::eventually([before] {
                const bool reported =
                    ReceivedCodes::any({USB_EVENT_DEACTIVATED, USB_EVENT_REFUSED, USB_EVENT_NO_SERVICE}, before);
                return (reported && !eventsAreSet()) || faults::runningThreads() == 0;
            });
        }
    }

    static int onOwnThread(Run &run, const char *name, std::initializer_list<int> documented, int32_t (*call)())
    {
        return support::onOwnThread([&, call] {
            const int result = run.step(name, documented, call);
            kvo_hws_detach_thread();  // the library does not detach it if it refuses early
            return result;
        });
    }

    HealthyService service_{support::kCommandSocket, answerTo};
};

}  // namespace

std::unique_ptr<Scenario> makeUsbEvents() { return std::make_unique<UsbEvents>(); }

}  // namespace reliability
