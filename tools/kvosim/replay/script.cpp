#include "kvosim/replay/script.h"

#include <algorithm>

namespace kvosim {

Script::Script(const Recording &recording, const std::vector<RecordedRequest> &requests)
    : recording_(recording), isUsed_(requests.size(), false)
{
    lines_.reserve(requests.size());
    texts_.reserve(requests.size());
    for (const RecordedRequest &request : requests) {
        texts_.push_back({request.hash, static_cast<uint32_t>(lines_.size())});
        lines_.push_back(request.line);
    }
    std::sort(texts_.begin(), texts_.end(), [](const Text &one, const Text &other) {
        return std::pair(one.hash, one.position) < std::pair(other.hash, other.position);
    });
}

/// All requests with the text. Empty if there are none.
Script::Range Script::rangeOf(std::string_view request) const
{
    const uint64_t hash = hashOf(request);
    const auto begin =
        std::partition_point(texts_.begin(), texts_.end(), [hash](const Text &text) { return text.hash < hash; });
    const auto end = std::partition_point(begin, texts_.end(), [hash](const Text &text) { return text.hash == hash; });
    // A different text has the same hash only if someone has looked for such texts.
    const bool isSame = begin != end && requestLineOf(std::get<Exchange>(recording_.line(lines_[begin->position]))) == request;
    return {begin, isSame ? end : begin};
}

std::size_t Script::usesOf(uint64_t hash) const
{
    const auto uses = uses_.find(hash);
    return uses == uses_.end() ? 0 : uses->second;
}

bool Script::knows(std::string_view request) const
{
    const auto [begin, end] = rangeOf(request);
    return begin != end;
}

bool Script::hasUnused(std::string_view request) const
{
    const auto [begin, end] = rangeOf(request);
    return begin != end && usesOf(begin->hash) < static_cast<std::size_t>(end - begin);
}

std::optional<Script::Match> Script::take(std::string_view request)
{
    const auto [begin, end] = rangeOf(request);
    if (begin == end) {
        return std::nullopt;
    }
    const std::size_t uses = usesOf(begin->hash);
    if (uses == static_cast<std::size_t>(end - begin)) {
        return Match{.line = lines_[std::prev(end)->position], .isRepeated = true};
    }
    const uint32_t position = (begin + static_cast<std::ptrdiff_t>(uses))->position;
    ++uses_[begin->hash];
    ++used_;
    isUsed_[position] = true;
    const bool isOutOfOrder = position < latest_;
    latest_ = std::max(latest_, position + 1);
    return Match{.line = lines_[position], .isOutOfOrder = isOutOfOrder};
}

std::vector<LineIndex> Script::firstUnused(std::size_t most) const
{
    std::vector<LineIndex> lines;
    for (std::size_t i = 0; i < lines_.size() && lines.size() < most; ++i) {
        if (!isUsed_[i]) {
            lines.push_back(lines_[i]);
        }
    }
    return lines;
}

std::vector<LineIndex> Script::distinct(std::size_t most) const
{
    std::vector<LineIndex> lines;
    for (std::size_t i = 0; i < texts_.size() && lines.size() < most; ++i) {
        if (i == 0 || texts_[i].hash != texts_[i - 1].hash) {
            lines.push_back(lines_[texts_[i].position]);
        }
    }
    return lines;
}

}  // namespace kvosim
