// The requests that the recording has no answer for, and the recorded request that is nearest to each.
#pragma once

#include "kvosim/replay/script.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvosim {

/// A recorded request. That of an unmatched one is cut as that is.
struct RecordedText {
    std::size_t number;  ///< of its line in the file
    std::string request;
};

struct UnmatchedRequest {
    std::string request;   ///< a long one is cut
    std::size_t size = 0;  ///< of the whole request
    uint64_t count = 0;
    bool isUsedUp = false;  ///< it was recorded, but less often
    std::optional<RecordedText> nearest{};
    std::string difference{};  ///< from the nearest one
};

/// Takes little memory, whatever programs ask.
class Unmatched {
public:
    static constexpr std::size_t kMostTexts = 1000;

    /// Returns whether this text is new and is kept.
    bool add(std::string_view request, bool isUsedUp);

    [[nodiscard]] uint64_t count() const noexcept { return count_; }
    /// The requests whose texts were not kept, because there were too many different ones.
    [[nodiscard]] uint64_t notKept() const noexcept { return notKept_; }
    /// In the order in which they were first asked, with the nearest recorded request of the first ones.
    [[nodiscard]] std::vector<UnmatchedRequest> list(const Recording &recording, const Script &script) const;

private:
    std::vector<UnmatchedRequest> requests_;
    std::map<std::string, std::size_t, std::less<>> indices_;
    uint64_t count_ = 0;
    uint64_t notKept_ = 0;
};

/// Sets the nearest recorded request of each.
void findNearest(const Recording &recording, const Script &script, std::vector<UnmatchedRequest> &requests);

}  // namespace kvosim
