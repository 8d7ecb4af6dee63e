// The state that the processes of a soak run share, in shared memory: the checkpoints, the current call of each thread, and
// the counters.
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

/// Counts the results of a function.
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

/// The current call of a thread, to detect calls that do not return.
struct Watch {
    std::atomic<int64_t> since{};        ///< 0 between calls
    std::atomic<const char *> call{};    ///< a literal: the processes are forks of one program
    std::atomic<const char *> worker{};  ///< the name of the worker
};

/// At a checkpoint all workers stop and the resource usage is measured.
enum Checkpoint { kAtStart, kAfterWarmUp, kAtEnd, kCheckpoints };

struct Usage {
    Counter descriptors{};
    Counter threads{};
    Counter heapBytes{};
    Counter residentBytes{};
};

inline constexpr std::size_t kMostWorkers = 16;

/// The state of one process and its threads.
struct ProcessState {
    const char *name = "";
    std::atomic<int> process{};
    std::atomic<unsigned> workers{};
    std::array<Watch, kMostWorkers> watches{};
    std::array<std::atomic<unsigned>, kCheckpoints> stopped{};
    std::atomic<int> measured{};  ///< the number of measured checkpoints
    std::array<Usage, kCheckpoints> usage{};
    Usage peak{};
};

/// The complaints of the run: the texts of the first ones, and the number of all.
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
    [[nodiscard]] unsigned textCount() const { return std::min(count(), static_cast<unsigned>(texts_.size())); }
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
    Results usbObjects{};       ///< activations of kvo::UsbEvents
    Results usbObjectCloses{};  ///< the ends of those objects
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
    Counter eventsWritten{};  ///< counted once per listener
    Counter eventsReceived{};
    Counter loopRequests{};
    Counter loopAnswers{};
    Counter loopTimeouts{};
    Counter loopCancelled{};
    Counter loopDropped{};
    Counter loopRefused{};
    Counter faults{};
    Counter signals{};
};

enum Program { kLoadDriver, kHost, kUsbOne, kUsbTwo, kPrograms };

struct SharedState {
    std::atomic<int> checkpointsRequested{1};  ///< the number of checkpoints requested so far; each run begins with one
    std::atomic<int> checkpointsPassed{0};     ///< the number of checkpoints that are over
    Complaints complaints{};
    Figures figures{};
    std::array<ProcessState, kPrograms> processes{};
};

/// Marks a call from here to the end of the scope.
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
