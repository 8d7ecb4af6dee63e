// Sends USB events while they are activated.
#include "kvosim/events/usb_events.h"

#include <utility>

namespace kvosim {

UsbEvents::UsbEvents(tools::EventLoop &loop, ServiceContext &context, Report report)
    : loop_(loop), context_(context), report_(std::move(report)), deliveries_(loop, [this] { return activated(); })
{
}

void UsbEvents::checkCapacity() const
{
    if (activated()) {
        deliveries_.checkCapacity();
    }
}

bool UsbEvents::send(const UsbNotification &notification, Deliveries::Done done)
{
    std::string text = notification.text();
    if (!activated()) {
        report_(text, deliveryName(Delivery::notActivated));
        return false;
    }
    deliveries_.send(text, [this, text, done = std::move(done)](Delivery delivery) {
        report_(text, deliveryName(delivery));
        done(delivery);
    });
    return true;
}

}  // namespace kvosim
