// Waits for the queue, the output and the order to end with one poll.
#include "kvoctl/trace/trace_output.h"

#include <array>
#include <chrono>
#include <poll.h>

namespace kvoctl {

namespace {
constexpr std::chrono::seconds kLastChance{1};
}

TraceOutput::TraceOutput(ObservedQueue &queue, Format format, int descriptor)
    : queue_(queue), format_(std::move(format)), output_(descriptor), thread_([this](int abort) { write(abort); })
{
}

/// One line at a time: everything else waits in the queue, which is limited.
void TraceOutput::fill()
{
    while (output_.isEmpty()) {
        const std::optional<Observed> observed = queue_.take();
        if (!observed) {
            return;
        }
        const auto *text = std::get_if<std::string>(&*observed);
        if (const std::optional<std::string> line = text != nullptr ? *text : format_(*observed)) {
            output_.add(*line);
        }
    }
}

void TraceOutput::write(int abort)
{
    for (;;) {
        fill();
        if (output_.isEmpty() && queue_.isFinished()) {
            return;
        }
        std::array<pollfd, 3> events{
            pollfd{.fd = abort, .events = POLLIN, .revents = 0}, output_.pollRequest(),
            pollfd{.fd = output_.isEmpty() ? queue_.descriptor() : -1, .events = POLLIN, .revents = 0}};
        poll(events.data(), events.size(), -1);
        if (events[0].revents != 0) {
            lost_ = queue_.discard() + (output_.isEmpty() ? 0 : 1);
            return;
        }
        output_.handle(events[1]);
        if (output_.hasEnded()) {
            queue_.discard();
            return;
        }
    }
}

uint64_t TraceOutput::finish(const std::optional<std::string> &lastLine)
{
    if (lastLine) {
        queue_.put(*lastLine);
    }
    queue_.close();
    thread_.finish(kLastChance);
    return queue_.dropped() + lost_;
}

}  // namespace kvoctl
