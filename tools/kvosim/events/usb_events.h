// USB events of the service: told to the program that has them, while they are activated.
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
    /// Told of each event and what became of it.
    using Report = std::function<void(std::string_view text, std::string_view outcome)>;

    /// @p loop and @p context must outlive it.
    UsbEvents(EventLoop &loop, ServiceContext &context, Report report);

    [[nodiscard]] EventLoop &loop() noexcept { return loop_; }
    [[nodiscard]] Plant &plant() noexcept { return context_.plant; }
    /// Whether a program has asked for the events, so that they go out.
    [[nodiscard]] bool activated() const noexcept { return context_.usbEventsActivated; }

    /// Throws Refused where an event could not be sent now, for want of room. To be asked before anything is changed.
    void checkRoom() const;
    /// Sends an event if events are activated; then @p done is called on the loop's thread, later.
    /// @return whether they are
    bool send(const UsbNews &news, Deliveries::Done done);
    /// No more events.
    void end() { deliveries_.end(); }

private:
    EventLoop &loop_;
    ServiceContext &context_;
    Report report_;
    Deliveries deliveries_;
};

}  // namespace kvosim
