// The service's parts put together.
#include "service.h"

#include "exchange_log.h"

#include <exception>

namespace kvosim {

Service::Service(EventLoop &loop, Plant plant, const ServiceOptions &options, std::function<void()> ended)
    : verbose_(options.verbose), ended_(std::move(ended)), plant_(std::move(plant)),
      registry_(options.registry), context_{.plant = plant_, .registry = registry_},
      commands_(
          loop, options.socket, [this](std::string_view request) { return exchange(request); }, kFailed,
          [verbose = options.verbose](std::string_view event) {
              if (verbose) {
                  logLine(event);
              }
          },
          options.limits)
{
    // Only now that the socket is this service's: another one may be using the same registry.
    registry_.start(plant_);
}

void Service::end() { commands_.end(ended_); }

std::string Service::exchange(std::string_view request)
{
    std::string reply = kFailed;
    try {
        reply = answer(context_, request);
    } catch (const std::exception &error) {
        // A full disk, say: told to whoever watches; the next request may find it better.
        logLine(shown(request) + ": " + error.what());
    }
    if (verbose_) {
        logLine(shown(request) + " -> " + shown(reply));
    }
    if (context_.ending) {
        end();
    }
    return reply;
}

}  // namespace kvosim
