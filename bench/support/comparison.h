// Compares candidates that do the same work. Their samples alternate within one run, so a disturbance of the machine affects
// all of them.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace bench {

/// Nanoseconds for one operation, over all repetitions.
struct Timing {
    double median;
    double least;
};

class Comparison {
public:
    using Operation = std::function<void()>;

    /// @param repetitions  the number of samples of each candidate
    /// @param threads      the number of threads that run the operation at the same time
    explicit Comparison(int repetitions, int threads = 1) : repetitions_(repetitions), threads_(threads) {}

    Comparison &candidate(std::string name, Operation operation);

    /// Returns the timings by name. The order of the samples is random, so a periodic disturbance cannot favor a candidate.
    [[nodiscard]] std::map<std::string, Timing> run() const;

private:
    struct Candidate {
        std::string name;
        Operation operation;
    };

    int repetitions_;
    int threads_;
    std::vector<Candidate> candidates_;
};

}  // namespace bench
