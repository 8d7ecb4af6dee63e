// One request after the other, until the service goes silent.
#include "common/station/state.h"

#include <kvo_hws/result.h>

#include <chrono>

using namespace std::chrono_literals;

namespace tools {

namespace {

/// An answer that takes so long has not come: the library gives a silent service 4 s, and would at every further question.
constexpr auto kSilence = 3s;

}  // namespace

void readStation(uint32_t station, const std::function<void(const NamedProperty &asked, const Reading &reading)> &take)
{
    for (const NamedProperty &asked : stationProperties()) {
        const auto start = std::chrono::steady_clock::now();
        const Reading reading = asked.property.read(station);
        if (reading.result.code == KVO_HWS_NO_SERVICE) {
            require(reading.result);
        }
        if (reading.result.code != KVO_HWS_OK && std::chrono::steady_clock::now() - start > kSilence) {
            throw Failure(reading.result.code, "the service stopped answering at " + std::string(asked.words));
        }
        take(asked, reading);
    }
}

}  // namespace tools
