// Creates the parts of the service and connects them.
#include "kvosim/service.h"

#include "kvosim/base/exchange_log.h"
#include "kvosim/control/control.h"
#include "kvosim/plant_exchange.h"

namespace kvosim {

namespace {

constexpr LineServerLimits kControlLimits{.longestLine = 65536, .connections = 64};

RemoteOptions remoteOptions(const ServiceState &plant, const ServiceOptions &options)
{
    return {.sessions = options.remoteSessions.value_or(plant.remoteSessions),
            .address = options.remoteAddress.value_or(plant.remoteAddress)};
}

}  // namespace

Service::Service(tools::EventLoop &loop, Plant plant, const ServiceOptions &options, std::function<void()> ended)
    : loop_(loop), verbose_(options.verbose), ended_(std::move(ended)), plant_(std::move(plant)),
      registry_(options.registry), context_{.plant = plant_, .registry = registry_},
      usbEvents_(loop, context_,
                 [this](std::string_view text, std::string_view outcome) {
                     report("USB event " + printable(text) + " -> " + std::string(outcome));
                 }),
      commands_(
          loop, options.socket, [this](std::string_view request, const auto &) { return exchange(request); }, kFailed,
          [this](std::string_view event) { report(event); }, options.limits, options.socketMode),
      control_(
          loop, options.controlSocket,
          [this](std::string_view request, const LineServer::Caller &caller) {
              return answerControl({context_, usbEvents_, remote_, embeddedEvents_}, request, caller);
          },
          R"({"error":"the request is too long"})", {}, kControlLimits, tools::kForThisUser),
      embeddedEvents_(
          loop, options.eventSocket, options.alive, [this](std::string_view line) { report(line); }, options.socketMode),
      remote_(loop, remoteOptions(plant_.service, options), [this](std::string_view line) { report(line); })
{
    openUsbLock(options);
    // Only after this service has its socket: another service may be using the same registry.
    registry_.start(plant_);
}

void Service::openUsbLock(const ServiceOptions &options)
{
    const auto wanted = options.usbLockAddress ? options.usbLockAddress : plant_.service.usbLockAddress;
    const auto address = wanted ? wanted : options.usbLockDefault;
    if (!address || *address == kNoEndpoint) {
        return;
    }
    try {
        usbLock_ =
            std::make_unique<UdpSocket>(loop_, *address, [this](std::string_view datagram) { handleDatagram(datagram); });
    } catch (const std::exception &error) {
        if (wanted) {
            throw;
        }
        logLine(std::string("warning: ") + error.what() + "; continuing without them (see --usb-lock-address)");
        return;
    }
    context_.usbLockAddress = usbLock_->address();
}

void Service::report(std::string_view line) const
{
    if (verbose_) {
        logLine(line);
    }
}

void Service::end()
{
    usbEvents_.end();
    remote_.end();
    embeddedEvents_.end();
    // Command replies come first. No client waits for the last reply of the control socket.
    commands_.end([this] { control_.end(ended_); });
}

Reply Service::exchange(std::string_view request)
{
    Reply reply = exchangeWithPlant(context_, request, [this](std::string_view line) { report(line); });
    if (context_.ending) {
        end();
    }
    return reply;
}

void Service::handleDatagram(std::string_view datagram)
{
    const bool isApplied = applyUsbLock(plant_, datagram);
    report("datagram " + printable(datagram) + (isApplied ? "" : " (ignored)"));
}

}  // namespace kvosim
