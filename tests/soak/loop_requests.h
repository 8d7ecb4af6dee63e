// Requests of an event loop: a worker submits to kvo::Requests with random deadlines, dispatches, cancels, closes and destroys.
#pragma once

#include "workers.h"

#include <memory>

namespace soak {

class LoopRequests {
public:
    LoopRequests(SharedState &shared, const std::vector<uint32_t> &stations);
    LoopRequests(const LoopRequests &) = delete;
    LoopRequests &operator=(const LoopRequests &) = delete;
    ~LoopRequests();

    void step(Worker &worker);
    void cleanUp(Worker &worker);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace soak
