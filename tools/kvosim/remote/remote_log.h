// The log of the traffic on the remote side's sessions. It keeps the newest records.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

namespace kvosim {

struct RemoteRecord {
    enum class Kind { connected, closed, request, reply, indication };

    unsigned session = 0;
    Kind kind = Kind::request;
    std::string text{};
    std::string note{};   ///< a remark, for example "too late"
    uint64_t number = 0;  ///< 1 for the first record since the simulator started
    std::chrono::system_clock::time_point time{};
};

std::string_view nameOf(RemoteRecord::Kind kind);

/// A line for logs, such as "session 3 > get-kvoindex".
std::string lineOf(unsigned session, std::string_view kind, std::string_view text, std::string_view note);

class RemoteLog {
public:
    static constexpr std::size_t kMaxRecords = 2000;
    static constexpr std::size_t kMaxBytes = std::size_t{1024} * 1024;  ///< of texts and notes

    /// @p added is called with each record.
    explicit RemoteLog(std::function<void(const RemoteRecord &record)> added) : added_(std::move(added)) {}

    void add(RemoteRecord record);
    /// Oldest first.
    [[nodiscard]] const std::deque<RemoteRecord> &records() const noexcept { return records_; }
    /// The number of the newest record; 0 if there was none yet.
    [[nodiscard]] uint64_t last() const noexcept { return last_; }

private:
    std::function<void(const RemoteRecord &record)> added_;
    std::deque<RemoteRecord> records_;
    std::size_t bytes_ = 0;
    uint64_t last_ = 0;
};

}  // namespace kvosim
