// Delivers USB event texts to the program that has activated USB events, one at a time. Deliveries do not run on the loop's
// thread: one may take seconds, and the receiver may send a request to the service before it answers.
#pragma once

#include "common/event_loop.h"

#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace kvosim {

enum class Delivery {
    delivered,
    noListener,
    notWritten,
    notActivated,  ///< or deactivated before the event was sent
    simulatorEnds  ///< the simulator ended before the result was known
};

/// The text for the result of a delivery, in replies and logs.
const char *deliveryName(Delivery delivery);

class Deliveries {
public:
    /// Called on the loop's thread.
    using Done = std::function<void(Delivery delivery)>;

    static constexpr std::size_t kMaxPending = 32;  ///< deliveries that wait or are in progress

    /// @p isActive returns whether events are activated. It is called again after each delivery: if it returns false, the
    /// waiting events are dropped. @p loop must outlive this object.
    Deliveries(tools::EventLoop &loop, std::function<bool()> isActive);
    Deliveries(const Deliveries &) = delete;
    Deliveries &operator=(const Deliveries &) = delete;
    /// Waits up to one second for the delivery in progress, then leaves its thread running.
    ~Deliveries();

    /// Throws Refused if the queue is full or end() was called.
    void checkCapacity() const;
    /// Queues an event. Throws as checkCapacity does.
    void send(std::string text, Done done);
    /// Accepts no more events. Those that wait or are in progress finish with Delivery::simulatorEnds.
    void end();

private:
    struct Job {
        std::string text;
        Done done;
    };
    struct Result;
    struct Task;

    void begin();
    void finish();
    void dropAll(Delivery reason);

    tools::EventLoop &loop_;
    std::function<bool()> isActive_;
    bool ended_ = false;
    bool inProgress_ = false;
    std::deque<Job> jobs_;            // the first one is in progress
    std::shared_ptr<Result> result_;  // shared with the thread, which may outlive this object
};

}  // namespace kvosim
