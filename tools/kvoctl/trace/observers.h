// What trace and record do with each exchange, on the thread of the tap's event loop.
#pragma once

#include "kvoctl/trace/filter.h"
#include "kvoctl/trace/observed_queue.h"
#include "kvoctl/trace/summary.h"

namespace kvoctl {

/// Counts the exchanges that the filter selects, and passes them on to be shown.
class TraceObserver : public tools::tap::Observer {
public:
    /// @p showsLines  whether exchanges are passed on; notes always are
    TraceObserver(Filter filter, ObservedQueue &queue, bool showsLines)
        : filter_(std::move(filter)), queue_(queue), showsLines_(showsLines)
    {
    }

    void onExchange(const Peer &peer, Exchange exchange) override
    {
        const Entry entry = entryOf(peer, exchange, kEnoughToJudge);
        if (!filter_.matches(entry)) {
            summary_.addOther();
            return;
        }
        summary_.add(entry);
        if (showsLines_) {
            queue_.put(ObservedExchange{peer, std::move(exchange)});
        }
    }
    void onNote(Microseconds at, const std::string &text) override { queue_.put(Note{at, text}); }
    void onGivenUp(const std::string & /*reason*/) override {}  // the session handles it

    [[nodiscard]] const Summary &summary() const noexcept { return summary_; }

private:
    Filter filter_;
    ObservedQueue &queue_;
    bool showsLines_;
    Summary summary_;
};

/// Counts all exchanges, and passes them on to be written.
class RecordObserver : public tools::tap::Observer {
public:
    explicit RecordObserver(ObservedQueue &queue) : queue_(queue) {}

    void onExchange(const Peer &peer, Exchange exchange) override
    {
        totals_.add(entryOf(peer, exchange, kEnoughToJudge));
        queue_.put(ObservedExchange{peer, std::move(exchange)});
    }
    void onNote(Microseconds at, const std::string &text) override { queue_.put(Note{at, text}); }
    void onGivenUp(const std::string & /*reason*/) override {}  // the session handles it

    [[nodiscard]] const Totals &totals() const noexcept { return totals_; }

private:
    ObservedQueue &queue_;
    Totals totals_;
};

}  // namespace kvoctl
