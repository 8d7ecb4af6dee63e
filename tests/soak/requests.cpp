// Requests of every family, including lists. If a reply contains the subject of the request, the subject is checked: a
// reply that belongs to another thread would be worse than none.
#include "requests.h"

#include "catalogue/catalogue.h"

#include <kvo_hws/requests.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/usbevents.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace soak {

namespace {

constexpr std::size_t kStations = 64;
constexpr std::size_t kText = 8192;  // more than the longest text of the simulated plant
constexpr std::size_t kLongCommand = 5000;
constexpr uint32_t kRegistryTimeout = 1;  // seconds

template <class Element>
int32_t readList(int32_t (*ask)(Element *list, uint32_t *count), Worker &worker)
{
    std::vector<Element> list(worker.random.oneIn(10) ? 2 : kStations);
    auto count = static_cast<uint32_t>(list.size());
    const int32_t result = ask(list.data(), &count);
    if (result == 1 && (count == 0 || count > list.size())) {
        worker.complain("a list for " + std::to_string(list.size()) + " stations received " + std::to_string(count));
    }
    return result;
}

/// Unlocks the registry after a timeout: if the reply to an unlock request was lost, the registry may still be locked.
int32_t readRegistry(int32_t (*ask)(KvoDescription *list, uint32_t *count, uint32_t timeout))
{
    std::vector<KvoDescription> list(kStations);
    auto count = static_cast<uint32_t>(list.size());
    const int32_t result = ask(list.data(), &count, kRegistryTimeout);
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
        worker.complain("received the description of another station");
    }
    return result;
}

int32_t describeByName(Worker &worker, uint32_t)
{
    const std::string name = "Milling centre 1";
    KvoDescriptionEx record{};
    const int32_t result = KVO_HWS_getDescriptionEx(0, name.c_str(), &record);
    if (result == 1 && record.name != name) {
        worker.complain("received the description of another name");
    }
    return result;
}

int32_t readConnectors(int32_t (*ask)(char *buffer, uint32_t *size))
{
    std::vector<char> list(kText * 8);
    auto size = static_cast<uint32_t>(list.size());
    return ask(list.data(), &size);
}

/// Sends a command that is too long for the simulator, which answers before it has read the whole command.
int32_t sendLongCommand(Worker &, uint32_t)
{
    DynBuffer reply{};
    const int32_t result = SendCommand2ServiceDyn(std::string(kLongCommand, 'x').c_str(), &reply);
    std::free(reply.pcData);
    return result;
}

int32_t lockUsb(Worker &worker, uint32_t)
{
    const char *host = "10.0.0.5";
    return KVO_HWS_setUsbLock(1, &host, worker.random.oneIn(4) ? 1 : 0, 0);
}

/// Replaces the numbers of the arguments by small random ones, so threads find values that other threads have set.
catalogue::Arguments withOtherNumbers(catalogue::Arguments arguments, Worker &worker)
{
    constexpr uint32_t kNumbers = 256;
    for (catalogue::Argument &argument : arguments) {
        if (argument.kind == catalogue::Argument::Kind::number) {
            argument.number = worker.random.below(kNumbers);
        }
    }
    return arguments;
}

/// Makes one of the request's calls in the catalogue, for @p station.
int32_t call(const catalogue::Request &request, Worker &worker, uint32_t station)
{
    const std::vector<catalogue::Exchange> &calls = request.ownExchanges();
    const catalogue::Exchange &chosen = calls[worker.random.below(static_cast<uint32_t>(calls.size()))];
    const bool isChanged = worker.random.oneIn(2);
    const catalogue::Arguments arguments = isChanged ? withOtherNumbers(chosen.arguments, worker) : chosen.arguments;
    catalogue::Outputs outputs = request.function().outputsFor(arguments, '\0');
    const int32_t result = request.function()(arguments, outputs, station);
    if (!isChanged && chosen.commands.empty() && result != chosen.result) {
        worker.complain(request.name() + " returned " + std::to_string(result) + " without a request to the service, not " +
                        std::to_string(chosen.result));
    }
    return result;
}

/// The allowed results: those of the catalogue, and those of calls that send nothing to the service.
ResultSet resultsOf(const catalogue::Request &request)
{
    ResultSet results = 0;
    for (const int32_t result : request.soakResults()) {
        results |= oneOf(result);
    }
    for (const catalogue::Exchange &exchange : request.ownExchanges()) {
        results |= exchange.commands.empty() ? oneOf(exchange.result) : 0;
    }
    return results;
}

std::vector<RequestRow> catalogueRows()
{
    std::vector<RequestRow> rows;
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            if (!request.soakResults().empty()) {
                rows.push_back({request.name(),
                                [&request](Worker &worker, uint32_t station) { return call(request, worker, station); },
                                resultsOf(request)});
            }
        }
    }
    return rows;
}

/// Calls that check more than the result, or that have other arguments than in the catalogue.
std::vector<RequestRow> furtherRows()
{
    constexpr ResultSet registry = oneOf(1, 0, -1, -2, -3, -4);
    return {
        {"getDescriptionList, any count",
         [](Worker &w, uint32_t) { return readList<KvoDescription>(KVO_HWS_getDescriptionList, w); }, oneOf(1, -1, -2, -3)},
        {"getDescriptionListEx, any count",
         [](Worker &w, uint32_t) { return readList<KvoDescriptionEx>(KVO_HWS_getDescriptionListEx, w); }, oneOf(1, -1, -2, -3)},
        {"getDescriptionEx, requested address", describe, oneOf(1, 0, -1, -2)},
        {"getDescriptionEx, requested name", describeByName, oneOf(1, 0, -1, -2)},
        {"getKVOCurrentListFromRegistry",
         [](Worker &, uint32_t) { return readRegistry(KVO_HWS_getKVOCurrentListFromRegistry); }, registry},
        {"getKVOPreviousListFromRegistry",
         [](Worker &, uint32_t) { return readRegistry(KVO_HWS_getKVOPreviousListFromRegistry); }, registry},
        {"setChannelInfo, any length",
         [](Worker &w, uint32_t s) { return KVO_HWS_setChannelInfo(s, std::string(w.random.below(240), 'c').c_str()); },
         oneOf(1, -1, -2, -3)},
        {"setUsbLock", lockUsb, oneOf(1, -1)},
        {"getUsbConnectorList, whole list", [](Worker &, uint32_t) { return readConnectors(KVO_HWS_getUsbConnectorList); },
         oneOf(1, 0, -1, -2, -3, -4, -5, -9)},
        {"SendCommand2ServiceDyn, 5000 bytes", sendLongCommand, oneOf(1, -1, -2)},
        {"activateDebugDLL", [](Worker &, uint32_t) { return KVO_HWS_activateDebugDLL(); }, oneOf(1)},
        {"deactivateDebugDLL", [](Worker &, uint32_t) { return KVO_HWS_deactivateDebugDLL(); }, oneOf(1)},
    };
}

std::vector<RequestRow> allRows()
{
    std::vector<RequestRow> rows = catalogueRows();
    const std::vector<RequestRow> own = furtherRows();
    rows.insert(rows.end(), own.begin(), own.end());
    if (rows.size() > kMostRequests) {
        throw std::length_error("kMostRequests is less than the number of requests");
    }
    return rows;
}

}  // namespace

const std::vector<RequestRow> &requestRows()
{
    static const std::vector<RequestRow> kRows = allRows();
    return kRows;
}

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
