#include "report.h"

#include "common/join.h"
#include "requests.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace soak {

namespace {

using Json = nlohmann::ordered_json;

// Resource usage is checked after the warm-up, because the C library keeps stacks and arenas of threads for the next ones.
constexpr uint64_t kHeapTolerance = 64 * 1024;  // each start of an agent keeps the names from the configuration
constexpr uint64_t kResidentTolerance = 4 * 1024 * 1024;
constexpr double kTimeForEverything = 30;  // seconds; in less, a fault may prevent an agent or an activation
constexpr const char *kCheckpointNames[] = {"start", "after_warm_up", "end"};

struct Quantity {
    const char *name;
    Counter Usage::*value;
    uint64_t tolerance;
    bool isMemory;
};

constexpr Quantity kQuantities[] = {
    {"descriptors", &Usage::descriptors, 0, false},
    {"threads", &Usage::threads, 0, false},
    {"heap_bytes", &Usage::heapBytes, kHeapTolerance, true},
    {"resident_bytes", &Usage::residentBytes, kResidentTolerance, true},
};

void checkResourceUsage(SharedState &shared, const ProcessState &process, bool memoryIsChecked)
{
    for (const Quantity &quantity : kQuantities) {
        const uint64_t before = (process.usage[kAfterWarmUp].*quantity.value).load();
        const uint64_t after = (process.usage[kAtEnd].*quantity.value).load();
        if ((memoryIsChecked || !quantity.isMemory) && after > before + quantity.tolerance) {
            shared.complaints.add(std::string(process.name) + ": " + quantity.name + " grew from " + std::to_string(before) +
                                  " to " + std::to_string(after) + " after the warm-up (tolerance " +
                                  std::to_string(quantity.tolerance) + ")");
        }
    }
}

Json jsonOf(const Results &results)
{
    Json json{{"all", results.all()}};
    for (int32_t result = Results::kHighest; result >= Results::kLowest; --result) {
        if (results.of(result) > 0) {
            json[std::to_string(result)] = results.of(result);
        }
    }
    if (results.others() > 0) {
        json["others"] = results.others();
    }
    return json;
}

Json requestsOf(const Figures &figures)
{
    Json requests = Json::object();
    const std::vector<RequestRow> &rows = requestRows();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        requests[rows[i].name] = jsonOf(figures.requests[i]);
    }
    return requests;
}

/// The sums over all requests.
Json sumsOf(const Figures &figures)
{
    Json sums{{"all", 0}};
    for (const Results &results : figures.requests) {
        const Json counts = jsonOf(results);
        for (const auto &[result, count] : counts.items()) {
            sums[result] = sums.value(result, uint64_t{0}) + count.get<uint64_t>();
        }
    }
    return sums;
}

Json usageOf(const ProcessState &process)
{
    Json json = Json::object();
    for (const Quantity &quantity : kQuantities) {
        for (const Checkpoint checkpoint : {kAtStart, kAfterWarmUp, kAtEnd}) {
            json[quantity.name][kCheckpointNames[checkpoint]] = (process.usage[checkpoint].*quantity.value).load();
        }
        if ((process.peak.*quantity.value).load() > 0) {
            json[quantity.name]["most"] = (process.peak.*quantity.value).load();
        }
    }
    return json;
}

struct Sum {
    const char *name;
    Counter Figures::*value;
    bool mustHappen;
};

constexpr Sum kSums[] = {
    {"usb_events_sent", &Figures::usbEventsSent, true},
    {"usb_events_delivered", &Figures::usbEventsDelivered, true},
    {"usb_events_received", &Figures::usbEventsReceived, true},
    {"ends_of_usb_events", &Figures::usbEnds, true},
    {"storms_without_a_receiver", &Figures::stormsRefused, false},
    {"storms_broken_off", &Figures::stormsGivenUp, false},
    {"agent_connections", &Figures::agentConnections, true},
    {"agent_was_asked", &Figures::agentRequests, true},
    {"agent_replied", &Figures::agentReplies, true},
    {"host_was_asked", &Figures::agentCallbacks, false},
    {"indications_received", &Figures::indicationsReceived, true},
    {"remote_closes", &Figures::remoteCloses, false},
    {"remote_resets", &Figures::remoteResets, false},
    {"remote_restarts", &Figures::remoteRestarts, false},
    {"remote_log_records_missed", &Figures::remoteRecordsLost, false},
    {"embedded_events_published", &Figures::eventsPublished, true},
    {"embedded_events_written", &Figures::eventsWritten, true},
    {"embedded_events_received", &Figures::eventsReceived, true},
    {"loop_requests", &Figures::loopRequests, true},
    {"loop_answers", &Figures::loopAnswers, true},
    {"loop_timeouts", &Figures::loopTimeouts, true},
    {"loop_requests_cancelled", &Figures::loopCancelled, true},
    {"loop_requests_dropped", &Figures::loopDropped, true},
    {"loop_requests_refused", &Figures::loopRefused, true},
    {"faults", &Figures::faults, true},
    {"signals", &Figures::signals, true},
};

