// Faults: ways in which the service fails on purpose, each for certain requests and a certain number of times.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kvosim {

/// An invalid key of a fault. The text is for users.
struct FaultError : std::invalid_argument {
    FaultError(std::string_view faultyKey, const std::string &what) : std::invalid_argument(what), key(faultyKey) {}
    std::string key;
};

/// Means every command.
inline constexpr std::string_view kEveryCommand = "*";

/// A fault as plant files and the command line describe it.
struct FaultText {
    std::string command{kEveryCommand};  ///< a keyword, without the character that ends it
    std::string kind;
    uint32_t after = 0;               ///< number of requests that are served normally first
    uint32_t times = 0;               ///< number of requests that the fault strikes after that; 0 is unlimited
    std::optional<uint32_t> delay{};  ///< ms
};

enum class FaultKind { delay, close, garbage, failed, split, silent };

class Fault {
public:
    /// Throws FaultError. Does not check the command: makeFault (commands.h) does that first.
    explicit Fault(const FaultText &text);

    /// Counts the request if the fault applies to its command. Returns whether the fault strikes it, if no earlier fault does.
    bool strikes(std::string_view keyword);
    /// Counts a request as struck.
    void countStrike() { ++struck_; }

    [[nodiscard]] FaultKind kind() const noexcept { return kind_; }
    [[nodiscard]] std::chrono::milliseconds delay() const noexcept
    {
        return std::chrono::milliseconds(text_.delay.value_or(0));
    }
    /// The description that the fault was made from, with defaults filled in.
    [[nodiscard]] const FaultText &text() const noexcept { return text_; }
    [[nodiscard]] uint64_t requestsStruck() const noexcept { return struck_; }

private:
    FaultText text_;
    FaultKind kind_;
    uint64_t seen_ = 0;
    uint64_t struck_ = 0;
};

class Faults {
public:
    void add(Fault fault) { faults_.push_back(std::move(fault)); }
    void clear() { faults_.clear(); }
    [[nodiscard]] std::span<const Fault> list() const noexcept { return faults_; }

    /// The first fault that strikes the request, or null. All faults that apply to the command count the request.
    const Fault *strike(std::string_view keyword);

private:
    std::vector<Fault> faults_;
};

/// A malformed reply: inserts garbage after the first "=", or at the beginning if the reply has none.
std::string garbled(std::string reply);

}  // namespace kvosim
