// Counts in maps of limited size: a program may send any text as a request.
#include "kvoctl/trace/summary.h"

#include "common/join.h"
#include "kvoctl/output/display_text.h"

#include <algorithm>

namespace kvoctl {

namespace {

using Column = Table::Column;

constexpr std::size_t kMostKeys = 500;
constexpr std::size_t kLongestKey = 100;
constexpr std::size_t kSlowest = 3;
constexpr std::size_t kMostFailures = 10;
/// Even in a file, the slowest requests are only examples.
constexpr std::size_t kWidestLine = 120;
constexpr const char *kOthers = "(others)";
constexpr const char *kNothing = "(nothing sent)";

/// The entry of @p key, or that of all keys that came too late.
template <class Value>
Value &countOf(std::map<std::string, Value> &counts, const std::string &key)
{
    return counts.contains(key) || counts.size() < kMostKeys ? counts[key] : counts[kOthers];
}

std::string labelOf(const Entry &entry)
{
    std::string command = entry.requestBytes == 0 ? kNothing : commandOf(entry).substr(0, kLongestKey);
    switch (entry.kind) {
    case Kind::ask: return command;
    case Kind::usb: return command + " (usb)";
    case Kind::event: return command + " (event)";
    }
    return command;
}

std::string reasonOf(const Entry &entry)
{
    return entry.outcome == Outcome::refused && !entry.reply.empty() ? entry.reply.substr(0, kLongestKey)
           : entry.outcome == Outcome::refused                       ? "(empty)"
                                                                     : std::string("(") + wordOf(entry.outcome) + ')';
}

std::string programName(const Entry &entry)
{
    return entry.peer.name.empty() ? entry.peer.pid == 0 ? programOf(entry) : "(ended)" : entry.peer.name;
}

double seconds(Microseconds time) { return static_cast<double>(time.count()) / 1'000'000; }

double milliseconds(Microseconds time) { return static_cast<double>(time.count()) / 1000; }

template <class Key, class Value>
std::vector<std::pair<Key, Value>> asList(const std::map<Key, Value> &map)
{
    return {map.begin(), map.end()};
}

}  // namespace

std::string amountOf(uint64_t count, const std::string &word)
{
    return std::to_string(count) + ' ' + word + (count == 1 ? "" : "s");
}

void Totals::add(const Entry &entry)
{
    if (entry.outcome == Outcome::listens) {
        return;
    }
    switch (entry.kind) {
    case Kind::ask: ++requests; break;
    case Kind::usb: ++usbEvents; break;
    case Kind::event: ++embeddedEvents; break;
    }
    bytes += entry.requestBytes + entry.replyBytes;
}

std::string Totals::text() const
{
    std::string text = amountOf(requests, "request");
    text += usbEvents == 0 ? "" : ", " + amountOf(usbEvents, "USB event");
    text += embeddedEvents == 0 ? "" : ", " + amountOf(embeddedEvents, "embedded event");
    return text;
}

Document Totals::document() const
{
    return {{"requests", requests}, {"usb_events", usbEvents}, {"embedded_events", embeddedEvents}, {"bytes", bytes}};
}

void Summary::add(const Entry &entry)
{
    if (entry.outcome == Outcome::listens) {
        return;
    }
    totals_.add(entry);
    const bool failed = isFailure(entry.outcome);
    failed_ += failed ? 1 : 0;
    const std::string label = labelOf(entry);
    for (Row *row : {&countOf(commands_, label), &countOf(programs_, programName(entry))}) {
        ++row->count;
        row->failed += failed ? 1 : 0;
        row->total += entry.duration;
        row->slowest = std::max(row->slowest, entry.duration);
        row->hasTimes = entry.kind != Kind::event;
    }
    if (failed) {
        const std::pair key(label, reasonOf(entry));
        ++(failures_.contains(key) || failures_.size() < kMostKeys ? failures_[key] : failures_[{kOthers, ""}]);
    }
    if (entry.kind == Kind::event || (slowest_.size() == kSlowest && entry.duration <= slowest_.back().duration)) {
        return;
    }
    const auto place =
        std::find_if(slowest_.begin(), slowest_.end(), [&](const Entry &other) { return entry.duration > other.duration; });
    slowest_.insert(place, entry);
    slowest_.resize(std::min(slowest_.size(), kSlowest));
}

/// The most frequent first.
std::vector<std::pair<std::string, Summary::Row>> Summary::sorted(const Rows &rows)
{
    auto list = asList(rows);
    std::stable_sort(list.begin(), list.end(),
                     [](const auto &left, const auto &right) { return left.second.count > right.second.count; });
    return list;
}

void Summary::writeCommands(std::ostream &out, const Layout &layout) const
{
    Table table({Column::elastic, Column::number, Column::number, Column::number, Column::number},
                {"COMMAND", "COUNT", "FAILED", "MEAN", "SLOWEST"});
    for (const auto &[command, row] : sorted(commands_)) {
        const Cell failed(std::to_string(row.failed), row.failed > 0 ? Colour::bad : Colour::none);
        const auto text = [&row = row](Microseconds duration) { return row.hasTimes ? durationText(duration) : std::string(); };
        table.add(
            {command, std::to_string(row.count), failed, text(row.total / static_cast<int64_t>(row.count)), text(row.slowest)});
    }
    table.write(out, layout);
}

void Summary::writeFailures(std::ostream &out, const Layout &layout) const
{
    auto rows = asList(failures_);
    std::stable_sort(rows.begin(), rows.end(), [](const auto &left, const auto &right) { return left.second > right.second; });
    Table table({Column::number, Column::text, Column::elastic}, {"FAILED", "COMMAND", "REPLY"});
    for (std::size_t i = 0; i < std::min(rows.size(), kMostFailures); ++i) {
        table.add({std::to_string(rows[i].second), rows[i].first.first, rows[i].first.second});
    }
    table.write(out, layout);
    if (rows.size() > kMostFailures) {
        out << "and " << rows.size() - kMostFailures << " more kinds of failures; see them with --failures\n";
    }
}

void Summary::writePrograms(std::ostream &out, const Layout &layout) const
{
    Table table({Column::elastic, Column::number, Column::number}, {"PROGRAM", "COUNT", "FAILED"});
    for (const auto &[name, row] : sorted(programs_)) {
        table.add(
            {name, std::to_string(row.count), Cell(std::to_string(row.failed), row.failed > 0 ? Colour::bad : Colour::none)});
    }
    table.write(out, layout);
}

void Summary::write(std::ostream &out, StartTime start, Microseconds time, uint64_t dropped, const std::string &whyNothing,
                    const Layout &layout) const
{
    const std::string otherText = others_ == 0 ? "" : "; the filters left out " + std::to_string(others_) + " more";
    if (!hasSeen()) {
        out << "no request was seen in " << secondsText(time) << otherText << '\n';
        if (others_ == 0) {
            out << whyNothing << '\n';
        }
        return;
    }
    out << totals_.text() << " in " << secondsText(time) << ", " << failed_ << " failed" << otherText << '\n';
    if (dropped > 0) {
        out << amountOf(dropped, "exchange") << (dropped == 1 ? " was" : " were")
            << " not shown: the reader of the output was too slow\n";
    }
    out << '\n';
    writeCommands(out, layout);
    if (failed_ > 0) {
        out << '\n';
        writeFailures(out, layout);
    }
    out << '\n';
    writePrograms(out, layout);
    if (!slowest_.empty()) {
        out << "\nSlowest:\n";
        TraceLines lines(start);
        for (const Entry &entry : slowest_) {
            lines.format(entry, layout);  // so that the first line is aligned with the others
        }
        for (const Entry &entry : slowest_) {
            out << lines.format(entry, {std::min(layout.width, kWidestLine), layout.usesColour}) << '\n';
        }
    }
}

Document Summary::document(StartTime start, Microseconds time, uint64_t dropped) const
{
    Document commands = Document::array();
    for (const auto &[command, row] : sorted(commands_)) {
        const auto timeOf = [&row = row](Microseconds duration) {
            return row.hasTimes ? Document(milliseconds(duration)) : Document(nullptr);
        };
        commands.push_back({{"command", command},
                            {"count", row.count},
                            {"failed", row.failed},
                            {"mean_ms", timeOf(row.total / static_cast<int64_t>(row.count))},
                            {"slowest_ms", timeOf(row.slowest)}});
    }
    Document failures = Document::array();
    for (const auto &[key, count] : failures_) {
        failures.push_back({{"command", key.first}, {"reply", key.second}, {"count", count}});
    }
    Document programs = Document::array();
    for (const auto &[name, row] : sorted(programs_)) {
        programs.push_back({{"program", name}, {"count", row.count}, {"failed", row.failed}});
    }
    Document slowest = Document::array();
    for (const Entry &entry : slowest_) {
        slowest.push_back({{"time", fullTime(start + entry.at)},
                           {"pid", entry.peer.pid == 0 ? Document(nullptr) : Document(entry.peer.pid)},
                           {"program", entry.peer.name.empty() ? Document(nullptr) : Document(entry.peer.name)},
                           {"request", entry.request},
                           {"duration_ms", milliseconds(entry.duration)}});
    }
    Document document{{"kind", "summary"}, {"start", fullTime(start)}, {"seconds", seconds(time)}};
    document.update(totals_.document());
    document.update({{"failed", failed_}, {"filtered_out", others_}, {"not_shown", dropped}});
    document["commands"] = std::move(commands);
    document["failures"] = std::move(failures);
    document["programs"] = std::move(programs);
    document["slowest"] = std::move(slowest);
    return document;
}

}  // namespace kvoctl
