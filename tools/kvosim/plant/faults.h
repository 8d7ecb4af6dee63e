// Faults: ways in which the service fails on purpose, each for some requests and some times.
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

/// What is wrong with a key of a fault. The text is for people.
struct FaultError : std::invalid_argument {
    FaultError(std::string_view faultyKey, const std::string &what) : std::invalid_argument(what), key(faultyKey) {}
    std::string key;
};

/// Stands for every command.
inline constexpr std::string_view kEveryCommand = "*";

/// A fault as it is written in plant files and on the command line.
struct FaultText {
    std::string command{kEveryCommand};  ///< a keyword, without the character that ends it
    std::string kind;
    uint32_t after = 0;               ///< so many requests are spared first
    uint32_t times = 0;               ///< so many are struck then; 0 is for ever
    std::optional<uint32_t> delay{};  ///< ms
};

enum class FaultKind { delay, close, garbage, failed, split, silent };

class Fault {
public:
    /// Throws FaultError. The command is taken as it is: makeFault (commands.h) checks it first.
    explicit Fault(const FaultText &text);

    /// Counts a request that it is meant for; true when it strikes.
    bool strikes(std::string_view keyword);
    /// Counts the request as struck.
    void struck() { ++struck_; }

    [[nodiscard]] FaultKind kind() const noexcept { return kind_; }
    [[nodiscard]] std::chrono::milliseconds delay() const noexcept
    {
        return std::chrono::milliseconds(text_.delay.value_or(0));
    }
    /// As it was written, with its defaults.
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

    /// The first fault that strikes a request; null when none does. All that are meant for it count it.
    const Fault *strike(std::string_view keyword);

private:
    std::vector<Fault> faults_;
};

/// A reply made malformed: where there is a value behind a "=", before that, else before all.
std::string garbled(std::string reply);

}  // namespace kvosim
