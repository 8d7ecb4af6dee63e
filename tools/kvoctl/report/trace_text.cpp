#include "kvoctl/report/trace_text.h"

#include "common/recording/recording.h"
#include "kvoctl/output/display_text.h"
#include "kvoctl/trace/summary.h"
#include "kvoctl/trace/trace_line.h"

#include <sstream>

namespace kvoctl::reporting {

namespace {

constexpr std::size_t kSummaryWidth = 80;

Peer peerOf(const tools::recording::Recording &recording, unsigned number)
{
    const auto found = recording.processes().find(number);
    return found == recording.processes().end() ? Peer{} : Peer{static_cast<pid_t>(found->second.pid), found->second.name};
}

}  // namespace

std::string traceText(const std::string &recording, const std::string &name)
{
    const auto all = tools::recording::Recording::read(recording, name);
    TraceLines lines(all.start());
    kvoctl::Summary summary;
    Microseconds last{};
    std::ostringstream text;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const tools::recording::Line line = all.line(i);
        if (const auto *note = std::get_if<Note>(&line)) {
            last = std::max(last, note->at);
            text << clockTime(all.start() + note->at) << " note: " << note->text << '\n';
            continue;
        }
        const auto &exchange = std::get<Exchange>(line);
        const Entry entry = entryOf(peerOf(all, exchange.process), exchange);
        summary.add(entry);
        last = std::max(last, exchange.at);
        text << lines.format(entry, {kUnlimited}) << '\n';
    }
    text << '\n';
    summary.write(text, all.start(), last, 0, "No program used /tmp/kvo_hws/cmd_sock meanwhile.", {kSummaryWidth});
    return text.str();
}

}  // namespace kvoctl::reporting
