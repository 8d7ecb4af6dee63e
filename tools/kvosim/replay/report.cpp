#include "kvosim/replay/report.h"

#include "common/recording/escape.h"

#include <algorithm>

namespace kvosim {

namespace {

using tools::Json;

constexpr std::size_t kMostBytesShown = 100;  // of a text
constexpr std::size_t kMostLines = 20;        // of unmatched requests
constexpr const char *kPrefix = "kvosim:   ";

std::string amount(uint64_t count, const std::string &word)
{
    return std::to_string(count) + ' ' + word + (count == 1 ? "" : "s");
}

std::string times(uint64_t count) { return count == 1 ? "" : " (" + std::to_string(count) + " times)"; }

std::string shown(const std::optional<std::string> &answer) { return answer ? quotedForReport(*answer) : "no answer"; }

std::string shown(const RecordedText &text)
{
    return quotedForReport(text.request) + " (line " + std::to_string(text.number) + ')';
}

std::string quoted(std::string_view text, std::size_t size)
{
    std::string quoted;
    tools::recording::appendQuoted(quoted, text.substr(0, kMostBytesShown));
    return quoted + (size > kMostBytesShown ? "... (" + amount(size, "byte") + ')' : "");
}

std::string textOf(const UnmatchedRequest &request)
{
    return quoted(request.request, std::max(request.size, request.request.size()));
}

std::string lineOf(const UnmatchedRequest &request)
{
    if (request.isUsedUp) {
        return "asked more often than recorded: " + textOf(request) + times(request.count);
    }
    return "not recorded: " + textOf(request) + times(request.count) +
           (request.nearest ? "; nearest: " + shown(*request.nearest) + ": " + request.difference : "");
}

std::string firstLine(const ReplayReport &report)
{
    std::string text = "kvosim: replay of " + report.file + ": " + amount(report.requests(), "request");
    const bool isPlain = report.asRecorded == report.requests();
    const auto add = [&text](uint64_t count, const std::string &what) {
        text += count == 0 ? "" : ", " + std::to_string(count) + ' ' + what;
    };
    if (isPlain) {
        text += report.requests() == 0 ? "" : report.requests() == 1 ? " answered as recorded" : ", all answered as recorded";
    } else {
        add(report.asRecorded, "answered as recorded");
        add(report.repeated, "with the last answer again");
        add(report.fromPlant, "from the plant");
        add(report.notAnswered, "not answered");
    }
    text += report.usbEvents.sent == 0 ? "" : "; " + amount(report.usbEvents.sent, "USB event");
    text += report.embeddedEvents.sent == 0 ? "" : "; " + amount(report.embeddedEvents.sent, "embedded event");
    return text + '\n';
}

std::string unmatchedLines(const ReplayReport &report)
{
    std::string text;
    std::size_t count = 0;
    uint64_t shownRequests = 0;
    for (const UnmatchedRequest &request : report.unmatched) {
        if (count++ == kMostLines) {
            break;
        }
        text += kPrefix + lineOf(request) + '\n';
        shownRequests += request.count;
    }
    const uint64_t others = report.notAnswered - shownRequests;
    return text + (others == 0 ? "" : kPrefix + ("and " + amount(others, "more request")) + " without an answer\n");
}

std::string notSentLine(const ReplayReport::Events &events, const std::string &name)
{
    return events.sent == events.recorded ? ""
                                          : kPrefix + name + " events: " + std::to_string(events.sent) + " of " +
                                                std::to_string(events.recorded) + " were sent\n";
}

std::string neverAskedLine(const ReplayReport &report)
{
    std::string text = kPrefix + ("never asked: " + std::to_string(report.neverAsked)) + " of " +
                       amount(report.recordedRequests, "recorded request") + ": ";
    for (const RecordedText &each : report.firstNeverAsked) {
        text += (&each == report.firstNeverAsked.data() ? "" : ", ") + shown(each);
    }
    return text + (report.neverAsked > report.firstNeverAsked.size() ? ", ...\n" : "\n");
}

std::string differentAnswersLine(const ReplayReport &report)
{
    const DifferentAnswer &first = report.firstAnsweredDifferently.front();
    return kPrefix + amount(report.answeredDifferently, "USB event") + " answered differently, first " +
           quotedForReport(first.event) + " (line " + std::to_string(first.number) + "): " + shown(first.given) +
           " instead of " + shown(first.recorded) + '\n';
}

Json documentOf(const RecordedText &text) { return {{"line", text.number}, {"request", text.request}}; }

Json documentOf(const std::optional<std::string> &answer) { return answer ? Json(*answer) : Json(nullptr); }

Json documentOf(const ReplayReport::Events &events)
{
    return {{"recorded", events.recorded}, {"sent", events.sent}, {"not_sent", events.recorded - events.sent}};
}

Json documentOf(const UnmatchedRequest &request)
{
    return {{"request", request.request},
            {"count", request.count},
            {"used_up", request.isUsedUp},
            {"nearest", request.nearest ? documentOf(*request.nearest) : Json(nullptr)},
            {"difference", request.nearest ? Json(request.difference) : Json(nullptr)}};
}

}  // namespace

std::string quotedForReport(std::string_view text) { return quoted(text, text.size()); }

bool ReplayReport::meetsStrict() const
{
    return asRecorded == recordedRequests && requests() == asRecorded && outOfOrder == 0 &&
           usbEvents.sent == usbEvents.recorded && answeredDifferently == 0;
}

std::string ReplayReport::text() const
{
    std::string text = firstLine(*this) + unmatchedLines(*this);
    if (isStrict && outOfOrder > 0) {
        text += kPrefix + amount(outOfOrder, "request") + " out of order, first " + shown(*firstOutOfOrder) + '\n';
    }
    text += neverAsked == 0 ? "" : neverAskedLine(*this);
    text += notSentLine(usbEvents, "USB") + (answeredDifferently == 0 ? "" : differentAnswersLine(*this));
    text += notSentLine(embeddedEvents, "embedded");
    for (const std::string &note : notes) {
        text += kPrefix + note + '\n';
    }
    if (isStrict && !meetsStrict()) {
        text += std::string(kPrefix) + "--strict is not met\n";
    }
    return text;
}

Json ReplayReport::document() const
{
    Json document{{"file", file},
                  {"good", isGood()},
                  {"requests", requests()},
                  {"answered_as_recorded", asRecorded},
                  {"answered_again", repeated},
                  {"answered_from_plant", fromPlant},
                  {"not_answered", notAnswered},
                  {"not_recorded", Json::array()},
                  {"not_listed", unmatchedNotListed},
                  {"out_of_order", outOfOrder},
                  {"recorded_requests", recordedRequests},
                  {"without_line_end", withoutLineEnd},
                  {"never_asked", neverAsked},
                  {"first_never_asked", Json::array()},
                  {"usb_events", documentOf(usbEvents)},
                  {"embedded_events", documentOf(embeddedEvents)},
                  {"strict", isStrict ? Json(meetsStrict()) : Json(nullptr)},
                  {"notes", notes}};
    for (const UnmatchedRequest &request : unmatched) {
        document["not_recorded"].push_back(documentOf(request));
    }
    for (const RecordedText &each : firstNeverAsked) {
        document["first_never_asked"].push_back(documentOf(each));
    }
    document["usb_events"]["answered_differently"] = answeredDifferently;
    document["usb_events"]["first_different"] = Json::array();
    for (const DifferentAnswer &each : firstAnsweredDifferently) {
        document["usb_events"]["first_different"].push_back({{"line", each.number},
                                                             {"event", each.event},
                                                             {"recorded", documentOf(each.recorded)},
                                                             {"given", documentOf(each.given)}});
    }
    return document;
}

}  // namespace kvosim
