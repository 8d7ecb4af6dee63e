#include "load_driver.h"

#include "common/control_client.h"

#include <kvo_hws/agent.h>

#include <charconv>
#include <csignal>
#include <filesystem>
#include <optional>
#include <sys/syscall.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace soak {

namespace {

using tools::Json;

constexpr auto kStormTimeout = 25s;
constexpr auto kRequestTimeout = 10s;
constexpr int kSignals[] = {SIGUSR1, SIGALRM, SIGWINCH};
constexpr int kLastIndication = 99;

/// Sends a request to the simulator. Returns nothing if it refuses or cannot do it in time.
std::optional<tools::Json> ask(Worker &worker, const tools::Json &request, tools::Timeout timeout = kRequestTimeout)
{
    const Call call(worker.watch, "the simulator");
    try {
        return tools::askSimulator(request, tools::kControlSocket, timeout);
    } catch (const tools::NoSimulator &error) {
        worker.complain(error.what());
        std::this_thread::sleep_for(1s);  // limits the number of complaints
    } catch (const std::exception &) {
        // Refused, not possible now, or too slow: the caller handles it.
    }
    return std::nullopt;
}

// ---- USB ----

void unplugAll(Worker &worker)
{
    const tools::Json list = ask(worker, {{"do", "usb.list"}}).value_or(tools::Json{{"devices", tools::Json::array()}});
    for (const tools::Json &device : list["devices"]) {
        const std::string idents = device["ident2"].get<std::string>() + '*' + device["ident3"].get<std::string>();
        ask(worker, {{"do", "usb.unplug"}, {"station", device["station"]}, {"device", idents}});
    }
}

void storm(Worker &worker)
{
    const tools::Json request{
        {"do", "usb.storm"}, {"count", 20 + worker.random.below(300)}, {"rate", 50 + worker.random.below(450)}};
    if (!ask(worker, {{"do", "status"}})
             .value_or(tools::Json{{"usb_events_activated", false}})["usb_events_activated"]
             .get<bool>()) {
        ++worker.figures().stormsRefused;
        worker.pause(50ms, 200ms);
        return;
    }
    if (const auto sums = ask(worker, request, kStormTimeout)) {
        worker.figures().usbEventsSent += (*sums)["sent"].get<uint64_t>();
        worker.figures().usbEventsDelivered += (*sums)["delivered"].get<uint64_t>();
    } else {
        ++worker.figures().stormsGivenUp;
    }
    if (worker.random.oneIn(20)) {
        unplugAll(worker);  // an aborted storm leaves a device plugged in
    }
    worker.pause(50ms, 300ms);
}

void refuseDevice(Worker &worker)
{
    const auto refused = ask(worker, {{"do", "usb.refuse"}, {"station", "10.0.0.5"}});
    if (refused && (*refused)["delivery"] != "not activated") {
        ++worker.figures().usbEventsSent;
        worker.figures().usbEventsDelivered += (*refused)["delivery"] == "delivered" ? 1 : 0;
    }
    worker.pause(20ms, 400ms);
}

// ---- The remote side of the agent ----

/// Any command of the agent's table, with an argument that may fit.
std::string anyCommand(Random &random)
{
    std::string command = random.oneOf(cmds).keyword;
    if (command.ends_with('=')) {
        command += std::to_string(random.below(3));
    }
    return command;
}

void sendToAgent(Worker &worker, unsigned session)
{
    ++worker.figures().agentRequests;
    const auto reply = ask(
        worker, {{"do", "remote.ask"}, {"session", session}, {"request", anyCommand(worker.random)}, {"patience_ms", 5000}});
    worker.figures().agentReplies += reply ? 1 : 0;
    worker.pause(1ms, 60ms);
}

/// Disturbs the agent: closes or resets its connection, stops the remote side for a time, or sends an incomplete or endless
/// request.
void disturbAgent(Worker &worker, unsigned session)
{
    worker.pause(4s, 20s);
    if (worker.random.oneIn(4)) {
        const std::string bytes = worker.random.oneIn(2) ? "7069" : std::string(600, '7');
        ask(worker, {{"do", "remote.raw"}, {"session", session}, {"bytes", bytes}});
        return;
    }
    const bool reset = worker.random.oneIn(2);
    tools::Json request{{"do", "remote.close"}, {"session", session}, {"reset", reset}};
    if (worker.random.oneIn(3)) {
        request["away_ms"] = 1'000 + worker.random.below(9'000);
        ++worker.figures().remoteRestarts;
    } else {
        ++(reset ? worker.figures().remoteResets : worker.figures().remoteCloses);
    }
    ask(worker, request);
}

/// Reads the remote side's log and checks that the indications of a connection have consecutive numbers.
class LogReader {
public:
    void read(Worker &worker)
    {
        const auto page = ask(worker, {{"do", "remote.log"}, {"after", after_}});
        if (!page) {
            worker.pause(100ms, 100ms);
            return;
        }
        if (const auto lost = (*page)["lost"].get<uint64_t>(); lost > 0) {
            worker.figures().remoteRecordsLost += after_ == 0 ? 0 : lost;
            lastNumber_ = 0;
        }
        after_ = (*page)["next"].get<uint64_t>();
        for (const tools::Json &record : (*page)["records"]) {
            handle(worker, record["kind"].get<std::string>(), record["text"].get<std::string>());
        }
        worker.pause(100ms, 100ms);
    }

private:
    void handle(Worker &worker, const std::string &kind, const std::string &text)
    {
        if (kind == "connected") {
            ++worker.figures().agentConnections;
            lastNumber_ = 0;
        } else if (kind == "indication") {
            ++worker.figures().indicationsReceived;
            checkNumber(worker, text);
        }
    }
    void checkNumber(Worker &worker, const std::string &text)
    {
        int number = 0;
        std::from_chars(text.data() + 1, text.data() + 3, number);
        if (lastNumber_ != 0 && number != lastNumber_ % kLastIndication + 1) {
            worker.complain("indication " + std::to_string(lastNumber_) + " is followed by \"" + text.substr(0, 40) + '"');
        }
        lastNumber_ = number;
    }

