// Fuzzes the reader of recordings. A text is refused with the number of its line, or each line can be written and read again
// without a change. An anonymized line keeps its form. The uses of a recording by kvosim follow.
#include "support.h"

#include "common/recording/anonymizer.h"
#include "common/recording/recording.h"
#include "kvosim/compare/comparison.h"
#include "kvosim/compare/comparison_text.h"
#include "kvosim/plant_file/plant_file.h"
#include "kvosim/replay/contents.h"
#include "kvosim/replay/script.h"
#include "kvosim/replay/unmatched.h"

#include <string>
#include <variant>

namespace {

using namespace tools::recording;

constexpr std::size_t kLongestMessage = 1024;  // for any length of the line

/// Expects "file:<line>: <what>".
void expectUseful(std::string_view message)
{
    constexpr std::string_view kFile = "file:";
    const std::size_t colon = message.find(": ");
    const bool placed = message.starts_with(kFile) && colon > kFile.size() && colon != message.npos &&
                        message.substr(kFile.size(), colon - kFile.size()).find_first_not_of("0123456789") == message.npos;
    if (!placed || colon + 2 == message.size() || message.size() > kLongestMessage) {
        fuzz::fault("the message has no position, no text or %zu bytes: %s", message.size(), std::string(message).c_str());
    }
}

void expectSameAgain(const Line &line)
{
    const std::string text = format(line);
    if (text.find('\n') != text.npos || parse(text) != line || format(parse(text)) != text) {
        fuzz::fault("written and read again, this line is another one: %s", text.c_str());
    }
}

void expectSameForm(const Exchange &original, const Exchange &anonymized)
{
    if (anonymized.at != original.at || anonymized.kind != original.kind || anonymized.process != original.process ||
        anonymized.request.size() != original.request.size() || anonymized.reply.size() != original.reply.size() ||
        anonymized.end != original.end || anonymized.endPause != original.endPause) {
        fuzz::fault("anonymized, the line has another form: %s", format(Line(original)).c_str());
    }
}

/// Each line again, with the same places in the recording.
std::string writtenAgain(const Recording &recording)
{
    std::string text = format(Version{}) + '\n' + format(Start{recording.start()}) + '\n';
    for (const auto &[number, process] : recording.processes()) {
        text += format(process) + '\n';
    }
    for (std::size_t i = 0; i < recording.size(); ++i) {
        text += format(recording.line(i)) + '\n';
    }
    return text;
}

void expectSame(const Recording &a, const Recording &b)
{
    if (a.size() != b.size() || a.start() != b.start() || a.processes() != b.processes()) {
        fuzz::fault("written and read again, the recording has %zu lines instead of %zu, or another beginning", b.size(),
                    a.size());
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a.line(i) != b.line(i)) {
            fuzz::fault("written and read again, line %zu differs", a.lineNumber(i));
        }
    }
}

void checkLines(const Recording &recording)
{
    Anonymizer anonymizer;
    for (std::size_t i = 0; i < recording.size(); ++i) {
        const Line line = recording.line(i);
        expectSameAgain(line);
        const Line anonymized = anonymizer.anonymize(line);
        expectSameAgain(anonymized);
        if (const auto *exchange = std::get_if<Exchange>(&line)) {
            expectSameForm(*exchange, std::get<Exchange>(anonymized));
        }
    }
}

// ---- The uses of a recording ----

/// Connections without a request do not count.
std::size_t requestsOf(const Recording &recording)
{
    std::size_t requests = 0;
    for (std::size_t i = 0; i < recording.size(); ++i) {
        const Line line = recording.line(i);
        const auto *exchange = std::get_if<Exchange>(&line);
        requests += exchange != nullptr && exchange->kind == Kind::ask && !exchange->request.empty() ? 1 : 0;
    }
    return requests;
}

void checkComparison(const Recording &recording)
{
    static const kvosim::Plant plant = kvosim::parsePlant(kvosim::kBuiltInPlant, "plant");
    const std::size_t requests = requestsOf(recording);
    const kvosim::Comparison comparison = compare(recording, plant);
    if (comparison.total.requests() + comparison.incomplete != requests) {
        fuzz::fault("%zu of %zu requests are counted", comparison.total.requests() + comparison.incomplete, requests);
    }
    const std::string text = textOf(comparison);
    if (text.find_first_of(std::string_view("\0\r\x1B", 3)) != text.npos) {
        fuzz::fault("the comparison is not printable: %s", text.c_str());
    }
}

std::string requestAt(const Recording &recording, kvosim::LineIndex line)
{
    return kvosim::requestLineOf(std::get<Exchange>(recording.line(line))).value();
}

/// Each request is found where it was recorded, once and then again. A request that was not recorded differs from the nearest one.
void checkReplay(const Recording &recording)
{
    const kvosim::Contents contents = kvosim::contentsOf(recording);
    if (contents.requests.size() + contents.withoutLineEnd != requestsOf(recording)) {
        fuzz::fault("%zu requests with and %zu without a line end", contents.requests.size(), contents.withoutLineEnd);
    }
    kvosim::Script script(recording, contents.requests);
    kvosim::Unmatched unmatched;
    for (const kvosim::RecordedRequest &recorded : contents.requests) {
        const std::string request = requestAt(recording, recorded.line);
        const auto match = script.take(request);
        if (!match || match->isRepeated || match->isOutOfOrder || requestAt(recording, match->line) != request) {
            fuzz::fault("the replay does not find the request of line %zu", recording.lineNumber(recorded.line));
        }
        if (const std::string other = request + '!'; !script.knows(other)) {
            unmatched.add(other, false);
        }
    }
    if (script.unused() != 0) {
        fuzz::fault("%zu requests were not used", script.unused());
    }
    for (const kvosim::RecordedRequest &recorded : contents.requests) {
        if (!script.take(requestAt(recording, recorded.line))->isRepeated) {
            fuzz::fault("a request was used twice");
        }
    }
    for (const kvosim::UnmatchedRequest &request : unmatched.list(recording, script)) {
        if (request.nearest && (request.difference.empty() || request.difference.find('\n') != std::string::npos)) {
            fuzz::fault("the difference of \"%s\" is \"%s\"", request.request.c_str(), request.difference.c_str());
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    try {
        const Recording recording = Recording::read(text, "file");
        for (const auto &[number, process] : recording.processes()) {
            expectSameAgain(process);
        }
        checkLines(recording);
        checkComparison(recording);
        checkReplay(recording);
        expectSame(recording, Recording::read(writtenAgain(recording), "file"));
    } catch (const RecordingError &error) {
        expectUseful(error.what());
    }
    return 0;
}
