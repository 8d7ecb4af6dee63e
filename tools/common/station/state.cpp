// Sends one request after the other until the service stops answering.
#include "common/station/state.h"

#include <kvo_hws/result.h>

#include <chrono>

namespace tools {

void readStation(uint32_t station, const std::function<void(const NamedProperty &asked, const Reading &reading)> &onReading)
{
    for (const NamedProperty &asked : stationProperties()) {
        const auto start = std::chrono::steady_clock::now();
        const Reading reading = asked.property.read(station);
        if (reading.result.code == KVO_HWS_NO_SERVICE) {
            require(reading.result);
        }
        if (reading.result.code != KVO_HWS_OK && std::chrono::steady_clock::now() - start > kSilence) {
            throw Failure(reading.result.code, "the service stopped answering at " + std::string(asked.subcommand));
        }
        onReading(asked, reading);
    }
}

}  // namespace tools
