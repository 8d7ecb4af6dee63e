#include "kvosim/replay/unmatched.h"

#include "common/command_line/suggestion.h"
#include "common/recording/difference.h"

#include <algorithm>

namespace kvosim {

namespace {

using tools::recording::Distance;

constexpr std::size_t kLongestKept = 4096;  // services refuse longer ones
/// Comparing all texts of a large recording with all unknown ones would take too long.
constexpr std::size_t kMostCompared = 200'000;
constexpr std::size_t kMostWithNearest = 20;

/// The best recorded request so far.
struct Candidate {
    Distance distance{};
    std::optional<RecordedText> text{};
};

void consider(Candidate &candidate, const std::string &unknown, const RecordedText &recorded)
{
    const Distance distance = tools::recording::distanceOf(unknown, recorded.request);
    const bool isNearer = !candidate.text || distance < candidate.distance ||
                          (distance == candidate.distance && recorded.number < candidate.text->number);
    if (isNearer) {
        candidate = {distance, recorded};
    }
}

/// For a request whose keyword was not recorded: a request with a similar keyword.
std::optional<RecordedText> similarCommand(const std::string &unknown,
                                           const std::map<std::string, RecordedText> &firstOfKeyword)
{
    std::vector<std::string> keywords;
    keywords.reserve(firstOfKeyword.size());
    for (const auto &[keyword, recorded] : firstOfKeyword) {
        keywords.push_back(keyword);
    }
    const auto near = tools::command_line::nearest(std::string(tools::recording::keywordOf(unknown)), keywords);
    return near.empty() ? std::nullopt : std::optional(firstOfKeyword.at(near.front()));
}

}  // namespace

bool Unmatched::add(std::string_view request, bool isUsedUp)
{
    ++count_;
    const std::size_t size = request.size();
    request = request.substr(0, kLongestKept);
    if (const auto found = indices_.find(request); found != indices_.end()) {
        ++requests_[found->second].count;
        return false;
    }
    if (requests_.size() == kMostTexts) {
        ++notKept_;
        return false;
    }
    indices_.emplace(request, requests_.size());
    requests_.push_back({.request = std::string(request), .size = size, .count = 1, .isUsedUp = isUsedUp});
    return true;
}

std::vector<UnmatchedRequest> Unmatched::list(const Recording &recording, const Script &script) const
{
    std::vector<UnmatchedRequest> requests = requests_;
    findNearest(recording, script, requests);
    return requests;
}

void findNearest(const Recording &recording, const Script &script, std::vector<UnmatchedRequest> &requests)
{
    std::vector<UnmatchedRequest *> unknown;
    for (UnmatchedRequest &request : requests) {
        if (!request.isUsedUp && unknown.size() < kMostWithNearest) {
            unknown.push_back(&request);
        }
    }
    if (unknown.empty()) {
        return;
    }
    std::vector<Candidate> best(unknown.size());
    std::map<std::string, RecordedText> firstOfKeyword;
    for (const LineIndex line : script.distinct(kMostCompared)) {
        RecordedText recorded{recording.lineNumber(line), *requestLineOf(std::get<Exchange>(recording.line(line)))};
        recorded.request.resize(std::min(recorded.request.size(), kLongestKept));  // as the requests it is compared with
        const std::string_view keyword = tools::recording::keywordOf(recorded.request);
        const auto first = firstOfKeyword.try_emplace(std::string(keyword), recorded).first;
        first->second = recorded.number < first->second.number ? recorded : first->second;
        for (std::size_t i = 0; i < unknown.size(); ++i) {
            if (tools::recording::keywordOf(unknown[i]->request) == keyword) {
                consider(best[i], unknown[i]->request, recorded);
            }
        }
    }
    for (std::size_t i = 0; i < unknown.size(); ++i) {
        UnmatchedRequest &request = *unknown[i];
        request.nearest = best[i].text ? best[i].text : similarCommand(request.request, firstOfKeyword);
        request.difference =
            request.nearest ? tools::recording::differenceOf(request.request, request.nearest->request) : std::string();
    }
}

}  // namespace kvosim
