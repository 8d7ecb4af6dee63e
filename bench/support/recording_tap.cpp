#include "support/recording_tap.h"

#include "common/command_socket.h"
#include "common/recording/recording.h"
#include "common/recording/writer.h"
#include "common/tap/tap.h"
#include "support/expect.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

using namespace std::chrono_literals;

namespace bench {

namespace {

using tools::recording::Exchange;
using tools::recording::Microseconds;
using tools::recording::Note;
using tools::recording::Writer;
using tools::tap::fileAt;
using tools::tap::Peer;

/// Passes the exchanges to a thread that writes them, at least once a second.
class Recorder : public tools::tap::Observer {
public:
    explicit Recorder(const std::filesystem::path &path)
        : writer_(path, {.force = true, .maxSize = {}},
                  std::chrono::time_point_cast<Microseconds>(std::chrono::system_clock::now()))
    {
        std::thread([this] { write(); }).detach();  // it runs until the process ends
    }

    void onExchange(const Peer &peer, Exchange exchange) override
    {
        std::unique_lock lock(mutex_);
        if (waiting_.size() == kMostWaiting) {
            return;  // expectExchanges() finds that it is missing
        }
        waiting_.push_back({peer, std::move(exchange)});
        const bool isFirst = waiting_.size() == 1;
        lock.unlock();
        if (isFirst) {
            ready_.notify_one();
        }
    }
    void onNote(Microseconds /*at*/, const std::string & /*text*/) override {}
    void onGivenUp(const std::string &reason) override { throw std::runtime_error(reason); }

private:
    struct Observed {
        Peer peer;
        Exchange exchange;
    };
    static constexpr std::size_t kMostWaiting = 10'000;
    static constexpr auto kFlushInterval = 1s;

    [[noreturn]] void write()
    {
        for (auto flushed = tools::Clock::now();;) {
            for (Observed &observed : take()) {
                observed.exchange.process = writer_.numberOf(observed.peer.pid, observed.peer.name);
                writer_.add(std::move(observed.exchange));
            }
            if (tools::Clock::now() - flushed >= kFlushInterval) {
                writer_.flush();
                flushed = tools::Clock::now();
            }
        }
    }

    std::deque<Observed> take()
    {
        std::unique_lock lock(mutex_);
        ready_.wait_for(lock, kFlushInterval, [this] { return !waiting_.empty(); });
        return std::exchange(waiting_, {});
    }

    Writer writer_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Observed> waiting_;
};

void runTap(const std::filesystem::path &recording)
{
    tools::EventLoop loop;
    Recorder recorder(recording);
    const auto tap = tools::tap::attach(loop, recorder, tools::Clock::now());
    loop.run();
}

/// Waits for up to 10 s.
template <class Condition>
bool eventually(Condition condition)
{
    for (const auto until = tools::Clock::now() + 10s; !condition();) {
        if (tools::Clock::now() > until) {
            return false;
        }
        std::this_thread::sleep_for(20ms);
    }
    return true;
}

}  // namespace

RecordingTap::RecordingTap(std::filesystem::path recording)
    : recording_(std::move(recording)), service_(fileAt(tools::kCommandSocket))
{
    process_.emplace([this] { runTap(recording_); });
    expect(eventually([this] { return fileAt(tools::kCommandSocket) != service_; }), "the tap has not taken its place");
}

RecordingTap::~RecordingTap()
{
    process_.reset();
    eventually([this] { return fileAt(tools::kCommandSocket) == service_; });
}

void RecordingTap::expectExchanges(std::size_t count) const
{
    expect(eventually([&] { return tools::recording::Recording::load(recording_).size() == count; }),
           "the recording does not contain all exchanges");
}

}  // namespace bench
