// Compares one request through the library with only its system calls.
#include "baseline/baseline.h"
#include "subjects.h"
#include "support/comparison.h"
#include "support/expect.h"
#include "support/report.h"
#include "support/service_process.h"
#include "support/system_calls.h"

#include <kvo_hws/kvo_hws.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace bench {

namespace {

constexpr int kRepetitions = 61;
constexpr std::size_t kSystemCalls = 8;

void request() { expect(KVO_HWS_isInitComplete() == 1, "isInitComplete failed"); }

void command()
{
    DynBuffer reply{};
    expect(SendCommand2ServiceDyn("isInitComplete", &reply) == 1 && std::strcmp(reply.pcData, "yes") == 0, "exchange failed");
    std::free(reply.pcData);
}

void commandOfBaseline()
{
    char reply[baseline::kLineSize];
    expect(baseline::exchange("isInitComplete\n", reply) && std::strcmp(reply, "yes") == 0, "exchange of the baseline failed");
}

void compare(int threads, double goal)
{
    const auto timings = Comparison(kRepetitions, threads)
                             .candidate("request", request)
                             .candidate("command", command)
                             .candidate("baseline", commandOfBaseline)
                             .run();
    const std::string suffix = threads == 1 ? "" : ", " + std::to_string(threads) + " threads";
    printRow("KVO_HWS_isInitComplete" + suffix, timings.at("request"), "baseline", timings.at("baseline"), goal);
    printRow("SendCommand2ServiceDyn" + suffix, timings.at("command"), "baseline", timings.at("baseline"), goal);
}

// ---- The cheapest request, whose reply is "ok", and the most expensive one, six numbers from a list of keys ----

constexpr uint32_t kStation = 0x0A000005;
constexpr const char *kCheapest = "reboot=0A000005";
constexpr const char *kCostliest = "showInputDevice=0A000005";
constexpr const char *kDevices = "kbd=1 mouse=2 touch=1 multitouch=1 maxcontacts=10 vkbd=0";

void cheapest() { expect(KVO_HWS_rebootKVO(kStation) == 1, "rebootKVO failed"); }

void costliest()
{
    uint32_t mask = 0;
    uint32_t numbers[6];
    expect(KVO_HWS_showInputDeviceV3(kStation, &mask, &numbers[0], &numbers[1], &numbers[2], &numbers[3], &numbers[4],
                                     &numbers[5]) == 1 &&
               mask == 0x3F,
           "showInputDeviceV3 failed");
}

/// The same exchange in the baseline. It compares the reply and does not parse it.
template <const char *const &kCommand, const char *const &kReply>
void requestOfBaseline()
{
    static const std::string line = std::string(kCommand) + "\n";
    char reply[baseline::kLineSize];
    expect(baseline::exchange(line.c_str(), reply) && std::strcmp(reply, kReply) == 0, "exchange of the baseline failed");
}

constexpr const char *kOk = "ok";

void compareRequests()
{
    const auto timings = Comparison(kRepetitions, 1)
                             .candidate("cheapest", cheapest)
                             .candidate("cheapest, baseline", requestOfBaseline<kCheapest, kOk>)
                             .candidate("costliest", costliest)
                             .candidate("costliest, baseline", requestOfBaseline<kCostliest, kDevices>)
                             .run();
    printRow("cheapest: KVO_HWS_rebootKVO", timings.at("cheapest"), "baseline", timings.at("cheapest, baseline"), 1.05);
    printRow("costliest: KVO_HWS_showInputDeviceV3", timings.at("costliest"), "baseline", timings.at("costliest, baseline"),
             1.05);
}

void countSystemCalls()
{
    const auto calls = systemCallsOf(request);
    std::string names;
    for (const std::string &call : calls) {
        names += " " + call;
    }
    printFigure("system calls of a request", std::to_string(calls.size()) + ":" + names, "= 8", calls.size() == kSystemCalls);
}

}  // namespace

void measureExchange()
{
    const ServiceProcess service(ServiceProcess::Replies{{"isInitComplete", "yes"}, {kCheapest, kOk}, {kCostliest, kDevices}});
    printHeading("One exchange");
    compare(1, 1.03);
    compare(4, 1.05);
    compareRequests();
    countSystemCalls();
}

}  // namespace bench
