// Asks a simulated service everything that a recording contains, and compares the replies.
#pragma once

#include "common/recording/recording.h"
#include "kvosim/plant/plant.h"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kvosim {

/// Stands for requests whose keyword is not a word.
inline constexpr const char *kOtherRequests = "(other)";

/// Replies to one request, without their line ends.
struct Difference {
    tools::recording::Microseconds time{};
    std::size_t lineNumber = 0;  ///< of the recording
    std::string request;
    std::string recorded;
    std::optional<std::string> simulated;  ///< without a value: no reply
};

/// The figures of one command, or of all commands.
struct Figures {
    std::size_t same = 0;
    std::size_t different = 0;
    std::size_t unanswered = 0;  ///< the recording has no complete reply

    [[nodiscard]] std::size_t compared() const noexcept { return same + different; }
    [[nodiscard]] std::size_t requests() const noexcept { return compared() + unanswered; }
};

struct CommandComparison {
    Figures figures;
    std::vector<Difference> differences{};  ///< the first ones
};

struct Comparison {
    std::map<std::string, CommandComparison> commands;  ///< by keyword
    Figures total;
    std::size_t incomplete = 0;  ///< requests that never became complete, and were not asked
};

struct CompareOptions {
    std::size_t mostDifferences = 3;  ///< to keep for each command
    /// Called often with the number of requests that were asked, and of all.
    std::function<void(std::size_t done, std::size_t all)> progress = [](std::size_t, std::size_t) {};
};

/// @p plant is the plant when the recording began.
Comparison compare(const tools::recording::Recording &recording, const Plant &plant, const CompareOptions &options = {});

}  // namespace kvosim
