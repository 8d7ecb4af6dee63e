// Compares a request for the whole list of stations (count request, list request, parsing) with a baseline that receives large
// blocks and has its own parser.
#include "baseline/baseline.h"
#include "subjects.h"
#include "support/comparison.h"
#include "support/expect.h"
#include "support/report.h"
#include "support/service_process.h"
#include "support/stations.h"

#include <kvo_hws/requests.h>

#include <string>
#include <vector>

namespace bench {

namespace {

constexpr int kRepetitions = 31;
constexpr double kGoal = 1.30;

void compare(uint32_t count)
{
    const std::string number = std::to_string(count);
    const ServiceProcess service(ServiceProcess::Replies{
        {"getCountElemDL", number}, {"getDLV2 " + number, textOf(makeStations(count), /*extended=*/false)}});
    std::vector<KvoDescription> list(count);
    const auto library = [&] {
        uint32_t found = count;
        expect(KVO_HWS_getDescriptionList(list.data(), &found) == 1 && found == count, "getDescriptionList failed");
    };
    const auto baseline = [&] {
        uint32_t found = count;
        expect(baseline::getList(list.data(), &found) && found == count, "list of the baseline failed");
    };
    const auto timings = Comparison(kRepetitions).candidate("library", library).candidate("baseline", baseline).run();
    printRow("KVO_HWS_getDescriptionList, " + number, timings.at("library"), "baseline, large reads", timings.at("baseline"),
             kGoal);
}

}  // namespace

void measureListExchange()
{
    printHeading("Whole lists (stations)");
    compare(1'000);
    compare(10'000);
}

}  // namespace bench
