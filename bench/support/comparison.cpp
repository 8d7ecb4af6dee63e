#include "support/comparison.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <stdexcept>
#include <utility>

namespace bench {

namespace {

constexpr double kSampleSeconds = 0.01;  // the shortest sample; a slower operation makes its samples longer

/// Collects the time per operation of every sample.
class Collector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context & /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.error_occurred) {
                throw std::runtime_error(run.benchmark_name() + ": " + run.error_message);
            }
            if (run.run_type == Run::RT_Iteration) {
                samples_[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
            }
        }
    }

    [[nodiscard]] std::map<std::string, Timing> timings() const
    {
        std::map<std::string, Timing> timings;
        for (auto [name, samples] : samples_) {
            std::ranges::sort(samples);
            timings[name] = {samples[samples.size() / 2], samples.front()};
        }
        return timings;
    }

private:
    std::map<std::string, std::vector<double>> samples_;
};

void initializeOnce()
{
    static const bool done = [] {
        std::string program = "kvo_bench";
        std::string shuffled = "--benchmark_enable_random_interleaving=true";
        char *arguments[] = {program.data(), shuffled.data(), nullptr};
        int count = 2;
        benchmark::Initialize(&count, arguments);
        return true;
    }();
    static_cast<void>(done);
}

}  // namespace

Comparison &Comparison::candidate(std::string name, Operation operation)
{
    candidates_.push_back({std::move(name), std::move(operation)});
    return *this;
}

std::map<std::string, Timing> Comparison::run() const
{
    initializeOnce();
    for (const auto &[name, operation] : candidates_) {
        benchmark::RegisterBenchmark(name.c_str(),
                                     [&operation = operation](benchmark::State &state) {
                                         for (auto iteration : state) {
                                             operation();
                                         }
                                     })
            ->MinTime(kSampleSeconds)
            ->Repetitions(repetitions_)
            ->Threads(threads_)
            ->UseRealTime();
    }
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector, nullptr, "all");
    benchmark::ClearRegisteredBenchmarks();
    return collector.timings();
}

}  // namespace bench