struct Outcome {
    const char *name;
    Results Figures::*results;
    std::vector<int32_t> documented;  ///< the results that its header documents for the calls of the run
};

const std::vector<Outcome> kOutcomes = {
    {"activateUSBEvents", &Figures::activations, {1, -3, -8}}, {"closeUSBEvents", &Figures::closes, {1, -8, -9}},
    {"UsbEvents_activate", &Figures::usbObjects, {1, -3, -8}}, {"UsbEvents_close", &Figures::usbObjectCloses, {1, -1, -8}},
    {"startupEmbHwsClient", &Figures::agentStarts, {1, -1}},   {"cleanupEmbHwsClient", &Figures::agentCleanups, {1, -1}},
    {"sendEmbHwsEvent", &Figures::indications, {1, -1}},       {"activateEmbKvoEvents", &Figures::listens, {1, -8}},
    {"deactivateEmbKvoEvents", &Figures::unlistens, {1, -1}},
};

void checkOutcomes(SharedState &shared)
{
    for (const Outcome &outcome : kOutcomes) {
        const Results &results = shared.figures.*outcome.results;
        uint64_t known = 0;
        for (const int32_t result : outcome.documented) {
            known += results.of(result);
        }
        if (known != results.all()) {
            shared.complaints.add(std::string(outcome.name) + " returned a result that its header does not document");
        }
    }
}

Json figuresOf(const SharedState &shared, const RunSummary &run)
{
    const Figures &figures = shared.figures;
    Json json{{"verdict", shared.complaints.count() == 0 ? "passed" : "failed"}, {"seed", run.seed}, {"seconds", run.seconds}};
    json["complaints"] = Json::array();
    for (unsigned i = 0; i < shared.complaints.textCount(); ++i) {
        json["complaints"].push_back(shared.complaints.text(i));
    }
    json["requests"] = sumsOf(figures);
    json["longest_request_ms"] = figures.longestRequest.load();
    for (const Outcome &outcome : kOutcomes) {
        json[outcome.name] = jsonOf(figures.*outcome.results);
    }
    for (const Sum &sum : kSums) {
        json[sum.name] = (figures.*sum.value).load();
    }
    json["memory_judged"] = run.memoryIsChecked;
    for (const Program program : {kHost, kUsbOne, kUsbTwo}) {
        json["held"][shared.processes[program].name] = usageOf(shared.processes[program]);
    }
    return json;
}

std::string inOneLine(const Json &numbers)
{
    std::string line;
    for (const auto &[name, value] : numbers.items()) {
        tools::appendTo(line, ", ", name + ": " + value.dump());
    }
    return line;
}

std::string row(const std::string &name, const std::string &text)
{
    std::string line = "  " + name;
    line.resize(std::max<std::size_t>(line.size() + 1, 30), ' ');
    return line + text + '\n';
}

std::string memoryNote(const RunSummary &run)
{
    return run.memoryIsChecked ? "checked after the warm-up, tolerated growth " + std::to_string(kHeapTolerance) +
                                     " bytes of heap and " + std::to_string(kResidentTolerance) + " resident"
                               : "not checked: less than a minute after the warm-up, or a sanitizer keeps freed memory";
}

}  // namespace

void check(SharedState &shared, const RunSummary &run)
{
    checkOutcomes(shared);
    if (!run.complete) {
        return;
    }
    for (const Program program : {kHost, kUsbOne, kUsbTwo}) {
        checkResourceUsage(shared, shared.processes[program], run.memoryIsChecked);
    }
    if (sumsOf(shared.figures)["all"] == 0) {
        shared.complaints.add("no request was made");
    }
    for (const Sum &sum : kSums) {
        if (run.seconds >= kTimeForEverything && sum.mustHappen && (shared.figures.*sum.value).load() == 0) {
            shared.complaints.add(std::string(sum.name) + ": did not occur");
        }
    }
}

std::string asText(const SharedState &shared, const RunSummary &run)
{
    const Json figures = figuresOf(shared, run);
    std::string text;
    for (const auto &[name, value] : figures.items()) {
        if (name == "held") {
            for (const auto &[process, usage] : value.items()) {
                for (const auto &[quantity, checkpoints] : usage.items()) {
                    text += row(process + ", " + quantity, inOneLine(checkpoints));
                }
            }
        } else if (name == "memory_judged") {
            text += row("memory", memoryNote(run));
        } else if (value.is_object()) {
            text += row(name, inOneLine(value));
        } else if (name != "verdict" && name != "complaints") {
            text += row(name, value.dump());
        }
    }
    for (unsigned i = 0; i < shared.complaints.textCount(); ++i) {
        text += "soak: " + shared.complaints.text(i) + '\n';
    }
    return text + "soak: " + figures["verdict"].get<std::string>() + ", " + std::to_string(shared.complaints.count()) +
           " complaints, seed " + std::to_string(run.seed) + '\n';
}

std::string asJson(const SharedState &shared, const RunSummary &run)
{
    Json figures = figuresOf(shared, run);
    figures["by_request"] = requestsOf(shared.figures);
    return figures.dump(1) + '\n';
}

}  // namespace soak
