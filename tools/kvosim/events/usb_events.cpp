// Events on their way out.
#include "kvosim/events/usb_events.h"

#include <utility>

namespace kvosim {

UsbEvents::UsbEvents(EventLoop &loop, ServiceContext &context, Report report)
    : loop_(loop), context_(context), report_(std::move(report)), deliveries_(loop, [this] { return activated(); })
{
}

void UsbEvents::checkRoom() const
{
    if (activated()) {
        deliveries_.checkRoom();
    }
}

bool UsbEvents::send(const UsbNews &news, Deliveries::Done done)
{
    std::string text = news.text();
    if (!activated()) {
        report_(text, wordsFor(Delivery::notActivated));
        return false;
    }
    deliveries_.send(text, [this, text, done = std::move(done)](Delivery delivery) {
        report_(text, wordsFor(delivery));
        done(delivery);
    });
    return true;
}

}  // namespace kvosim
