// What the processes of a soak run have in common, in memory that all of them see: what they are to do, what each thread is at,
// and what has been counted.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace soak {

using Clock = std::chrono::steady_clock;
using Counter = std::atomic<uint64_t>;

inline int64_t nowMilliseconds()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now().time_since_epoch()).count();
}

inline void raise(Counter &highest, uint64_t value)
{
    uint64_t seen = highest.load();
    while (seen < value && !highest.compare_exchange_weak(seen, value)) {
    }
}

/// How often a function has returned which result.
class Results {
public:
    static constexpr int32_t kLowest = -10;
    static constexpr int32_t kHighest = 1;

    void add(int32_t result) { ++(result < kLowest || result > kHighest ? others_ : counts_[index(result)]); }
    [[nodiscard]] uint64_t of(int32_t result) const { return counts_[index(result)].load(); }
    [[nodiscard]] uint64_t others() const { return others_.load(); }
    [[nodiscard]] uint64_t all() const
    {
        uint64_t sum = others();
        for (const Counter &count : counts_) {
            sum += count.load();
        }
        return sum;
    }

private:
    static std::size_t index(int32_t result) { return static_cast<std::size_t>(result - kLowest); }

    std::array<Counter, kHighest - kLowest + 1> counts_{};
    Counter others_{};
};

/// What a thread is at, so that one that does not come back is found.
struct Watch {
    std::atomic<int64_t> since{};        ///< 0 between calls
    std::atomic<const char *> call{};    ///< a literal: the processes are forks of one program
    std::atomic<const char *> worker{};  ///< whose it is
};

/// The times at which everything rests and is measured.
enum Moment { kAtStart, kAfterWarmUp, kAtEnd, kMoments };

struct Held {
    Counter descriptors{};
    Counter threads{};
    Counter heapBytes{};
    Counter residentBytes{};
};

inline constexpr std::size_t kMostWorkers = 16;

/// One process and its threads.
struct ProcessShare {
    const char *name = "";
    std::atomic<int> process{};
    std::atomic<unsigned> workers{};
    std::array<Watch, kMostWorkers> watches{};
    std::array<std::atomic<unsigned>, kMoments> parked{};
    std::atomic<int> measured{};  ///< how many moments have been
    std::array<Held, kMoments> held{};
    Held most{};
};

/// What went wrong: the first ones in words, the others as a number.
class Complaints {
public:
    void add(std::string_view text)
    {
        const unsigned place = count_++;
        if (place < texts_.size()) {
            text.copy(texts_[place].data(), texts_[place].size() - 1);
        }
    }
    [[nodiscard]] unsigned count() const { return count_.load(); }
    [[nodiscard]] unsigned inWords() const { return std::min(count(), static_cast<unsigned>(texts_.size())); }
    [[nodiscard]] std::string text(unsigned place) const { return texts_[place].data(); }

private:
    std::atomic<unsigned> count_{};
    std::array<std::array<char, 240>, 20> texts_{};
};

inline constexpr std::size_t kMostRequests = 96;

struct Figures {
    std::array<Results, kMostRequests> requests{};
    Counter longestRequest{};  ///< ms
    Results activations{};
    Results closes{};
    Results agentStarts{};
    Results agentCleanups{};
    Results indications{};
    Results listens{};
    Results unlistens{};
    Counter usbEventsSent{};
    Counter usbEventsDelivered{};
    Counter usbEventsReceived{};
    Counter usbEnds{};
    Counter stormsRefused{};
    Counter stormsGivenUp{};
    Counter agentConnections{};
    Counter agentRequests{};
    Counter agentReplies{};
    Counter agentCallbacks{};
    Counter indicationsReceived{};
    Counter remoteCloses{};
    Counter remoteResets{};
    Counter remoteRestarts{};
    Counter remoteRecordsLost{};
    Counter eventsPublished{};
    Counter eventsWritten{};  ///< one for each listener
    Counter eventsReceived{};
    Counter faults{};
    Counter signals{};
};

enum Program { kConductor, kHost, kUsbOne, kUsbTwo, kPrograms };

struct Share {
    std::atomic<int> rests{1};    ///< how many rests have been asked for; each run begins with one
    std::atomic<int> resumed{0};  ///< how many of them are over
    Complaints complaints{};
    Figures figures{};
    std::array<ProcessShare, kPrograms> processes{};
};

/// A call that is watched from here to the end of the scope.
class Call {
public:
    Call(Watch &watch, const char *name) : watch_(watch)
    {
        watch_.call = name;
        watch_.since = nowMilliseconds();
    }
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;
    ~Call() { watch_.since = 0; }

    [[nodiscard]] uint64_t milliseconds() const { return static_cast<uint64_t>(nowMilliseconds() - watch_.since.load()); }

private:
    Watch &watch_;
};

}  // namespace soak
