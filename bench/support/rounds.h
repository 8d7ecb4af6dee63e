// Samples in rounds: each round has one sample of each candidate, in random order, so that a disturbance of the machine meets all
// of them, and the samples of a round can be compared.
#pragma once

#include "support/comparison.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <numeric>
#include <random>
#include <vector>

namespace bench {

/// A candidate takes a sample and returns its figure.
using Sampled = std::function<double()>;

/// Returns the figures of each candidate, by rounds.
inline std::vector<std::vector<double>> takeRounds(int rounds, const std::vector<Sampled> &candidates)
{
    std::vector<std::vector<double>> figures(candidates.size());
    std::vector<std::size_t> order(candidates.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::mt19937 random(1);
    for (int round = 0; round < rounds; ++round) {
        std::ranges::shuffle(order, random);
        for (const std::size_t which : order) {
            figures[which].push_back(candidates[which]());
        }
    }
    return figures;
}

/// A candidate whose figure is the time of an operation in nanoseconds, repeated @p count times for each sample.
inline Sampled timed(int count, std::function<void()> operation)
{
    return [count, operation = std::move(operation)] {
        operation();  // not counted: what ran before has filled the caches with other data
        const auto begin = std::chrono::steady_clock::now();
        for (int number = 0; number < count; ++number) {
            operation();
        }
        return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin).count() / count;
    };
}

inline Timing timingOf(std::vector<double> samples)
{
    std::ranges::sort(samples);
    return {samples[samples.size() / 2], samples.front()};
}

}  // namespace bench
