// Compares the remote agent with two baseline agents. Each agent runs in a separate process for the whole run. This process is
// the remote service for all of them, and takes samples of each.
#include "baseline/baseline.h"
#include "subjects.h"
#include "support/child_process.h"
#include "support/comparison.h"
#include "support/expect.h"
#include "support/processor_time.h"
#include "support/report.h"
#include "support/service_process.h"

#include <kvo_hws/agent.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRepetitions = 61;
constexpr double kLatencyGoal = 1.02;
constexpr double kRateGoal = 0.98;
constexpr auto kTimeout = 10s;
// Shorter than a delayed acknowledgement, and a hundred times longer than a batch.
constexpr auto kStall = 30ms;

constexpr uint16_t kFirstPort = 5850;
constexpr uint16_t kSessions = 10;

constexpr int kBatch = 100;

constexpr int kPushers = 4;
constexpr int kEventsEach = 3000;
constexpr int kIndications = 99;

// ---- The remote service ----

class RemoteService {
public:
    /// Listens at the first free port of the ten that an agent can connect to.
    RemoteService() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        for (; session_ < kSessions; ++session_) {
            address.sin_port = htons(port());
            if (bind(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 && listen(socket_, 1) == 0) {
                return;
            }
        }
        ::close(socket_);
        expect(false, "no free port for the remote service");
    }
    RemoteService(const RemoteService &) = delete;
    RemoteService &operator=(const RemoteService &) = delete;
    ~RemoteService() { ::close(socket_); }

    [[nodiscard]] uint16_t session() const { return session_; }
    [[nodiscard]] uint16_t port() const { return static_cast<uint16_t>(kFirstPort + session_); }

    /// Accepts the agent's connection and closes the listening socket.
    void accept()
    {
        pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
        const auto timeout = std::chrono::milliseconds(kTimeout).count();
        expect(poll(&waiting, 1, static_cast<int>(timeout)) == 1, "an agent does not connect");
        const int connection = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        expect(connection >= 0, "cannot accept an agent's connection");
        ::close(std::exchange(socket_, connection));
        const int on = 1;
        setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const timeval bound{.tv_sec = std::chrono::seconds(kTimeout).count(), .tv_usec = 0};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
    }

    void send(std::string_view bytes) const
    {
        expect(::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()),
               "cannot send a request");
    }

    /// Receives the agent's bytes up to @p last, which must be the last ones that it sends. The next call invalidates the view.
    std::string_view receiveUntil(std::string_view last)
    {
        std::size_t fill = 0;
        do {
            if (fill == received_.size()) {
                received_.resize(2 * received_.size());
            }
            const ssize_t count = recv(socket_, received_.data() + fill, received_.size() - fill, 0);
            expect(count > 0, "an agent does not answer");
            fill += static_cast<std::size_t>(count);
        } while (!std::string_view(received_.data(), fill).ends_with(last));
        return {received_.data(), fill};
    }

private:
    int socket_;
    uint16_t session_ = 0;
    std::vector<char> received_ = std::vector<char>(1 << 16);
};

// ---- The host program, the same for every agent: it pushes events on request ----

constexpr std::string_view kPush = "set-darken=";  // any command whose argument the agent passes to the host

void (*pushOfThisProcess)(const char *text) = nullptr;

int host(void * /*instance*/, const char *command)
{
    const int count = std::atoi(command + kPush.size());
    std::array<std::jthread, kPushers> pushers;
    for (int pusher = 0; pusher < kPushers; ++pusher) {
        pushers[static_cast<std::size_t>(pusher)] = std::jthread([pusher, count] {
            for (int event = 0; event < count; ++event) {
                char text[64];
                std::snprintf(text, sizeof text, "pusher=%d event=%d", pusher, event);
                pushOfThisProcess(text);
            }
        });
    }
    return 1;  // the pushers have been joined
}

// ---- The agents ----

void serveWithLibrary(uint16_t session)
{
    pushOfThisProcess = [](const char *text) { KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, text); };
    const std::string parameters = "focusKvoIp=10.0.0.5\nremoteKvoHwsIp=127.0.0.1\nremoteSession=" + std::to_string(session);
    void *instance = nullptr;
    expect(KVO_HWS_startupEmbHwsClient(parameters.c_str(), &instance, host) == 1, "startupEmbHwsClient failed");
    for (;;) {
        pause();
    }
}

/// Runs on a second thread, like the library's agent: system calls cost more in a process with several threads.
void serveBaseline(uint16_t port, baseline::Reading reading)
{
    pushOfThisProcess = baseline::pushEvent;
    std::jthread([=] { baseline::serveRemote(port, host, reading); }).join();
}

class Agent {
public:
    /// @param serve  runs in the agent's process
    explicit Agent(const std::function<void(const RemoteService &)> &serve) : process_([this, &serve] { serve(remote_); })
    {
        remote_.accept();
        ping();  // the agent must serve before events are pushed
    }

    void ping()
    {
        remote_.send("042:ping\r\n");
        expect(remote_.receiveUntil("\n") == "042:pong\r\n", "unexpected reply to a ping");
    }

    void batch()
    {
        static const std::string requests = batchOf("ping");
        static const std::string replies = batchOf("pong");
        const auto begin = Clock::now();
        remote_.send(requests);
        const std::string_view received = remote_.receiveUntil("099:pong\r\n");
        stalls_ += Clock::now() - begin >= kStall ? 1 : 0;
        ++batches_;
        expect(received == replies, "unexpected replies to a batch");
    }

