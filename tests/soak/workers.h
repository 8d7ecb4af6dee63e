// The threads of one process of a soak run. Each repeats its step until a rest is asked for, and goes on after it.
#pragma once

#include "random.h"
#include "shared_state.h"

#include <functional>
#include <thread>
#include <vector>

namespace soak {

/// A thread at work.
struct Worker {
    Share &share;
    Watch &watch;
    Random random;

    [[nodiscard]] bool mayGoOn() const { return share.rests.load() == share.resumed.load(); }
    /// Waits for a random time, or until a rest is asked for.
    void pause(std::chrono::milliseconds shortest, std::chrono::milliseconds longest);
    Figures &figures() const { return share.figures; }
    void complain(const std::string &text) const { share.complaints.add(text); }
};

class Crew {
public:
    using Step = std::function<void(Worker &worker)>;

    Crew(Share &share, Program program, uint64_t seed)
        : share_(share), process_(share.processes[program]), seed_(seed * kPrograms * kMostWorkers + program * kMostWorkers)
    {
    }
    Crew(const Crew &) = delete;
    Crew &operator=(const Crew &) = delete;
    ~Crew() { join(); }

    /// @p atRest brings what the step has begun to its end.
    void add(const char *name, Step step, Step atRest = {});
    /// Measures what the process holds at each rest; returns after the last one.
    void measureRests();

private:
    void join();
    void settle(Moment moment) const;

    Share &share_;
    ProcessShare &process_;
    uint64_t seed_;
    std::vector<std::thread> threads_;
};

}  // namespace soak
