// Contenders that do the same work, measured within one run and in turns, so that a disturbance of the machine meets them all.
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

class Contest {
public:
    using Operation = std::function<void()>;

    /// @param repetitions  how often each contender has its turn
    /// @param threads      how many threads do the operation at the same time
    explicit Contest(int repetitions, int threads = 1) : repetitions_(repetitions), threads_(threads) {}

    Contest &contender(std::string name, Operation operation);

    /// The timings by name. The turns are shuffled, which no periodic disturbance can take sides with.
    [[nodiscard]] std::map<std::string, Timing> run() const;

private:
    struct Contender {
        std::string name;
        Operation operation;
    };

    int repetitions_;
    int threads_;
    std::vector<Contender> contenders_;
};

}  // namespace bench
