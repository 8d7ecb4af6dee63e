#include "kvosim/compare/simulated_service.h"

#include <utility>

namespace kvosim {

SimulatedService::SimulatedService(Plant plant, Time initialized) : plant_(std::move(plant))
{
    context_.started = PlantClock::TimePoint(initialized) - plant_.service.initTime;
}

std::optional<std::string> SimulatedService::ask(std::string_view request, Time time)
{
    plant_.clock.set(PlantClock::TimePoint(time));
    auto [reply, fault] = carryOut(context_, request);
    if (fault == nullptr) {
        return std::move(reply);
    }
    switch (fault->kind()) {
    case FaultKind::close:
    case FaultKind::silent: return std::nullopt;
    case FaultKind::garbage: return garbled(std::move(reply));
    default: return std::move(reply);
    }
}

}  // namespace kvosim
