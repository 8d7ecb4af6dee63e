// Sends a storm of USB events: one event at a time, the next one when it is due.
#include "kvosim/events/usb_storm.h"

#include "common/control_protocol.h"
#include "common/refused.h"

#include <algorithm>
#include <memory>

namespace kvosim {

namespace {

constexpr const char *kDeactivated = "deactivated";
constexpr const char *kNotActivated = "USB events are not activated; a program must activate them first";

/// A storm in progress. The callback of the pending event or of the pending timer owns it.
class Storm : public std::enable_shared_from_this<Storm> {
public:
    Storm(UsbEvents &events, const StormParameters &parameters, LineServer::Caller caller)
        : events_(events), parameters_(parameters), caller_(std::move(caller))
    {
    }

    void begin()
    {
        due_ = began_ = tools::Clock::now();
        wait();
    }

private:
    void wait()
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(due_ - tools::Clock::now());
        events_.loop().after(std::max(left, std::chrono::milliseconds{0}), [self = shared_from_this()] { self->step(); });
    }

    void step()
    {
        // This check comes first: if no caller waits, the service may already be destroyed.
        if (!caller_.isWaiting()) {
            return;
        }
        try {
            if (sent_ == parameters_.count) {
                finishWith("count");
            } else if (!events_.send(nextNotification(),
                                     [self = shared_from_this()](Delivery delivery) { self->finish(delivery); })) {
                finishWith(kDeactivated);
            }
        } catch (const std::exception &error) {
            finishWith(error.what());
        }
    }

    /// Removes the device that was plugged in last, or plugs one in. Another client may have removed it already.
    UsbNotification nextNotification()
    {
        events_.checkCapacity();
        if (plugged_) {
            const UsbNotification last = *std::exchange(plugged_, std::nullopt);
            const auto station = *events_.plant().findStation(last.station);
            const auto &devices = station.panel.usbDevices;
            if (std::any_of(devices.begin(), devices.end(), [&](const UsbDevice &d) { return sameIdents(d, last.device); })) {
                return unplug(station, ident2Of(last.device) + '*' + ident3Of(last.device));
            }
        }
        const auto station = *events_.plant().findStation(nextStation());
        UsbNotification notification = plug(station, newUsbDeviceFor(station.panel));
        if (notification.event == UsbEvent::plugged) {
            plugged_ = notification;
        }
        return notification;
    }

    uint32_t nextStation()
    {
        const auto stations = events_.plant().stations();
        return parameters_.station ? *parameters_.station : stations[nextIndex_++ % stations.size()].address;
    }

    void finish(Delivery delivery)
    {
        if (delivery == Delivery::notActivated) {
            finishWith(kDeactivated);  // that event was not sent
            return;
        }
        ++sent_;
        delivered_ += delivery == Delivery::delivered ? 1 : 0;
        if (delivery == Delivery::simulatorEnds) {
            finishWith(deliveryName(delivery));
            return;
        }
        if (parameters_.rate != 0) {
            due_ = began_ + std::chrono::nanoseconds(std::chrono::seconds(1)) * int64_t{sent_} / int64_t{parameters_.rate};
        }
        wait();
    }

    void finishWith(std::string_view end)
    {
        const std::chrono::duration<double> time = tools::Clock::now() - began_;
        const double rate = time.count() > 0 ? sent_ / time.count() : 0;
        caller_.reply(tools::Json{
            {"sent", sent_},
            {"delivered", delivered_},
            {"failed", sent_ - delivered_},
            {"seconds", time.count()},
            {"events_per_second", rate},
            {"end", end}}.dump());
    }

    UsbEvents &events_;
    StormParameters parameters_;
    LineServer::Caller caller_;
    tools::Clock::time_point began_;
    tools::Clock::time_point due_;
    uint32_t sent_ = 0;
    uint32_t delivered_ = 0;
    std::size_t nextIndex_ = 0;
    std::optional<UsbNotification> plugged_;
};

}  // namespace

void beginUsbStorm(UsbEvents &events, const StormParameters &parameters, const LineServer::Caller &caller)
{
    if (!events.activated()) {
        throw tools::Refused(kNotActivated);
    }
    if (events.plant().stations().empty()) {
        throw tools::Refused("the plant has no station where devices can be plugged in");
    }
    events.checkCapacity();
    std::make_shared<Storm>(events, parameters, caller)->begin();
}

}  // namespace kvosim
