// Compares calls of the C++ interface with calls of the flat functions.
#include "subjects.h"
#include "support/expect.h"
#include "support/report.h"
#include "support/rounds.h"
#include "support/service_process.h"
#include "support/stations.h"
#include "support/system_calls.h"

#include <kvo_hws/kvo_hws.hpp>
#include <kvo_hws/requests.h>

#include <algorithm>
#include <string>
#include <vector>

namespace bench {

namespace {

constexpr int kRounds = 61;
constexpr int kRequests = 500;  // of a sample
constexpr int kLists = 50;      // of a sample
constexpr double kGoal = 1.03;
constexpr uint32_t kStation = 0x0A000005;

void compareNumbers()
{
    const ServiceProcess service(ServiceProcess::Replies{{"getMCPAddress=0A000005", "mcpaddr=17"}});
    const kvo::Station station{kvo::Address(kStation)};
    const auto times = takeRounds(kRounds, {timed(kRequests,
                                                  [&station] {
                                                      const auto address = station.mcp_address();
                                                      expect(address && *address == 17, "mcp_address failed");
                                                  }),
                                            timed(kRequests, [] {
                                                uint32_t address = 0;
                                                expect(KVO_HWS_getMCPAddress(kStation, &address) == 1 && address == 17,
                                                       "getMCPAddress failed");
                                            })});
    printRow("Station::mcp_address", timingOf(times[0]), "flat function", timingOf(times[1]));
    printRatio("Station::mcp_address / flat function", ratioOfPairs(times[0], times[1]), kGoal);
}

std::ptrdiff_t requestsOf(const std::function<void()> &operation)
{
    const std::vector<std::string> calls = systemCallsOf(operation);
    return std::ranges::count(calls, "connect");
}

/// @param count  the number of stations: the capacity that the interface begins with, or another one that it knows from the
///               call before
void compareLists(uint32_t count)
{
    const std::string number = std::to_string(count);
    const ServiceProcess service(ServiceProcess::Replies{
        {"getCountElemDL", number}, {"getDLV2 " + number, textOf(makeStations(count), /*extended=*/false)}});
    const auto list = [count] {
        const auto stations = kvo::Service::description_list();
        expect(stations && stations->size() == count, "description_list failed");
    };
    const auto flat = [count] {
        std::vector<KvoDescription> stations(count);
        uint32_t found = count;
        expect(KVO_HWS_getDescriptionList(stations.data(), &found) == 1 && found == count, "getDescriptionList failed");
    };
    const auto own = requestsOf(list);
    const auto others = requestsOf(flat);
    printFigure("requests of a list, " + number, std::to_string(own), "= " + std::to_string(others) + ", as flat",
                own == others);
    const auto times = takeRounds(kRounds, {timed(kLists, list), timed(kLists, flat)});
    printRow("Service::description_list, " + number, timingOf(times[0]), "flat function", timingOf(times[1]));
    printRatio("... / flat function", ratioOfPairs(times[0], times[1]));
}

}  // namespace

void measureCpp()
{
    printHeading("Calls in C++", "C++");
    compareNumbers();
    compareLists(64);
    compareLists(1'000);
}

}  // namespace bench
