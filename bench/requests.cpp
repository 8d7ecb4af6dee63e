// Compares kvo::Requests with a bare handover to a thread, and measures a loop whose service is silent.
#include "common/command_socket.h"
#include "subjects.h"
#include "support/expect.h"
#include "support/report.h"
#include "support/rounds.h"
#include "support/service_process.h"

#include <kvo_hws/kvo_hws.hpp>
#include <kvo_hws/service.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

// ---- From submission to completion ----

constexpr int kRounds = 61;
constexpr int kHandovers = 500;  // of a sample
constexpr double kGoal = 1.5;

/// The least that hands a function to a thread and its result back to a loop: no deadlines, no bound, no cancelling, one request
/// at a time, and nothing on the heap.
class BareHandover {
public:
    using Function = int (*)();

    BareHandover() : signal_(eventfd(0, EFD_CLOEXEC)), worker_([this] { work(); }) {}
    BareHandover(const BareHandover &) = delete;
    BareHandover &operator=(const BareHandover &) = delete;
    ~BareHandover()
    {
        submit(nullptr);
        worker_.join();
        close(signal_);
    }

    void submit(Function function)
    {
        {
            const std::lock_guard lock(mutex_);
            function_ = function;
            submitted_ = true;
        }
        wake_.notify_one();
    }

    [[nodiscard]] int descriptor() const { return signal_; }

    int result()
    {
        uint64_t count = 0;
        expect(read(signal_, &count, sizeof count) == sizeof count, "cannot read the eventfd");
        const std::lock_guard lock(mutex_);
        return result_;
    }

private:
    void work()
    {
        std::unique_lock lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return submitted_; });
            submitted_ = false;
            const Function function = function_;
            if (function == nullptr) {
                return;
            }
            lock.unlock();
            const int result = function();
            lock.lock();
            result_ = result;
            const uint64_t one = 1;
            expect(write(signal_, &one, sizeof one) == sizeof one, "cannot write to the eventfd");
        }
    }

    int signal_;
    std::mutex mutex_;
    std::condition_variable wake_;
    Function function_ = nullptr;
    bool submitted_ = false;
    int result_ = 0;
    std::thread worker_;
};

void waitFor(int descriptor)
{
    pollfd waiting{.fd = descriptor, .events = POLLIN, .revents = 0};
    expect(poll(&waiting, 1, 10'000) == 1, "no completion after 10 s");
}

void compareHandovers(const std::string &name, BareHandover::Function function)
{
    kvo::Requests requests = kvo::Requests::create().value();
    BareHandover bare;
    const auto times =
        takeRounds(kRounds, {timed(kHandovers,
                                   [&] {
                                       bool done = false;
                                       const auto id = requests.submit(
                                           function, [&done](kvo::Result<int> result) { done = result && *result == 1; });
                                       expect(id.has_value(), "submit failed");
                                       while (requests.pending() > 0) {
                                           waitFor(requests.descriptor());
                                           requests.dispatch();
                                       }
                                       expect(done, "the request failed");
                                   }),
                             timed(kHandovers, [&] {
                                 bare.submit(function);
                                 waitFor(bare.descriptor());
                                 expect(bare.result() == 1, "the request failed");
                             })});
    printRow("submit to completion, " + name, timingOf(times[0]), "bare handover", timingOf(times[1]));
    printRatio("... / bare handover", ratioOfPairs(times[0], times[1]), kGoal);
}

int nothing() { return 1; }

// ---- A silent service ----

/// Listens at the command socket, and accepts and answers nothing. The destructor ends the exchanges.
class SilentService {
public:
    SilentService() : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        unlink(tools::kCommandSocket);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, tools::kCommandSocket, sizeof address.sun_path - 1);
        expect(bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 && listen(listener_, 64) == 0,
               "cannot listen at the command socket");
    }
    SilentService(const SilentService &) = delete;
    SilentService &operator=(const SilentService &) = delete;
    ~SilentService()
    {
        close(listener_);
        unlink(tools::kCommandSocket);
    }

private:
    int listener_;
};

/// Keeps requests pending whose deadlines pass.
class Load {
public:
    Load() : requests_(kvo::Requests::create().value())
    {
        for (int number = 0; number < kPending; ++number) {
            submit();
        }
    }

    [[nodiscard]] int descriptor() const { return requests_.descriptor(); }
    void dispatch() { requests_.dispatch(); }
    [[nodiscard]] int timeouts() const { return timeouts_; }

private:
    static constexpr int kPending = 10;

    void submit()
    {
        const auto id = requests_.submit([] { return KVO_HWS_isInitComplete(); },
                                         [this](const kvo::Result<int> &result) {
                                             expect(!result && result.error().meaning() == kvo::Errc::timeout, "no timeout");
                                             ++timeouts_;
                                             submit();
                                         },
                                         50ms);
        expect(id.has_value(), "submit failed");
    }

    int timeouts_ = 0;
    kvo::Requests requests_;
};

/// Runs the calling thread, and the threads that it starts, before those of other programs, which would hide what is measured.
class RealTime {
public:
    RealTime()
    {
        const sched_param lowest{.sched_priority = sched_get_priority_min(SCHED_FIFO)};
        permitted_ = pthread_setschedparam(pthread_self(), SCHED_FIFO, &lowest) == 0;
    }
    RealTime(const RealTime &) = delete;
    RealTime &operator=(const RealTime &) = delete;
    ~RealTime()
    {
        const sched_param usual{};
        pthread_setschedparam(pthread_self(), SCHED_OTHER, &usual);
    }

