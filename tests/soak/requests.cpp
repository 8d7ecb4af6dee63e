// Requests of every family, lists among them. Where a reply tells whom it is about, that is looked at: another thread's reply
// would be worse than none.
#include "requests.h"

#include <kvo_hws/requests.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/usbevents.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>

namespace soak {

namespace {

constexpr std::size_t kStations = 64;
constexpr std::size_t kText = 8192;  // more than any text of the simulated plant
constexpr std::size_t kLongCommand = 5000;
constexpr uint32_t kRegistryPatience = 1;  // seconds

// What most requests answer, and those of which some have more to say.
constexpr ResultSet kUsual = oneOf(1, -1, -2);
constexpr ResultSet kOrNo = oneOf(1, 0, -1, -2);
constexpr ResultSet kOrTooSmall = oneOf(1, -1, -2, -3);

template <class Element>
int32_t readList(int32_t (*ask)(Element *list, uint32_t *count), Worker &worker)
{
    std::vector<Element> list(worker.random.oneIn(10) ? 2 : kStations);
    auto count = static_cast<uint32_t>(list.size());
    const int32_t result = ask(list.data(), &count);
    if (result == 1 && (count == 0 || count > list.size())) {
        worker.complain("a list of " + std::to_string(count) + " stations came into " + std::to_string(list.size()));
    }
    return result;
}

/// A reply that was lost may have been that to the unlocking: the lock then stays with nobody.
int32_t readRegistry(int32_t (*ask)(KvoDescription *list, uint32_t *count, uint32_t timeout))
{
    std::vector<KvoDescription> list(kStations);
    auto count = static_cast<uint32_t>(list.size());
    const int32_t result = ask(list.data(), &count, kRegistryPatience);
    if (result == KVO_HWS_TIMEOUT) {
        KVO_HWS_unlockKVORegData();
    }
    return result;
}

int32_t describe(Worker &worker, uint32_t station)
{
    KvoDescriptionEx record{};
    const int32_t result = KVO_HWS_getDescriptionEx(station, nullptr, &record);
    if (result == 1 && record.address != station) {
        worker.complain("the description of another station came");
    }
    return result;
}

int32_t describeByName(Worker &worker, uint32_t)
{
    const std::string name = "Milling centre 1";
    KvoDescriptionEx record{};
    const int32_t result = KVO_HWS_getDescriptionEx(0, name.c_str(), &record);
    if (result == 1 && record.name != name) {
        worker.complain("the description of another name came");
    }
    return result;
}

/// Asks for one number in a variable of the type that the function wants.
template <class Number>
int32_t readNumber(int32_t (*ask)(uint32_t station, Number *value), uint32_t station)
{
    Number value = 0;
    return ask(station, &value);
}

int32_t readConnectors(int32_t (*ask)(char *buffer, uint32_t *size))
{
    std::vector<char> list(kText * 8);
    auto size = static_cast<uint32_t>(list.size());
    return ask(list.data(), &size);
}

int32_t readText(int32_t (*ask)(uint32_t station, char *text), uint32_t station)
{
    std::array<char, kText> text{};
    return ask(station, text.data());
}

/// Longer than the simulator takes: it answers before it has read all.
int32_t sendLongCommand(Worker &, uint32_t)
{
    DynBuffer reply{};
    const int32_t result = SendCommand2ServiceDyn(std::string(kLongCommand, 'x').c_str(), &reply);
    std::free(reply.pcData);
    return result;
}

int32_t readServer(Worker &, uint32_t station)
{
    std::array<char, kText> server{};
    std::array<char, kText> display{};
    auto serverSize = static_cast<uint32_t>(server.size());
    auto displaySize = static_cast<uint32_t>(display.size());
    return KVO_HWS_getCurrentServer(station, server.data(), &serverSize, display.data(), &displaySize);
}

int32_t lockUsb(Worker &worker, uint32_t)
{
    const char *host = "10.0.0.5";
    return KVO_HWS_setUsbLock(1, &host, worker.random.oneIn(4) ? 1 : 0, 0);
}

constexpr auto kIgnored = nullptr;

const RequestRow kRows[] = {
    {"getDescriptionList", [](Worker &w, uint32_t) { return readList<KvoDescription>(KVO_HWS_getDescriptionList, w); },
     oneOf(1, -1, -2, -3)},
    {"getDescriptionListEx", [](Worker &w, uint32_t) { return readList<KvoDescriptionEx>(KVO_HWS_getDescriptionListEx, w); },
     oneOf(1, -1, -2, -3)},
    {"getDescriptionEx", describe, kOrNo},
    {"getDescriptionEx by name", describeByName, kOrNo},
    {"getKVOCurrentListFromRegistry", [](Worker &, uint32_t) { return readRegistry(KVO_HWS_getKVOCurrentListFromRegistry); },
     oneOf(1, 0, -1, -2, -3, -4)},
    {"getKVOPreviousListFromRegistry", [](Worker &, uint32_t) { return readRegistry(KVO_HWS_getKVOPreviousListFromRegistry); },
     oneOf(1, 0, -1, -2, -3, -4)},
    {"getClientList",
     [](Worker &, uint32_t) {
         std::array<KvoClientEntry, kStations> list{};
         auto count = static_cast<uint32_t>(list.size());
         return KVO_HWS_getClientList(list.data(), &count, 0);
     },
     kOrTooSmall},
    {"getKVOHWSVersion",
     [](Worker &, uint32_t) {
         std::array<char, kText> version{};
         auto size = static_cast<unsigned>(version.size());
         return KVO_HWS_getKVOHWSVersion(version.data(), &size);
     },
     kUsual},
    {"isInitComplete", [](Worker &, uint32_t) { return KVO_HWS_isInitComplete(); }, kOrNo},
    {"setDebugLevel", [](Worker &w, uint32_t) { return KVO_HWS_setDebugLevel(static_cast<int>(w.random.below(3))); }, kUsual},
    {"setBacklight", [](Worker &w, uint32_t) { return KVO_HWS_setBacklight(w.random.below(3)); }, kUsual},
    {"setBrightness", [](Worker &w, uint32_t s) { return KVO_HWS_setBrightness(s, w.random.below(2)); }, kUsual},
    {"setBacklightBrightness", [](Worker &w, uint32_t s) { return KVO_HWS_setBacklightBrightness(s, w.random.below(102)); },
     kOrTooSmall},
    {"setBacklightBrightnessV2",
     [](Worker &w, uint32_t s) { return KVO_HWS_setBacklightBrightnessV2(s, w.random.below(101), w.random.below(3)); },
     oneOf(1, -1, -2, -4, -5, -6)},
    {"getBacklightBrightnessV2",
     [](Worker &w, uint32_t s) {
         uint32_t level = 0;
         return KVO_HWS_getBacklightBrightnessV2(s, &level, w.random.below(2));
     },
     kOrNo},
    {"setDisableNumLock", [](Worker &w, uint32_t s) { return KVO_HWS_setDisableNumLock(s, w.random.below(3)); }, kUsual},
    {"getDisableNumLock", [](Worker &, uint32_t s) { return readNumber(KVO_HWS_getDisableNumLock, s); }, kUsual},
    {"setSwCapsLock", [](Worker &w, uint32_t s) { return KVO_HWS_setSwCapsLock(s, static_cast<int>(w.random.below(2))); },
     kUsual},
    {"getSwCapsLock", [](Worker &, uint32_t s) { return readNumber(KVO_HWS_getSwCapsLock, s); }, kUsual},
    {"getStationType", [](Worker &, uint32_t s) { return readNumber(KVO_HWS_getStationType, s); }, kUsual},
    {"setRV4Mode", [](Worker &w, uint32_t s) { return KVO_HWS_setRV4Mode(s, w.random.below(3)); }, oneOf(1, 0, -1, -2, -3)},
    {"getRV4Mode", [](Worker &, uint32_t s) { return readNumber(KVO_HWS_getRV4Mode, s); }, kOrNo},
    {"setMCPAddress", [](Worker &w, uint32_t s) { return KVO_HWS_setMCPAddress(s, w.random.below(257)); }, kUsual},
    {"getMCPAddress", [](Worker &, uint32_t s) { return readNumber(KVO_HWS_getMCPAddress, s); }, kUsual},
    {"setKVOIndex", [](Worker &w, uint32_t s) { return KVO_HWS_setKVOIndex(s, w.random.below(256)); }, kUsual},
    {"getKVOIndex", [](Worker &, uint32_t s) { return readNumber(KVO_HWS_getKVOIndex, s); }, kUsual},
    {"getDCKEnable", [](Worker &, uint32_t s) { return readNumber(KVO_HWS_getDCKEnable, s); }, kUsual},
    {"setKVOCksIndex", [](Worker &w, uint32_t s) { return KVO_HWS_setKVOCksIndex(s, w.random.below(257)); }, kOrTooSmall},
    {"getKVOCksIndex", [](Worker &, uint32_t s) { return readNumber(KVO_HWS_getKVOCksIndex, s); }, kUsual},
    {"getIPbyMCPAddress", [](Worker &w, uint32_t) { return readNumber(KVO_HWS_getIPbyMCPAddress, w.random.below(256)); },
     oneOf(1, 0, -1, -2, -3)},
    {"simulateMCPKey", [](Worker &w, uint32_t s) { return KVO_HWS_simulateMCPKey(s, w.random.below(9), 1); }, kUsual},
    {"getKVOPriority",
     [](Worker &, uint32_t s) {
         uint32_t lock = 0;
         uint32_t priority = 0;
         return KVO_HWS_getKVOPriority(s, &lock, &priority);
     },
     kUsual},
    {"getKVOStartupPrio", [](Worker &, uint32_t s) { return readNumber(KVO_HWS_getKVOStartupPrio, s); }, kUsual},
    {"getKVOScreenOnFocus", [](Worker &, uint32_t s) { return readText(KVO_HWS_getKVOScreenOnFocus, s); }, kUsual},
    {"getKVOT2M2N", [](Worker &, uint32_t s) { return readText(KVO_HWS_getKVOT2M2N, s); }, kUsual},
    {"setChannelInfo",
     [](Worker &w, uint32_t s) { return KVO_HWS_setChannelInfo(s, std::string(w.random.below(240), 'c').c_str()); },
     kOrTooSmall},
    {"getChannelInfo",
     [](Worker &w, uint32_t s) {
         std::array<char, kText> info{};
         uint32_t size = w.random.oneIn(8) ? 4 : static_cast<uint32_t>(info.size());
         return KVO_HWS_getChannelInfo(s, info.data(), &size);
     },
     oneOf(1, 0, -1, -2, -3)},
    {"deleteChannelInfo", [](Worker &, uint32_t s) { return KVO_HWS_deleteChannelInfo(s); }, kUsual},
    {"setStatusline", [](Worker &w, uint32_t s) { return KVO_HWS_setStatusline(s, w.random.below(9), 1, "soak"); }, kUsual},
    {"isViewerActive", [](Worker &, uint32_t s) { return KVO_HWS_isViewerActive(s); }, kOrNo},
    {"getCurrentServer", readServer, oneOf(1, 0, -1, -2)},
    {"setActivateMe", [](Worker &, uint32_t s) { return KVO_HWS_setActivateMe(s); }, kOrNo},
    {"startConfiguredViewer", [](Worker &w, uint32_t s) { return KVO_HWS_startConfiguredViewer(s, "hmi", w.random.below(4)); },
     kOrNo},
    {"setStopViewer", [](Worker &, uint32_t s) { return KVO_HWS_setStopViewer(s); }, kOrNo},
    {"getTouchScreenCalibParam",
     [](Worker &, uint32_t s) {
         int32_t pressThresh = 0;
         int32_t nonlinear = 0;
         return KVO_HWS_getTouchScreenCalibParam(s, &pressThresh, &nonlinear);
     },
     kOrNo},
    {"setTouchScreenCalibParam",
     [](Worker &w, uint32_t s) { return KVO_HWS_setTouchScreenCalibParam(s, static_cast<int>(w.random.below(9)), 0); }, kOrNo},
    {"showInputDeviceV3",
     [](Worker &, uint32_t s) {
         uint32_t mask = 0;
         return KVO_HWS_showInputDeviceV3(s, &mask, kIgnored, kIgnored, kIgnored, kIgnored, kIgnored, kIgnored);
     },
     kUsual},
    {"showDPI", [](Worker &, uint32_t s) { return readNumber(KVO_HWS_showDPI, s); }, kUsual},
    {"getUsbLock",
     [](Worker &, uint32_t s) {
         uint32_t first = 0;
         uint32_t second = 0;
         return KVO_HWS_getUsbLock(s, &first, &second);
     },
     kUsual},
    {"setUsbLock", lockUsb, oneOf(1, -1)},
    {"getUsbConnectorList", [](Worker &, uint32_t) { return readConnectors(KVO_HWS_getUsbConnectorList); },
     oneOf(1, 0, -1, -2, -3, -4, -5, -9)},
    {"isUSBEventsActivated", [](Worker &, uint32_t) { return KVO_HWS_isUSBEventsActivated(); }, oneOf(1, 0, -1)},
    {"getStationMetrics",
     [](Worker &w, uint32_t s) {
         std::array<char, 8> metric{};
         return KVO_HWS_getStationMetrics(s, 1 + w.random.below(6), metric.data());
     },
     oneOf(1, -1, -2, -4, -5)},
    {"isMarovantiPanel", [](Worker &, uint32_t s) { return KVO_HWS_isMarovantiPanel(s); }, oneOf(1, 0, -1, -2, -3, -4, -5)},
    {"SendCommand2ServiceDyn, 5000 bytes", sendLongCommand, kUsual},
    {"activateDebugDLL", [](Worker &, uint32_t) { return KVO_HWS_activateDebugDLL(); }, oneOf(1)},
    {"deactivateDebugDLL", [](Worker &, uint32_t) { return KVO_HWS_deactivateDebugDLL(); }, oneOf(1)},
};
static_assert(std::size(kRows) <= kMostRequests);

}  // namespace

std::span<const RequestRow> requestRows() { return kRows; }

std::vector<uint32_t> knownStations()
{
    std::array<KvoDescription, kStations> list{};
    auto count = static_cast<uint32_t>(list.size());
    std::vector<uint32_t> stations;
    if (KVO_HWS_getDescriptionList(list.data(), &count) == 1) {
        for (uint32_t i = 0; i < count; ++i) {
            stations.push_back(list[i].address);
        }
    }
    return stations;
}

}  // namespace soak
