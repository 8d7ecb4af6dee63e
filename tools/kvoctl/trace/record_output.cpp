// Writes to the file at least once a second, so that little is lost if kvoctl is killed.
#include "kvoctl/trace/record_output.h"

#include <algorithm>
#include <chrono>
#include <poll.h>

namespace kvoctl {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kFlushInterval = 1s;

milliseconds since(steady_clock::time_point moment)
{
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - moment);
}

}  // namespace

RecordOutput::RecordOutput(ObservedQueue &queue, tools::recording::Writer &writer, Prepare prepare)
    : queue_(queue), writer_(writer), prepare_(std::move(prepare)), thread_([this](int /*abort*/) { write(); })
{
}

void RecordOutput::add(Observed observed)
{
    if (prepare_) {
        prepare_(observed);
    }
    if (const auto *note = std::get_if<Note>(&observed)) {
        writer_.add(*note);
        return;
    }
    if (!std::holds_alternative<ObservedExchange>(observed)) {
        return;
    }
    auto &[peer, exchange] = std::get<ObservedExchange>(observed);
    if (peer.pid != 0 || !peer.name.empty()) {
        exchange.process = writer_.numberOf(peer.pid, peer.name);
        programs_ = std::max(programs_, exchange.process);
    }
    written_ += writer_.add(exchange) ? 1 : 0;
}

void RecordOutput::write()
{
    auto flushed = steady_clock::now();
    while (!queue_.isFinished()) {
        pollfd ready{.fd = queue_.descriptor(), .events = POLLIN, .revents = 0};
        poll(&ready, 1, static_cast<int>(std::max(kFlushInterval - since(flushed), 0ms).count()));
        // Not longer than a flush may wait.
        std::optional<Observed> observed;
        while (since(flushed) < kFlushInterval && (observed = queue_.take())) {
            add(*std::move(observed));
        }
        if (since(flushed) >= kFlushInterval) {
            writer_.flush();
            flushed = steady_clock::now();
        }
        if (!writer_.fullReason().empty()) {
            queue_.discard();
            return;
        }
    }
    writer_.flush();
}

void RecordOutput::finish()
{
    queue_.close();
    thread_.finish(std::nullopt);
}

}  // namespace kvoctl
