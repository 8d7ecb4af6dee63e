// The storm: one event is on its way at a time, the next one is sent when it is due.
#include "kvosim/events/usb_storm.h"

#include "common/control_protocol.h"
#include "common/refused.h"

#include <algorithm>
#include <memory>

namespace kvosim {

namespace {

constexpr const char *kDeactivated = "deactivated";
constexpr const char *kNotActivated = "USB events are not activated; a program has to activate them first";

/// Held by the event that is on its way, or by the time that is waited for.
class Storm : public std::enable_shared_from_this<Storm> {
public:
    Storm(UsbEvents &events, const StormOrder &order, LineServer::Caller caller)
        : events_(events), order_(order), caller_(std::move(caller))
    {
    }

    void begin()
    {
        due_ = began_ = Clock::now();
        wait();
    }

private:
    void wait()
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(due_ - Clock::now());
        events_.loop().after(std::max(left, std::chrono::milliseconds{0}), [self = shared_from_this()] { self->step(); });
    }

    void step()
    {
        // First of all: where nobody waits, the service itself may have gone.
        if (!caller_.waits()) {
            return;
        }
        try {
            if (sent_ == order_.count) {
                tell("count");
            } else if (!events_.send(nextNews(), [self = shared_from_this()](Delivery delivery) { self->finish(delivery); })) {
                tell(kDeactivated);
            }
        } catch (const std::exception &error) {
            tell(error.what());
        }
    }

    /// A device comes, or the one goes that has come last. Somebody else may have removed it meanwhile.
    UsbNews nextNews()
    {
        events_.checkRoom();
        if (plugged_) {
            const UsbNews last = *std::exchange(plugged_, std::nullopt);
            const auto station = *events_.plant().findStation(last.station);
            const auto &devices = station.panel.usbDevices;
            if (std::any_of(devices.begin(), devices.end(), [&](const UsbDevice &d) { return sameIdents(d, last.device); })) {
                return unplug(station, ident2Of(last.device) + '*' + ident3Of(last.device));
            }
        }
        const auto station = *events_.plant().findStation(nextStation());
        UsbNews news = plug(station, newUsbDeviceFor(station.panel));
        if (news.event == UsbEvent::plugged) {
            plugged_ = news;
        }
        return news;
    }

    uint32_t nextStation()
    {
        const auto stations = events_.plant().stations();
        return order_.station ? *order_.station : stations[turn_++ % stations.size()].address;
    }

    void finish(Delivery delivery)
    {
        if (delivery == Delivery::notActivated) {
            tell(kDeactivated);  // that event has not gone out any more
            return;
        }
        ++sent_;
        delivered_ += delivery == Delivery::delivered ? 1 : 0;
        if (delivery == Delivery::simulatorEnds) {
            tell(wordsFor(delivery));
            return;
        }
        if (order_.rate != 0) {
            due_ = began_ + std::chrono::nanoseconds(std::chrono::seconds(1)) * int64_t{sent_} / int64_t{order_.rate};
        }
        wait();
    }

    void tell(std::string_view end)
    {
        const std::chrono::duration<double> time = Clock::now() - began_;
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
    StormOrder order_;
    LineServer::Caller caller_;
    Clock::time_point began_;
    Clock::time_point due_;
    uint32_t sent_ = 0;
    uint32_t delivered_ = 0;
    std::size_t turn_ = 0;
    std::optional<UsbNews> plugged_;
};

}  // namespace

void beginUsbStorm(UsbEvents &events, const StormOrder &order, const LineServer::Caller &caller)
{
    if (!events.activated()) {
        throw tools::Refused(kNotActivated);
    }
    if (events.plant().stations().empty()) {
        throw tools::Refused("the plant has no station that devices could be plugged in at");
    }
    events.checkRoom();
    std::make_shared<Storm>(events, order, caller)->begin();
}

}  // namespace kvosim
