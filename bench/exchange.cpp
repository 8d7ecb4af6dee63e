// One request to the service through the library, against its bare system calls.
#include "by_hand/by_hand.h"
#include "subjects.h"
#include "support/contest.h"
#include "support/expect.h"
#include "support/report.h"
#include "support/service_process.h"
#include "support/system_calls.h"

#include <kvo_hws/service.h>

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
    char reply[by_hand::kRound];
    expect(by_hand::exchange("isInitComplete\n", reply) && std::strcmp(reply, "yes") == 0, "exchange by hand failed");
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
    const ServiceProcess service(ServiceProcess::Replies{{"isInitComplete", "yes"}});
    printHeading("One exchange");
    compare(1, 1.03);
    compare(4, 1.05);
    countSystemCalls();
}

}  // namespace bench
