// Passes what a tap observes from the thread of its event loop, which must not wait, to a thread that may.
#pragma once

#include "common/descriptor.h"
#include "kvoctl/trace/entry.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

namespace kvoctl {

struct ObservedExchange {
    Peer peer;
    Exchange exchange;
};

/// A text is a line that is shown as it is.
using Observed = std::variant<ObservedExchange, Note, std::string>;

/// All functions may be called from any thread.
class ObservedQueue {
public:
    /// @p limit  the bytes of memory that may wait; a single longer exchange may wait alone
    explicit ObservedQueue(std::size_t limit);

    /// Never waits: drops and counts an exchange if the queue is full, and a note if it is much too full. Leaves out a note that
    /// repeats the last one within 10 s. Texts are few, and are never dropped.
    void put(Observed observed);
    /// The oldest one, if any.
    std::optional<Observed> take();

    /// Nothing more will be put.
    void close();
    /// Whether the queue is closed and everything has been taken.
    [[nodiscard]] bool isFinished() const;
    /// Drops everything that waits and that is put later, because it has no reader. Returns how many exchanges waited.
    uint64_t discard();

    /// How many exchanges were dropped because the queue was full.
    [[nodiscard]] uint64_t dropped() const;
    /// How many notes were dropped; repeated ones do not count.
    [[nodiscard]] uint64_t droppedNotes() const;
    /// A descriptor that is readable while something waits, and after close().
    [[nodiscard]] int descriptor() const noexcept { return ready_.get(); }

private:
    [[nodiscard]] bool isRepeated(const Observed &observed) const;
    [[nodiscard]] std::size_t limitOf(const Observed &observed) const;

    mutable std::mutex lock_;
    tools::Descriptor ready_;
    std::size_t limit_;
    std::size_t size_ = 0;  ///< bytes
    std::deque<Observed> waiting_;
    std::optional<Note> lastNote_;
    uint64_t dropped_ = 0;
    uint64_t droppedNotes_ = 0;
    bool isClosed_ = false;
    bool isDiscarded_ = false;
};

}  // namespace kvoctl
