// What a replay has done: what was answered how, and what was not as recorded.
#pragma once

#include "common/json.h"
#include "kvosim/replay/unmatched.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvosim {

/// A program has answered a USB event differently than when it was recorded.
struct DifferentAnswer {
    std::size_t number;  ///< of the event's line in the file
    std::string event;
    std::optional<std::string> recorded;
    std::optional<std::string> given;
};

struct ReplayReport {
    struct Events {
        uint64_t recorded = 0;
        uint64_t sent = 0;
    };

    std::string file;
    bool isStrict = false;
    uint64_t asRecorded = 0;
    uint64_t repeated = 0;
    uint64_t fromPlant = 0;
    uint64_t notAnswered = 0;  ///< not recorded, or with --strict used up
    uint64_t outOfOrder = 0;
    std::optional<RecordedText> firstOutOfOrder{};
    std::vector<UnmatchedRequest> unmatched{};
    uint64_t unmatchedNotListed = 0;
    uint64_t recordedRequests = 0;
    uint64_t withoutLineEnd = 0;
    uint64_t neverAsked = 0;
    std::vector<RecordedText> firstNeverAsked{};
    Events usbEvents{};
    uint64_t answeredDifferently = 0;
    std::vector<DifferentAnswer> firstAnsweredDifferently{};
    Events embeddedEvents{};
    std::vector<std::string> notes{};

    [[nodiscard]] uint64_t requests() const { return asRecorded + repeated + fromPlant + notAnswered; }
    /// Whether each request was asked once and in the recorded order, and each USB event was sent and answered as recorded.
    [[nodiscard]] bool meetsStrict() const;
    /// Whether every request was answered, and --strict was met if it was given.
    [[nodiscard]] bool isGood() const { return notAnswered == 0 && (!isStrict || meetsStrict()); }

    /// For people: one line, and one more for everything that was not as recorded.
    [[nodiscard]] std::string text() const;
    [[nodiscard]] tools::Json document() const;
};

/// A text in double quotes that fits a line.
std::string quotedForReport(std::string_view text);

}  // namespace kvosim
