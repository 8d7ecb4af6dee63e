// The worker threads of one process of a soak run. Each repeats its step, stops at each checkpoint and continues after it.
#pragma once

#include "random.h"
#include "shared_state.h"

#include <functional>
#include <thread>
#include <vector>

namespace soak {

/// A worker thread.
struct Worker {
    SharedState &shared;
    Watch &watch;
    Random random;

    [[nodiscard]] bool mayContinue() const { return shared.checkpointsRequested.load() == shared.checkpointsPassed.load(); }
    /// Waits for a random time, or until the next checkpoint.
    void pause(std::chrono::milliseconds shortest, std::chrono::milliseconds longest);
    Figures &figures() const { return shared.figures; }
    void complain(const std::string &text) const { shared.complaints.add(text); }
};

class Workers {
public:
    using Step = std::function<void(Worker &worker)>;

    Workers(SharedState &shared, Program program, uint64_t seed)
        : shared_(shared), process_(shared.processes[program]), seed_(seed * kPrograms * kMostWorkers + program * kMostWorkers)
    {
    }
    Workers(const Workers &) = delete;
    Workers &operator=(const Workers &) = delete;
    ~Workers() { join(); }

    /// Starts a worker. At each checkpoint after the first, @p cleanUp ends what the step has begun.
    void add(const char *name, Step step, Step cleanUp = {});
    /// Measures the resource usage of the process at each checkpoint. Returns after the last one.
    void measureCheckpoints();

private:
    void join();
    void settle(Checkpoint checkpoint) const;

    SharedState &shared_;
    ProcessState &process_;
    uint64_t seed_;
    std::vector<std::thread> threads_;
};

}  // namespace soak
