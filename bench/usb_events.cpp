// Compares the library's server of USB events with the baseline's. Each server runs in a separate process for the whole run,
// and both serve the same senders, alternately.
#include "baseline/baseline.h"
#include "subjects.h"
#include "support/child_process.h"
#include "support/expect.h"
#include "support/processor_time.h"
#include "support/report.h"
#include "support/resource_usage.h"
#include "support/service_process.h"

#include <kvo_hws/usbevents.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <exception>
#include <latch>
#include <new>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = 31;
// A server closes a connection 100 ms after its answer: for most of a sample, connections open and close at the same rate.
constexpr auto kSampleLength = 400ms;
constexpr auto kTimeout = 10s;
constexpr double kLatencyGoal = 1.03;
constexpr double kRateGoal = 0.97;

constexpr const char *kLibraryPath = "/tmp/kvo_hws/usb_sock";
constexpr const char *kBaselinePath = "/tmp/kvo_hws/own_sock";

/// An event as the daemon sends it.
std::string eventLine()
{
    std::string line = "newUSBdevice*192.168.214.17*usb1*1-1.4*SanDisk*8.02*Storage Media*Cruzer Edge*"
                       "ABCDEF01*0000002A*00000000*0781*556B*";
    for (int byte = 0; byte < 64; ++byte) {
        line += "C0 ";
    }
    return line + "*\n";
}

// ---- The servers ----

/// The events that a server's callback received, in memory shared with this process.
struct Tally {
    std::atomic<bool> active;
    std::atomic<uint64_t> events;
    UsbEventV2 first;
};

Tally *tallyOfThisProcess = nullptr;

int32_t countEvent(UsbEventV2 *event)
{
    if (event->code == USB_EVENT_ACTIVATED) {
        tallyOfThisProcess->active = true;
    }
    if (event->code == USB_EVENT_NEW_DEVICE && tallyOfThisProcess->events.fetch_add(1) == 0) {
        tallyOfThisProcess->first = *event;
    }
    return 0;
}

void serveWithLibrary()
{
    expect(KVO_HWS_activateUSBEventsV2(countEvent) == 1, "activateUSBEventsV2 failed");
    for (;;) {
        pause();
    }
}

void serveBaseline() { baseline::serveUsbEvents(kBaselinePath, countEvent); }

template <class Condition>
bool eventually(Condition condition)
{
    const auto deadline = Clock::now() + kTimeout;
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

class SharedTally {
public:
    SharedTally()
    {
        void *const memory = mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        expect(memory != MAP_FAILED, "cannot allocate shared memory");
        tally_ = new (memory) Tally{};
    }
    SharedTally(const SharedTally &) = delete;
    SharedTally &operator=(const SharedTally &) = delete;
    ~SharedTally() { munmap(tally_, sizeof(Tally)); }

    Tally *operator->() const { return tally_; }
    Tally *get() const { return tally_; }

private:
    Tally *tally_;
};

class EventServer {
public:
    EventServer(const char *path, void (*serve)())
        : path_(path), process_([this, serve] {
              tallyOfThisProcess = tally_.get();
              serve();
          })
    {
        expect(eventually([this] { return tally_->active.load(); }), "a server does not listen");
        std::this_thread::sleep_for(kSampleLength);  // threads that only prepare the server have ended before this point
        initialUsage_ = resourceUsage();
    }

    [[nodiscard]] const char *path() const { return path_; }
    [[nodiscard]] const UsbEventV2 &firstEvent() const { return tally_->first; }
    [[nodiscard]] const ResourceUsage &initialUsage() const { return initialUsage_; }

    /// Checks that no event was lost, and waits until the last connections are closed.
    void settle(uint64_t sent)
    {
        sent_ += sent;
        expect(tally_->events.load() == sent_, "the callback received more or fewer events than were sent");
        expect(eventually([this] { return resourceUsage().threads == initialUsage_.threads; }),
               "threads of a server do not end");
    }

    [[nodiscard]] uint64_t sent() const { return sent_; }

    [[nodiscard]] Seconds processorTime() const { return processorTimeOf(process_); }

    [[nodiscard]] ResourceUsage resourceUsage() const { return resourceUsageOf(process_); }

private:
    const char *path_;
    SharedTally tally_;
    ChildProcess process_;
    ResourceUsage initialUsage_{};
    uint64_t sent_ = 0;
};

// ---- The senders ----

sockaddr_un addressOf(const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path);
    return address;
}

/// Returns the time from the connect to the answer in nanoseconds.
double sendEvent(const sockaddr_un &address, const std::string &line)
{
    const auto begin = Clock::now();
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    char answer[64];
    const bool answered = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
                          send(fd, line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size()) &&
                          recv(fd, answer, sizeof answer, 0) == 3 && std::memcmp(answer, "ok\n", 3) == 0;
    const std::chrono::duration<double, std::nano> latency = Clock::now() - begin;
    close(fd);
    expect(answered, "an event was not answered with ok");
    return latency.count();
}

struct Sample {
    double medianLatency;    // ns
    double rate;             // events per second
    double rateByProcessor;  // events per second of both processes' processor time, until the last connection is closed
};

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