    [[nodiscard]] bool isPermitted() const { return permitted_; }

private:
    bool permitted_ = false;
};

constexpr int kLoopRounds = 20;
constexpr int kTicks = 2000;  // of a sample
constexpr auto kTick = 1ms;

/// Runs a loop with a tick every millisecond. Returns by how much each tick was late, in ms.
std::vector<double> runLoop(Load *load)
{
    const int clock = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    const itimerspec period{.it_interval = {0, 1'000'000}, .it_value = {0, 1'000'000}};
    auto due = Clock::now() + kTick;
    expect(timerfd_settime(clock, 0, &period, nullptr) == 0, "cannot set the clock of the loop");
    std::vector<double> late;
    while (late.size() < kTicks) {
        pollfd waiting[] = {{.fd = clock, .events = POLLIN, .revents = 0},
                            {.fd = load != nullptr ? load->descriptor() : -1, .events = POLLIN, .revents = 0}};
        expect(poll(waiting, 2, 1000) > 0, "the loop has no ticks");
        if (waiting[0].revents != 0) {
            uint64_t count = 0;
            expect(read(clock, &count, sizeof count) == sizeof count, "cannot read the clock of the loop");
            const auto now = Clock::now();
            for (; count > 0; --count, due += kTick) {
                late.push_back(Milliseconds(now - due).count());
            }
        }
        if (waiting[1].revents != 0) {
            load->dispatch();
        }
    }
    close(clock);
    return late;
}

double percentile(std::vector<double> values, double part)
{
    std::ranges::sort(values);
    return values[static_cast<std::size_t>(std::ceil(part * static_cast<double>(values.size()))) - 1];
}

std::string milliseconds(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3f ms", value);
    return text;
}

void printInformation(const std::string &what, const std::string &figure)
{
    std::printf("%-38s %s\n", what.c_str(), figure.c_str());
}

void compareLoops()
{
    constexpr double kPart = 0.999;
    const RealTime realTime;
    std::vector<double> with;
    std::vector<double> without;
    int timeouts = 0;
    const auto loaded = [&] {
        std::optional<SilentService> service(std::in_place);
        Load load;
        const auto late = runLoop(&load);
        with.insert(with.end(), late.begin(), late.end());
        timeouts += load.timeouts();
        return percentile(late, kPart);
    };
    const auto alone = [&] {
        const auto late = runLoop(nullptr);
        without.insert(without.end(), late.begin(), late.end());
        return percentile(late, kPart);
    };
    const auto percentiles = takeRounds(kLoopRounds, {loaded, alone});
    expect(timeouts > 0, "no request ran out of time");
    std::vector<double> differences(kLoopRounds);
    std::ranges::transform(percentiles[0], percentiles[1], differences.begin(), std::minus());
    std::ranges::sort(differences);
    const double difference = percentile(with, kPart) - percentile(without, kPart);
    printInformation("99.9 % of the ticks are less late than",
                     milliseconds(percentile(without, kPart)) + " without the library, " +
                         (realTime.isPermitted() ? "with" : "but without") + " real-time priority");
    printFigure("... with a silent service", milliseconds(percentile(with, kPart)) + ", difference " + milliseconds(difference),
                "<= 1 ms", difference <= 1);
    printInformation("... difference of a round", "median " + milliseconds(differences[kLoopRounds / 2]) + ", 95 % interval " +
                                                      milliseconds(differences[5]) + " to " + milliseconds(differences[14]) +
                                                      "; " + std::to_string(timeouts) + " requests ran out of time");
}

void measureDeadlines()
{
    constexpr int kRequests = 10;
    constexpr auto kDeadline = 500ms;
    constexpr double kLatest = 550;
    std::vector<double> times;
    for (int round = 0; round < kLoopRounds; ++round) {
        std::optional<SilentService> service(std::in_place);
        kvo::Requests requests = kvo::Requests::create().value();
        for (int number = 0; number < kRequests; ++number) {
            const auto id = requests.submit([] { return KVO_HWS_isInitComplete(); },
                                            [&times, begin = Clock::now()](const kvo::Result<int> &result) {
                                                expect(!result && result.error().meaning() == kvo::Errc::timeout, "no timeout");
                                                times.push_back(Milliseconds(Clock::now() - begin).count());
                                            },
                                            kDeadline);
            expect(id.has_value(), "submit failed");
        }
        while (requests.pending() > 0) {
            waitFor(requests.descriptor());
            requests.dispatch();
        }
    }
    const auto [first, last] = std::ranges::minmax(times);
    printFigure(std::to_string(kRequests) + " requests with deadlines of 500 ms",
                milliseconds(first) + " to " + milliseconds(last) + ", median " + milliseconds(percentile(times, 0.5)),
                "500 to 550 ms", first >= 500 && last <= kLatest);
}

}  // namespace

void measureRequests()
{
    printHeading("Requests and the event loop", "Requests");
    {
        const ServiceProcess service(ServiceProcess::Replies{{"isInitComplete", "yes"}});
        compareHandovers("one request", [] { return KVO_HWS_isInitComplete(); });
        compareHandovers("no request", nothing);
    }
    compareLoops();
    measureDeadlines();
}

}  // namespace bench
