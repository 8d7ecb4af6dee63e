// The recorded requests, found by their texts. Each is used once, in the order of the recording.
#pragma once

#include "kvosim/replay/contents.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kvosim {

class Script {
public:
    struct Match {
        LineIndex line;
        bool isRepeated = false;    ///< it was used before: no unused request has this text
        bool isOutOfOrder = false;  ///< it was recorded before a request that has been used already
    };

    /// @p recording must outlive this object.
    Script(const Recording &recording, const std::vector<RecordedRequest> &requests);

    /// The first unused request with this text. If all are used, the last of them again. Nothing if the text was not recorded.
    std::optional<Match> take(std::string_view request);
    /// Whether a request has this text.
    [[nodiscard]] bool knows(std::string_view request) const;
    /// Whether an unused request has this text.
    [[nodiscard]] bool hasUnused(std::string_view request) const;

    /// The number of requests.
    [[nodiscard]] std::size_t size() const noexcept { return lines_.size(); }
    [[nodiscard]] std::size_t unused() const noexcept { return lines_.size() - used_; }
    /// The first unused requests.
    [[nodiscard]] std::vector<LineIndex> firstUnused(std::size_t most) const;
    /// One request of each text, in no particular order.
    [[nodiscard]] std::vector<LineIndex> distinct(std::size_t most) const;

private:
    struct Text {
        uint64_t hash;
        uint32_t position;  // in lines_
    };
    using Range = std::pair<std::vector<Text>::const_iterator, std::vector<Text>::const_iterator>;

    [[nodiscard]] Range rangeOf(std::string_view request) const;
    [[nodiscard]] std::size_t usesOf(uint64_t hash) const;

    const Recording &recording_;
    std::vector<LineIndex> lines_;  // in the order of the recording
    std::vector<bool> isUsed_;      // the same order
    std::vector<Text> texts_;       // by hash, and by position for each hash
    std::unordered_map<uint64_t, uint32_t> uses_;
    std::size_t used_ = 0;
    uint32_t latest_ = 0;  // the highest position that was used, plus one
};

}  // namespace kvosim
