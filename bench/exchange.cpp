// One request to the service through the library, against its bare system calls.
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

void commandByHand()
{
    char reply[baseline::kRound];
    expect(baseline::exchange("isInitComplete\n", reply) && std::strcmp(reply, "yes") == 0, "exchange by hand failed");
}

void compare(int threads, double goal)
{
    const auto timings = Contest(kRepetitions, threads)
                             .contender("request", request)
                             .contender("command", command)
                             .contender("by hand", commandByHand)
                             .run();
    const std::string suffix = threads == 1 ? "" : ", " + std::to_string(threads) + " threads";
    printRow("KVO_HWS_isInitComplete" + suffix, timings.at("request"), "by hand", timings.at("by hand"), goal);
    printRow("SendCommand2ServiceDyn" + suffix, timings.at("command"), "by hand", timings.at("by hand"), goal);
}

// ---- The cheapest request, a plain "ok", and the dearest, six numbers out of a list of keys ----

constexpr uint32_t kStation = 0x0A000005;
constexpr const char *kCheapest = "reboot=0A000005";
constexpr const char *kDearest = "showInputDevice=0A000005";
constexpr const char *kDevices = "kbd=1 mouse=2 touch=1 multitouch=1 maxcontacts=10 vkbd=0";

void cheapest() { expect(KVO_HWS_rebootKVO(kStation) == 1, "rebootKVO failed"); }

void dearest()
{
    uint32_t mask = 0;
    uint32_t numbers[6];
    expect(KVO_HWS_showInputDeviceV3(kStation, &mask, &numbers[0], &numbers[1], &numbers[2], &numbers[3], &numbers[4],
                                     &numbers[5]) == 1 &&
               mask == 0x3F,
           "showInputDeviceV3 failed");
}

/// The same exchange by hand, its reply compared and not read any further.
template <const char *const &kCommand, const char *const &kReply>
void byHand()
{
    static const std::string line = std::string(kCommand) + "\n";
    char reply[baseline::kRound];
    expect(baseline::exchange(line.c_str(), reply) && std::strcmp(reply, kReply) == 0, "exchange by hand failed");
}

constexpr const char *kOk = "ok";

void compareRequests()
{
    const auto timings = Contest(kRepetitions, 1)
                             .contender("cheapest", cheapest)
                             .contender("cheapest by hand", byHand<kCheapest, kOk>)
                             .contender("dearest", dearest)
                             .contender("dearest by hand", byHand<kDearest, kDevices>)
                             .run();
    printRow("cheapest: KVO_HWS_rebootKVO", timings.at("cheapest"), "by hand", timings.at("cheapest by hand"), 1.05);
    printRow("dearest: KVO_HWS_showInputDeviceV3", timings.at("dearest"), "by hand", timings.at("dearest by hand"), 1.05);
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
    const ServiceProcess service(ServiceProcess::Replies{{"isInitComplete", "yes"}, {kCheapest, kOk}, {kDearest, kDevices}});
    printHeading("One exchange");
    compare(1, 1.03);
    compare(4, 1.05);
    compareRequests();
    countSystemCalls();
}

}  // namespace bench
