// The connections that pass through a tap now.
#pragma once

#include "common/tap/link.h"

#include <map>
#include <vector>

namespace tools::tap {

class Links {
public:
    Links(EventLoop &loop, Observer &observer, Clock::time_point start) : loop_(loop), observer_(observer), start_(start) {}
    Links(const Links &) = delete;
    Links &operator=(const Links &) = delete;
    /// Closes all connections at once and reports them.
    ~Links();

    /// Passes a connection on. The links set callbacks.onEnd.
    void add(Descriptor program, recording::Kind kind, Link::Callbacks callbacks);
    /// The same for a connection of embedded events, whose lines are reported one by one.
    void addEvents(Descriptor program, Link::Callbacks callbacks);
    /// Whether an exchange has begun and not ended.
    [[nodiscard]] bool areBusy() const;

private:
    void report(Link &link);
    void remove(const Link &link);

    EventLoop &loop_;
    Observer &observer_;
    Clock::time_point start_;
    std::map<const Link *, std::unique_ptr<Link>> links_;
    std::vector<std::unique_ptr<Link>> ended_;  // cannot be destroyed while they call
};

}  // namespace tools::tap