    void events()
    {
        const Seconds before = processorTimeOf(process_);
        remote_.send(std::string("077:") + std::string(kPush) + std::to_string(kEventsEach) + "\r\n");
        const std::string_view received = remote_.receiveUntil("077:ok\r\n");
        pushing_ += processorTimeOf(process_) - before;
        ++eventSamples_;
        expectAllEvents(received);
    }

    [[nodiscard]] double eventsPerProcessorSecond() const { return eventSamples_ * kPushers * kEventsEach / pushing_.count(); }
    [[nodiscard]] int batches() const { return batches_; }
    [[nodiscard]] int stalls() const { return stalls_; }

private:
    static std::string batchOf(const char *text)
    {
        std::string lines;
        for (int number = 0; number < kBatch; ++number) {
            char line[32];
            std::snprintf(line, sizeof line, "%03d:%s\r\n", number, text);
            lines += line;
        }
        return lines;
    }

    /// Expects whole lines with consecutive numbers, and the events of each pusher in order.
    void expectAllEvents(std::string_view rest)
    {
        std::array<int, kPushers> next{};
        for (int event = 0; event < kPushers * kEventsEach; ++event) {
            const std::string_view line = rest.substr(0, rest.find("\r\n"));
            rest.remove_prefix(std::min(line.size() + 2, rest.size()));
            number_ = number_ % kIndications + 1;
            expectEvent(line, next);
        }
        expect(rest == "077:ok\r\n", "more events arrived than were pushed");
    }

    void expectEvent(std::string_view line, std::array<int, kPushers> &next) const
    {
        constexpr std::size_t kPusher = std::string_view("I00:pusher=").size();
        const std::size_t pusher = line.size() > kPusher ? static_cast<std::size_t>(line[kPusher] - '0') : kPushers;
        expect(pusher < kPushers, "an event's line is incomplete");
        char expected[64];
        std::snprintf(expected, sizeof expected, "I%02d:pusher=%zu event=%d", number_, pusher, next[pusher]++);
        expect(line == expected, "an event's line is incomplete, lost or wrongly numbered");
    }

    RemoteService remote_;
    ChildProcess process_;
    Seconds pushing_{0};
    int eventSamples_ = 0;
    int number_ = 0;
    int batches_ = 0;
    int stalls_ = 0;
};

// ---- The comparison ----

struct Agents {
    Agent library{[](const RemoteService &remote) { serveWithLibrary(remote.session()); }};
    Agent baseline{[](const RemoteService &remote) { serveBaseline(remote.port(), baseline::Reading::oneLine); }};
    Agent readingAhead{[](const RemoteService &remote) { serveBaseline(remote.port(), baseline::Reading::ahead); }};

    std::map<std::string, Timing> compare(void (Agent::*operation)())
    {
        return Comparison(kRepetitions)
            .candidate("library", [=, this] { (library.*operation)(); })
            .candidate("baseline", [=, this] { (baseline.*operation)(); })
            .candidate("baseline, read-ahead", [=, this] { (readingAhead.*operation)(); })
            .run();
    }
};

void comparePings(Agents &agents)
{
    const auto timings = agents.compare(&Agent::ping);
    printRow("one request, tagged", timings.at("library"), "baseline", timings.at("baseline"), kLatencyGoal);
    printRow("one request, tagged", timings.at("library"), "baseline, read-ahead", timings.at("baseline, read-ahead"));
}

double rate(int operations, const Timing &timing) { return operations * 1e9 / timing.median; }

void compareBatches(Agents &agents)
{
    const auto timings = agents.compare(&Agent::batch);
    const double library = rate(kBatch, timings.at("library"));
    printRates("requests per second, 100 per segment", library, "baseline", rate(kBatch, timings.at("baseline")), kRateGoal);
    printRates("requests per second, 100 per segment", library, "baseline, read-ahead",
               rate(kBatch, timings.at("baseline, read-ahead")));
    printFigure("batches that took 30 ms or more",
                std::to_string(agents.library.stalls()) + " of " + std::to_string(agents.library.batches()), "= 0",
                agents.library.stalls() == 0);
}

void compareEvents(Agents &agents)
{
    constexpr int kEvents = kPushers * kEventsEach;
    const auto timings = agents.compare(&Agent::events);
    const double library = rate(kEvents, timings.at("library"));
    printRates("events per second, 4 threads", library, "baseline", rate(kEvents, timings.at("baseline")), kRateGoal);
    printRates("events per second, 4 threads", library, "baseline, read-ahead",
               rate(kEvents, timings.at("baseline, read-ahead")));
    const double libraryBusy = agents.library.eventsPerProcessorSecond();
    printRates("... per second of the agent's CPU time", libraryBusy, "baseline", agents.baseline.eventsPerProcessorSecond(),
               kRateGoal);
    printRates("... per second of the agent's CPU time", libraryBusy, "baseline, read-ahead",
               agents.readingAhead.eventsPerProcessorSecond());
}

}  // namespace

void measureAgent()
{
    const ServiceProcess service(ServiceProcess::Replies{
        {"getExDescByIP 0500000A", "0500000A 00000400 00000300 00000020 00000003 st1 00000000 00000000 00000001 00000002 "
                                   "00000003 00000004 89ABCDEF "},
        {"getKVOt2m2n=0500000A", "1:2,3"}});
    Agents agents;
    printHeading("Remote agent");
    comparePings(agents);
    compareBatches(agents);
    compareEvents(agents);
}

}  // namespace bench
