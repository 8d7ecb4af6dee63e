#include "agent/focus_station.h"

#include <kvo_hws/agent.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/result.h>

#include "agent/dotted.h"
#include "agent/instance.h"
#include "requests/focus.h"
#include "runtime/log.h"

#include <cstdint>
#include <cstdio>

namespace {

using kvo_hws::debugValues;
using kvo_hws::shared;

constexpr std::size_t kLongestReply = 1024;

/// init_fb writes these variables and the handlers read them, all on the connection thread.
KvoDescriptionEx station = {};
bool stationIsValid = false;
char assignment[kLongestReply] = {};

using Label = char[260];

void labelByAddress(uint32_t address, Label &label) noexcept
{
    std::snprintf(label, sizeof label, "IP %s", kvo_hws::agent::Dotted(address).text());
}

/// Reads the station's description: by the address, or by the name if the address is 0.
int32_t readDescription(uint32_t address, Label &label) noexcept
{
    if (address != 0) {
        labelByAddress(address, label);
        return KVO_HWS_getDescriptionEx(address, nullptr, &station);
    }
    std::snprintf(label, sizeof label, "%.256s", gFocusName);
    return KVO_HWS_getDescriptionEx(0, gFocusName, &station);
}

}  // namespace

int init_fb() noexcept
{
    Label label;
    int32_t result = readDescription(shared(gFocusKvoIp).load(), label);
    if (result != KVO_HWS_OK) {
        debugValues("init_fb - getDescriptionEx(%s) fails with %d", label, result);
        return -1;
    }
    shared(gFocusKvoIp).store(station.address);
    stationIsValid = true;
    if (kvo_hws::agent::mustStop()) {
        return -1;  // each of the two requests may take almost as long as a clean-up waits
    }
    result = kvo_hws::getT2M2N(station.address, assignment, sizeof assignment);
    if (result != KVO_HWS_OK) {
        labelByAddress(station.address, label);
        debugValues("init_fb - getKVOT2M2N(%s) fails with %d", label, result);
        return -1;
    }
    return 0;
}

const KvoDescriptionEx *kvo_hws::agent::focusStation::description() noexcept { return stationIsValid ? &station : nullptr; }

const char *kvo_hws::agent::focusStation::t2m2n() noexcept { return assignment; }
