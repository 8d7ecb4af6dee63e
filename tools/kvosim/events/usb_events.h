// USB events of the service, sent to the program that receives them while they are activated.
#pragma once

#include "kvosim/commands/commands.h"
#include "kvosim/events/deliveries.h"
#include "kvosim/plant/usb_ports.h"

#include <functional>
#include <string>
#include <string_view>

namespace kvosim {

class UsbEvents {
public:
    /// Called with each event and the result of its delivery.
    using Report = std::function<void(std::string_view text, std::string_view outcome)>;

    /// @p loop and @p context must outlive this object.
    UsbEvents(tools::EventLoop &loop, ServiceContext &context, Report report);

    [[nodiscard]] tools::EventLoop &loop() noexcept { return loop_; }
    [[nodiscard]] Plant &plant() noexcept { return context_.plant; }
    /// Whether a program has activated the events.
    [[nodiscard]] bool activated() const noexcept { return context_.usbEventsActivated; }

    /// Throws Refused if events are activated and the queue is full. Call it before changing any state.
    void checkCapacity() const;
    /// Sends an event if events are activated, and calls @p done later on the loop's thread.
    /// @return whether events are activated
    bool send(const UsbNotification &notification, Deliveries::Done done);
    /// Accepts no more events.
    void end() { deliveries_.end(); }

private:
    tools::EventLoop &loop_;
    ServiceContext &context_;
    Report report_;
    Deliveries deliveries_;
};

}  // namespace kvosim
