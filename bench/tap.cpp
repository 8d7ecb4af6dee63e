// Compares a request through a recording tap with one through a forwarder that keeps nothing, and with one without either.
#include "baseline/baseline.h"
#include "common/command_socket.h"
#include "subjects.h"
#include "support/child_process.h"
#include "support/expect.h"
#include "support/processor_time.h"
#include "support/recording_tap.h"
#include "support/report.h"
#include "support/rounds.h"
#include "support/service_process.h"
#include "support/temporary_file.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <random>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = 101;
constexpr int kRequests = 200;  // of a sample
constexpr double kGoal = 1.25;

constexpr const char *kDirect = "/tmp/kvo_hws/direct";
constexpr const char *kForwarder = "/tmp/kvo_hws/forwarder";

/// A way to the service, and what its requests have cost.
struct Way {
    const char *socket;
    const ChildProcess *between;           // the tap or the forwarder
    std::vector<double> times{};           // nanoseconds of a request, for each sample
    std::vector<double> processorTimes{};  // the same of the program, of the service, and of what is between them
};

void request(const char *socket)
{
    char reply[baseline::kLineSize];
    expect(baseline::exchange("isInitComplete\n", reply, socket) && std::strcmp(reply, "yes") == 0, "a request failed");
}

Seconds processorTime(const ServiceProcess &service, const Way &way)
{
    return processorTimeOf(CLOCK_PROCESS_CPUTIME_ID) + processorTimeOf(service.process()) +
           (way.between != nullptr ? processorTimeOf(*way.between) : Seconds(0));
}

void takeSample(const ServiceProcess &service, Way &way)
{
    const Seconds processorBefore = processorTime(service, way);
    const auto begin = Clock::now();
    for (int i = 0; i < kRequests; ++i) {
        request(way.socket);
    }
    const std::chrono::duration<double, std::nano> time = Clock::now() - begin;
    // All processes run on one core: what the tap or the forwarder still does for the last request ends before this returns.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const std::chrono::duration<double, std::nano> processor = processorTime(service, way) - processorBefore;
    way.times.push_back(time.count() / kRequests);
    way.processorTimes.push_back(processor.count() / kRequests);
}

void print(const Way &direct, const Way &forwarder, const Way &tap)
{
    printHeading("One request through a tap", "tap");
    printRow("request", timingOf(tap.times), "forwarder", timingOf(forwarder.times));
    printRow("request", timingOf(tap.times), "direct", timingOf(direct.times));
    printRow("... CPU time of all processes", timingOf(tap.processorTimes), "forwarder", timingOf(forwarder.processorTimes));
    printRow("... CPU time of all processes", timingOf(tap.processorTimes), "direct", timingOf(direct.processorTimes));
    printRatio("tap / forwarder", ratioOfPairs(tap.times, forwarder.times), kGoal);
    printRatio("tap / direct", ratioOfPairs(tap.times, direct.times));
    printRatio("forwarder / direct", ratioOfPairs(forwarder.times, direct.times));
    printRatio("tap / forwarder, CPU time", ratioOfPairs(tap.processorTimes, forwarder.processorTimes), kGoal);
}

}  // namespace

void measureTap()
{
    const ServiceProcess service(ServiceProcess::Replies{{"isInitComplete", "yes"}});
    std::filesystem::create_hard_link(tools::kCommandSocket, kDirect);
    const ChildProcess forwarderProcess([] { baseline::forward(kForwarder, kDirect); });
    const TemporaryFile recording;
    const RecordingTap tapProcess(recording.path());
    struct stat status {};
    while (stat(kForwarder, &status) != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    std::array<Way, 3> ways{Way{kDirect, nullptr}, Way{kForwarder, &forwarderProcess},
                            Way{tools::kCommandSocket, &tapProcess.process()}};
    std::array<std::size_t, 3> order{0, 1, 2};
    std::mt19937 random(1);
    for (int round = 0; round < kRounds; ++round) {
        std::ranges::shuffle(order, random);
        for (const std::size_t which : order) {
            takeSample(service, ways.at(which));
        }
    }
    tapProcess.expectExchanges(std::size_t{kRounds} * kRequests);
    print(ways[0], ways[1], ways[2]);
    std::filesystem::remove(kDirect);
    std::filesystem::remove(kForwarder);
}

}  // namespace bench