    uint64_t after_ = 0;
    int lastNumber_ = 0;
};

// ---- Events of embedded stations ----

void publish(Worker &worker)
{
    const std::string number = std::to_string(++worker.figures().eventsPublished);
    if (const auto sent = ask(worker, {{"do", "event"}, {"text", 'n' + number + ", " + number}})) {
        worker.figures().eventsWritten += (*sent)["listeners"].get<uint64_t>();
    }
    worker.pause(10ms, 100ms);
}

// ---- Faults ----

/// Commands with short replies. A list sent byte by byte would exceed the timeout for unanswered calls.
constexpr const char *kShortReplies[] = {"getKVOIndex",    "isInitComplete",    "getDisableNumLock",   "setStatusline",
                                         "lockKVORegData", "unlockKVORegData",  "getRV4Mode",          "isViewerActive",
                                         "getMCPAddress",  "activateUSBEvents", "deactivateUSBEvents", "setBacklight"};

struct FaultChoice {
    tools::Json fault;
    bool stalls;  ///< delays the requests of all threads for seconds
};

FaultChoice anyFault(Random &random)
{
    switch (random.below(12)) {
    case 0: return {{{"kind", "silent"}, {"times", 1}}, true};
    case 1: return {{{"kind", "delay"}, {"delay_ms", 4500}, {"times", 1}}, true};
    case 2: return {{{"kind", "delay"}, {"delay_ms", random.below(30)}}, false};
    case 3:
    case 4:
        return {{{"kind", "split"}, {"delay_ms", random.below(4)}, {"times", 20}, {"command", random.oneOf(kShortReplies)}},
                false};
    case 5: return {{{"kind", "garbage"}}, false};
    case 6: return {{{"kind", "failed"}}, false};
    case 7: return {{{"kind", "close"}}, false};
    default: return {{{"kind", "close"}, {"times", 1 + random.below(3)}, {"command", random.oneOf(kShortReplies)}}, false};
    }
}

void clearFaults(Worker &worker) { ask(worker, {{"do", "fault.clear"}}); }

void injectFault(Worker &worker)
{
    auto [fault, stalls] = anyFault(worker.random);
    fault["do"] = "fault.add";
    ++worker.figures().faults;
    ask(worker, fault);
    worker.pause(50ms, 700ms);
    if (!worker.random.oneIn(4)) {  // otherwise it overlaps with later faults
        clearFaults(worker);
    }
    // Each exchange of a request may stall. With these pauses, a request of several exchanges still returns in time.
    stalls ? worker.pause(6s, 10s) : worker.pause(100ms, 2500ms);
}

// ---- Signals ----

std::vector<pid_t> threadsOf(pid_t process)
{
    std::vector<pid_t> threads;
    std::error_code gone;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task", gone)) {
        threads.push_back(std::atoi(entry.path().filename().c_str()));
    }
    return threads;
}

/// Sends a signal to any thread, of the library or of the program.
void signalRandomThread(Worker &worker)
{
    const ProcessState &target = worker.shared.processes[1 + worker.random.below(kPrograms - 1)];
    const auto threads = threadsOf(target.process);
    if (!threads.empty()) {
        syscall(SYS_tgkill, target.process.load(), worker.random.oneOf(threads), worker.random.oneOf(kSignals));
        ++worker.figures().signals;
    }
}

/// Sends signals in bursts. Each signal to a thread that waits for a reply restarts its timeout of 4 s, as the headers
/// document. Signals without pauses would therefore make a request wait forever.
void sendSignalBurst(Worker &worker)
{
    constexpr unsigned kLongestBurst = 300;
    for (unsigned left = worker.random.below(kLongestBurst); left > 0; --left) {
        signalRandomThread(worker);
        worker.pause(1ms, 20ms);
    }
    worker.pause(5s, 6s);
}

}  // namespace

struct LoadDriver::Parts {
    Parts(SharedState &shared, uint64_t seed) : workers(shared, kLoadDriver, seed) {}

    LogReader log;
    Workers workers;  // destroyed first
};

LoadDriver::LoadDriver(SharedState &shared, uint64_t seed, unsigned session) : parts_(std::make_unique<Parts>(shared, seed))
{
    Workers &workers = parts_->workers;
    workers.add("storms", storm, unplugAll);
    workers.add("refused devices", refuseDevice);
    workers.add("remote requests", [session](Worker &worker) { sendToAgent(worker, session); });
    workers.add("remote closes", [session](Worker &worker) { disturbAgent(worker, session); });
    workers.add("remote log", [log = &parts_->log](Worker &worker) { log->read(worker); });
    workers.add("events", publish);
    workers.add("faults", injectFault, clearFaults);
    workers.add("signals", sendSignalBurst);
}

LoadDriver::~LoadDriver() = default;

}  // namespace soak
