// Work, rest, and what is held meanwhile.
#include "workers.h"

#include "support/resource_usage.h"

#include <algorithm>
#include <fstream>
#include <unistd.h>

using namespace std::chrono_literals;

namespace soak {

namespace {

constexpr auto kLookAround = 10ms;
constexpr auto kSettleTime = 15s;  // threads of the library that end by themselves take up to a few seconds

uint64_t residentBytes()
{
    std::ifstream file("/proc/self/statm");
    uint64_t whole = 0;
    uint64_t resident = 0;
    file >> whole >> resident;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

void work(Worker worker, ProcessShare &process, const Crew::Step &step, const Crew::Step &atRest)
{
    for (std::size_t rest = 0; rest < kMoments; ++rest) {
        while (worker.share.rests.load() <= static_cast<int>(rest)) {
            step(worker);
        }
        if (atRest && rest > 0) {
            atRest(worker);
        }
        ++process.parked[rest];
        while (worker.share.resumed.load() <= static_cast<int>(rest)) {
            std::this_thread::sleep_for(kLookAround);
        }
    }
}

}  // namespace

void Worker::pause(std::chrono::milliseconds shortest, std::chrono::milliseconds longest)
{
    const auto until = Clock::now() + random.between(shortest, longest);
    while (Clock::now() < until && mayGoOn()) {
        std::this_thread::sleep_for(std::min<Clock::duration>(kLookAround, until - Clock::now()));
    }
}

void Crew::add(const char *name, Step step, Step atRest)
{
    const unsigned number = process_.workers++;
    Watch &watch = process_.watches.at(number);
    watch.worker = name;
    threads_.emplace_back([this, worker = Worker{share_, watch, Random(seed_ + number)}, step = std::move(step),
                           atRest = std::move(atRest)] { work(worker, process_, step, atRest); });
}

void Crew::measureRests()
{
    for (const Moment moment : {kAtStart, kAfterWarmUp, kAtEnd}) {
        while (process_.parked[moment].load() < process_.workers.load()) {
            std::this_thread::sleep_for(kLookAround);
        }
        settle(moment);
        malloc_trim(0);
        const support::ResourceUsage held = support::resourceUsage();
        Held &place = process_.held[moment];
        place.descriptors = held.descriptors;
        place.threads = held.threads;
        place.heapBytes = held.heapBytes;
        place.residentBytes = residentBytes();
        process_.measured = moment + 1;
        while (share_.resumed.load() <= moment) {
            std::this_thread::sleep_for(kLookAround);
        }
    }
    join();
}

void Crew::join()
{
    for (std::thread &thread : threads_) {
        thread.join();
    }
    threads_.clear();
}

/// Until what has been there at the start is all that is there; what stays longer is measured.
void Crew::settle(Moment moment) const
{
    const Held &start = process_.held[kAtStart];
    const auto until = Clock::now() + (moment == kAtStart ? 100ms : Clock::duration(kSettleTime));
    while (Clock::now() < until) {
        const support::ResourceUsage now = support::resourceUsage();
        if (now.descriptors <= start.descriptors.load() && now.threads <= start.threads.load()) {
            return;
        }
        std::this_thread::sleep_for(kLookAround);
    }
}

}  // namespace soak
