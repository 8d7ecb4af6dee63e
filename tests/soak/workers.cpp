#include "workers.h"

#include "support/resource_usage.h"

#include <algorithm>
#include <fstream>
#include <unistd.h>

using namespace std::chrono_literals;

namespace soak {

namespace {

constexpr auto kPollInterval = 10ms;
constexpr auto kSettleTime = 15s;  // some threads of the library need a few seconds to end

uint64_t residentBytes()
{
    std::ifstream file("/proc/self/statm");
    uint64_t whole = 0;
    uint64_t resident = 0;
    file >> whole >> resident;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

void work(Worker worker, ProcessState &process, const Workers::Step &step, const Workers::Step &cleanUp)
{
    for (std::size_t checkpoint = 0; checkpoint < kCheckpoints; ++checkpoint) {
        while (worker.shared.checkpointsRequested.load() <= static_cast<int>(checkpoint)) {
            step(worker);
        }
        if (cleanUp && checkpoint > 0) {
            cleanUp(worker);
        }
        ++process.stopped[checkpoint];
        while (worker.shared.checkpointsPassed.load() <= static_cast<int>(checkpoint)) {
            std::this_thread::sleep_for(kPollInterval);
        }
    }
}

}  // namespace

void Worker::pause(std::chrono::milliseconds shortest, std::chrono::milliseconds longest)
{
    const auto until = Clock::now() + random.between(shortest, longest);
    while (Clock::now() < until && mayContinue()) {
        std::this_thread::sleep_for(std::min<Clock::duration>(kPollInterval, until - Clock::now()));
    }
}

void Workers::add(const char *name, Step step, Step cleanUp)
{
    const unsigned number = process_.workers++;
    Watch &watch = process_.watches.at(number);
    watch.worker = name;
    threads_.emplace_back([this, worker = Worker{shared_, watch, Random(seed_ + number)}, step = std::move(step),
                           cleanUp = std::move(cleanUp)] { work(worker, process_, step, cleanUp); });
}

void Workers::measureCheckpoints()
{
    for (const Checkpoint checkpoint : {kAtStart, kAfterWarmUp, kAtEnd}) {
        while (process_.stopped[checkpoint].load() < process_.workers.load()) {
            std::this_thread::sleep_for(kPollInterval);
        }
        settle(checkpoint);
        malloc_trim(0);
        const support::ResourceUsage usage = support::resourceUsage();
        Usage &place = process_.usage[checkpoint];
        place.descriptors = usage.descriptors;
        place.threads = usage.threads;
        place.heapBytes = usage.heapBytes;
        place.residentBytes = residentBytes();
        process_.measured = checkpoint + 1;
        while (shared_.checkpointsPassed.load() <= checkpoint) {
            std::this_thread::sleep_for(kPollInterval);
        }
    }
    join();
}

void Workers::join()
{
    for (std::thread &thread : threads_) {
        thread.join();
    }
    threads_.clear();
}

/// Waits until the process has no more descriptors and threads than at the start, or the time is over.
void Workers::settle(Checkpoint checkpoint) const
{
    const Usage &start = process_.usage[kAtStart];
    const auto until = Clock::now() + (checkpoint == kAtStart ? 100ms : Clock::duration(kSettleTime));
    while (Clock::now() < until) {
        const support::ResourceUsage now = support::resourceUsage();
        if (now.descriptors <= start.descriptors.load() && now.threads <= start.threads.load()) {
            return;
        }
        std::this_thread::sleep_for(kPollInterval);
    }
}

}  // namespace soak
