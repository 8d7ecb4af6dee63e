// USB events, embedded events and the agent as objects of the C++ interface. The programs use them in turn with the functions of
// C.
#pragma once

#include "workers.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace soak {

/// What a program does with a USB event of this station; -1 means that it failed.
using HandleUsbEvent = std::function<int32_t(const char *station)>;

/// Activates USB events with an object and destroys it after a while. Its handler runs on the library's threads, or in a loop.
void useUsbObject(Worker &worker, const HandleUsbEvent &handle);

/// Listens to embedded events with an object for a while.
void useEmbeddedObject(Worker &worker, const std::function<void(const char *name, const char *data)> &handle);

/// The agent as an object.
class AgentObject {
public:
    AgentObject();
    AgentObject(const AgentObject &) = delete;
    AgentObject &operator=(const AgentObject &) = delete;
    ~AgentObject();

    [[nodiscard]] bool isStarted() const;
    /// Returns 1 or the result code of the error.
    int32_t start(SharedState &shared);
    int32_t close();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace soak
