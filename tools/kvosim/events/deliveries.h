// Brings USB event texts to the program that has the events, one after the other and off the loop's thread: a delivery may take
// seconds, and its receiver may ask the service something before it answers.
#pragma once

#include "kvosim/base/event_loop.h"

#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace kvosim {

enum class Delivery {
    delivered,
    nobodyListens,
    notWritten,
    notActivated,  ///< or not any more
    simulatorEnds  ///< nobody has waited for what came of it
};

/// What became of an event, in words.
const char *wordsFor(Delivery delivery);

class Deliveries {
public:
    /// Called on the loop's thread.
    using Done = std::function<void(Delivery delivery)>;

    static constexpr std::size_t kMost = 32;  ///< that wait or are on their way

    /// @p wanted tells whether events are to go out; it is asked about each one that has waited. @p loop must outlive it.
    Deliveries(EventLoop &loop, std::function<bool()> wanted);
    Deliveries(const Deliveries &) = delete;
    Deliveries &operator=(const Deliveries &) = delete;
    /// Gives the delivery that is on its way a moment to come to its end, then leaves it to itself.
    ~Deliveries();

    /// Throws Refused where no more can be taken.
    void checkRoom() const;
    /// Throws as checkRoom does.
    void send(std::string text, Done done);
    /// Takes no more; what waits or is on its way is told Delivery::simulatorEnds.
    void end();

private:
    struct Job {
        std::string text;
        Done done;
    };
    struct Result;
    struct Errand;

    void begin();
    void finish();
    void dropAll(Delivery reason);

    EventLoop &loop_;
    std::function<bool()> wanted_;
    bool ended_ = false;
    bool underWay_ = false;
    std::deque<Job> jobs_;            // the first one is on its way
    std::shared_ptr<Result> result_;  // shared with the thread, which may outlive this
};

}  // namespace kvosim