/// Compares the whole records that both servers pass on for one event, before they are timed.
void expectSameRecord(EventServer &library, EventServer &baseline)
{
    for (EventServer *const server : {&library, &baseline}) {
        sendEvent(addressOf(server->path()), eventLine());
        server->settle(1);
    }
    expect(std::memcmp(&library.firstEvent(), &baseline.firstEvent(), sizeof(UsbEventV2)) == 0,
           "the servers read an event differently");
}

/// One sender of a sample: its latencies or its failure.
struct Sender {
    std::vector<double> latencies;
    std::exception_ptr failure;

    void send(const char *path, std::latch &start)
    {
        static const std::string line = eventLine();
        const sockaddr_un address = addressOf(path);
        start.arrive_and_wait();
        try {
            for (const auto end = Clock::now() + kSampleLength; Clock::now() < end;) {
                latencies.push_back(sendEvent(address, line));
            }
        } catch (...) {
            failure = std::current_exception();
        }
    }
};

Sample takeSample(EventServer &server, int senders)
{
    const Seconds serverBefore = server.processorTime();
    const Seconds ownBefore = processorTimeOf(CLOCK_PROCESS_CPUTIME_ID);
    std::vector<Sender> all(static_cast<std::size_t>(senders));
    std::latch start(senders + 1);
    std::vector<std::jthread> threads;
    for (Sender &sender : all) {
        threads.emplace_back([&sender, &server, &start] { sender.send(server.path(), start); });
    }
    start.arrive_and_wait();
    const auto begin = Clock::now();
    threads.clear();  // joins them
    const Seconds length = Clock::now() - begin;
    const Seconds own = processorTimeOf(CLOCK_PROCESS_CPUTIME_ID) - ownBefore;

    std::vector<double> latencies;
    for (const Sender &sender : all) {
        if (sender.failure) {
            std::rethrow_exception(sender.failure);
        }
        latencies.insert(latencies.end(), sender.latencies.begin(), sender.latencies.end());
    }
    server.settle(latencies.size());
    const Seconds busy = own + server.processorTime() - serverBefore;
    const auto events = static_cast<double>(latencies.size());
    return {medianOf(std::move(latencies)), events / length.count(), events / busy.count()};
}

// ---- The comparison ----

struct Figures {
    std::vector<double> latencies;
    std::vector<double> rates;
    std::vector<double> ratesByProcessor;

    void add(const Sample &sample)
    {
        latencies.push_back(sample.medianLatency);
        rates.push_back(sample.rate);
        ratesByProcessor.push_back(sample.rateByProcessor);
    }
    [[nodiscard]] Timing latency() const { return {medianOf(latencies), std::ranges::min(latencies)}; }
};

void compare(EventServer &library, EventServer &baseline, int senders)
{
    Figures figures[2];
    EventServer *const servers[] = {&library, &baseline};
    std::mt19937 random(static_cast<unsigned>(senders));
    for (int round = 0; round < kRounds; ++round) {
        const unsigned first = random() % 2;
        for (const unsigned which : {first, 1 - first}) {
            figures[which].add(takeSample(*servers[which], senders));
        }
    }
    const std::string suffix = ", " + std::to_string(senders) + (senders == 1 ? " sender" : " senders");
    printRow("answer to an event" + suffix, figures[0].latency(), "baseline", figures[1].latency(), kLatencyGoal);
    printRates("events per second" + suffix, medianOf(figures[0].rates), "baseline", medianOf(figures[1].rates));
    printRates("... per second of CPU time" + suffix, medianOf(figures[0].ratesByProcessor), "baseline",
               medianOf(figures[1].ratesByProcessor), kRateGoal);
}

void printResourceUsage(const std::string &name, const EventServer &server)
{
    const ResourceUsage &before = server.initialUsage();
    const ResourceUsage after = server.resourceUsage();
    const auto change = [](uint64_t from, uint64_t to) { return std::to_string(from) + " -> " + std::to_string(to); };
    printFigure(name + " after " + std::to_string(server.sent()) + " events",
                "descriptors " + change(before.descriptors, after.descriptors) + ", threads " +
                    change(before.threads, after.threads) + ", kB resident " +
                    change(before.residentKilobytes, after.residentKilobytes),
                "unchanged", before.descriptors == after.descriptors && before.threads == after.threads);
}

/// A server keeps each connection for 100 ms, so it has all connections of the last 100 ms open.
void allowManyDescriptors()
{
    rlimit limit{};
    expect(getrlimit(RLIMIT_NOFILE, &limit) == 0, "getrlimit failed");
    limit.rlim_cur = limit.rlim_max;
    expect(setrlimit(RLIMIT_NOFILE, &limit) == 0, "setrlimit failed");
}

}  // namespace

void measureUsbEvents()
{
    allowManyDescriptors();
    const ServiceProcess service(ServiceProcess::Replies{{"isInitComplete", "yes"}, {"activateUSBEvents", "ok"}});
    EventServer library(kLibraryPath, serveWithLibrary);
    EventServer baseline(kBaselinePath, serveBaseline);
    printHeading("USB events");
    expectSameRecord(library, baseline);
    for (const int senders : {1, 8, 64}) {
        compare(library, baseline, senders);
    }
    printResourceUsage("library", library);
    printResourceUsage("baseline", baseline);
}

}  // namespace bench
