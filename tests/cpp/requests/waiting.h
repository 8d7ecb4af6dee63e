// What the tests of requests share: a loop, functions that wait, and objects that know their threads.
#pragma once

#include "support/eventually.h"

#include <kvo_hws/requests.hpp>

#include <atomic>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <string>
#include <thread>
#include <vector>

namespace requests_test {

using namespace std::chrono_literals;
using kvo::Errc;
using kvo::Requests;
using kvo::Result;

inline Requests makeRequests(std::size_t capacity = 256) { return Requests::create(capacity).value(); }

inline bool isReadable(const Requests &requests, std::chrono::milliseconds most = 0ms)
{
    pollfd waiting{.fd = requests.descriptor(), .events = POLLIN, .revents = 0};
    return poll(&waiting, 1, static_cast<int>(most.count())) == 1;
}

/// A loop with nothing but poll(), until a condition holds. Returns false after 20 s.
inline bool dispatchUntil(Requests &requests, const std::function<bool()> &condition)
{
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        if (isReadable(requests, 50ms)) {
            requests.dispatch();
        }
    }
    return true;
}

inline bool dispatchAll(Requests &requests)
{
    return dispatchUntil(requests, [&] { return requests.pending() == 0; });
}

/// Completions, as texts in the order in which they were called: the value or "timeout" and the like.
class Diary {
public:
    template <class T>
    static std::string textOf(const Result<T> &result)
    {
        if (!result) {
            switch (result.error().meaning()) {
            case Errc::timeout: return "timeout";
            case Errc::exception: return "exception";
            case Errc::no_service: return "no service";
            default: return result.error().message();
            }
        }
        if constexpr (std::is_void_v<T>) {
            return "done";
        } else {
            return std::to_string(*result);
        }
    }

    /// A completion that writes an entry.
    auto entry(std::string name = "")
    {
        return [this, name = std::move(name)](auto result) { entries.push_back(name + textOf(result)); };
    }

    std::vector<std::string> entries;
};

/// A request that keeps the worker until it is released. It does not end before the destructor of the gate.
class Gate {
public:
    Gate() = default;
    Gate(const Gate &) = delete;
    Gate &operator=(const Gate &) = delete;
    ~Gate() { release(); }

    void release() { state_->open = true; }
    [[nodiscard]] bool waitUntilReached() const
    {
        return support::eventually([this] { return state_->reached.load(); });
    }
    [[nodiscard]] bool hasEnded() const { return state_->ended; }
    [[nodiscard]] bool wasReached() const { return state_->reached; }

    /// The request.
    [[nodiscard]] auto request(int value = 0) const
    {
        return [state = state_, value] {
            state->reached = true;
            while (!state->open) {
                std::this_thread::sleep_for(1ms);
            }
            state->ended = true;
            return value;
        };
    }

private:
    struct State {
        std::atomic<bool> reached{false};
        std::atomic<bool> open{false};
        std::atomic<bool> ended{false};
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// Part of a function: reports the thread in which it is destroyed.
class Witness {
public:
    struct Record {
        std::atomic<bool> destroyed{false};
        std::atomic<std::thread::id> thread{};
    };

    explicit Witness(std::shared_ptr<Record> record) : record_(std::move(record)) {}
    Witness(Witness &&) noexcept = default;
    Witness &operator=(Witness &&) noexcept = default;
    ~Witness()
    {
        if (record_ != nullptr) {
            record_->thread = std::this_thread::get_id();
            record_->destroyed = true;
        }
    }

private:
    std::shared_ptr<Record> record_;
};

using Record = Witness::Record;

}  // namespace requests_test
