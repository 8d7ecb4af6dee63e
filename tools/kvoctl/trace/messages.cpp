// Messages wait in a queue like the lines of a trace.
#include "kvoctl/trace/messages.h"

#include "kvoctl/output/display_text.h"
#include "kvoctl/trace/summary.h"

#include <unistd.h>
#include <utility>

namespace kvoctl {

namespace {
constexpr std::size_t kQueueSize = 64UL * 1024;
}

Messages::Messages(std::string prefix, tools::recording::StartTime start)
    : prefix_(std::move(prefix)), start_(start), queue_(kQueueSize)
{
}

void Messages::begin()
{
    const auto format = [this](const Observed &observed) -> std::optional<std::string> {
        const auto *note = std::get_if<Note>(&observed);
        return note == nullptr
                   ? std::nullopt
                   : std::optional(prefix_ + ": " + displayText(clockTime(start_ + note->at) + ' ' + note->text).text);
    };
    output_.emplace(queue_, format, STDERR_FILENO);
}

void Messages::add(const std::string &text) { queue_.put(prefix_ + ": " + displayText(text).text); }

void Messages::finish()
{
    if (const uint64_t dropped = queue_.droppedNotes()) {
        add(amountOf(dropped, "message") + " not shown: the reader of standard error was too slow");
    }
    output_->finish();
}

}  // namespace kvoctl
