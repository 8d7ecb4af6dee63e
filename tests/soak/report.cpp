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

// Judged after the warm-up: stacks and arenas of threads are kept by the C library for the next ones.
constexpr uint64_t kHeapTolerance = 64 * 1024;  // the names in the configuration are kept at each start of an agent
constexpr uint64_t kResidentTolerance = 4 * 1024 * 1024;
constexpr double kAllHappensIn = 30;  // seconds; in less, a fault may be in the way of an agent or an activation
constexpr const char *kMomentNames[] = {"start", "after_warm_up", "end"};

struct Quantity {
    const char *name;
    Counter Held::*value;
    uint64_t tolerance;
    bool isMemory;
};

constexpr Quantity kQuantities[] = {
    {"descriptors", &Held::descriptors, 0, false},
    {"threads", &Held::threads, 0, false},
    {"heap_bytes", &Held::heapBytes, kHeapTolerance, true},
    {"resident_bytes", &Held::residentBytes, kResidentTolerance, true},
};

void judgeHoldings(Share &share, const ProcessShare &process, bool memoryIsJudged)
{
    for (const Quantity &quantity : kQuantities) {
        const uint64_t before = (process.held[kAfterWarmUp].*quantity.value).load();
        const uint64_t after = (process.held[kAtEnd].*quantity.value).load();
        if ((memoryIsJudged || !quantity.isMemory) && after > before + quantity.tolerance) {
            share.complaints.add(std::string(process.name) + ": " + quantity.name + " grew from " + std::to_string(before) +
                                 " to " + std::to_string(after) + " after the warm-up, tolerated are " +
                                 std::to_string(quantity.tolerance));
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

/// Over all requests.
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

Json heldBy(const ProcessShare &process)
{
    Json json = Json::object();
    for (const Quantity &quantity : kQuantities) {
        for (const Moment moment : {kAtStart, kAfterWarmUp, kAtEnd}) {
            json[quantity.name][kMomentNames[moment]] = (process.held[moment].*quantity.value).load();
        }
        if ((process.most.*quantity.value).load() > 0) {
            json[quantity.name]["most"] = (process.most.*quantity.value).load();
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
    {"faults", &Figures::faults, true},
    {"signals", &Figures::signals, true},
};

struct Outcome {
    const char *name;
    Results Figures::*results;
    std::vector<int32_t> documented;  ///< those that its header names for what the run does with it
};

const std::vector<Outcome> kOutcomes = {
    {"activateUSBEvents", &Figures::activations, {1, -3, -8}}, {"closeUSBEvents", &Figures::closes, {1, -8, -9}},
    {"startupEmbHwsClient", &Figures::agentStarts, {1, -1}},   {"cleanupEmbHwsClient", &Figures::agentCleanups, {1, -1}},
    {"sendEmbHwsEvent", &Figures::indications, {1, -1}},       {"activateEmbKvoEvents", &Figures::listens, {1, -8}},
    {"deactivateEmbKvoEvents", &Figures::unlistens, {1, -1}},
};

void judgeOutcomes(Share &share)
{
    for (const Outcome &outcome : kOutcomes) {
        const Results &results = share.figures.*outcome.results;
        uint64_t known = 0;
        for (const int32_t result : outcome.documented) {
            known += results.of(result);
        }
        if (known != results.all()) {
            share.complaints.add(std::string(outcome.name) + " returned something else than its header says");
        }
    }
}

Json figuresOf(const Share &share, const RunSummary &run)
{
    const Figures &figures = share.figures;
    Json json{{"verdict", share.complaints.count() == 0 ? "passed" : "failed"}, {"seed", run.seed}, {"seconds", run.seconds}};
    json["complaints"] = Json::array();
    for (unsigned i = 0; i < share.complaints.inWords(); ++i) {
        json["complaints"].push_back(share.complaints.text(i));
    }
    json["requests"] = sumsOf(figures);
    json["longest_request_ms"] = figures.longestRequest.load();
    for (const Outcome &outcome : kOutcomes) {
        json[outcome.name] = jsonOf(figures.*outcome.results);
    }
    for (const Sum &sum : kSums) {
        json[sum.name] = (figures.*sum.value).load();
    }
    json["memory_judged"] = run.memoryIsJudged;
    for (const Program program : {kHost, kUsbOne, kUsbTwo}) {
        json["held"][share.processes[program].name] = heldBy(share.processes[program]);
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
    return run.memoryIsJudged ? "judged after the warm-up, tolerated are " + std::to_string(kHeapTolerance) +
                                    " bytes of heap and " + std::to_string(kResidentTolerance) + " resident"
                              : "not judged: the run is shorter than a minute, or a sanitizer keeps what was freed";
}

}  // namespace

void judge(Share &share, const RunSummary &run)
{
    judgeOutcomes(share);
    if (!run.complete) {
        return;
    }
    for (const Program program : {kHost, kUsbOne, kUsbTwo}) {
        judgeHoldings(share, share.processes[program], run.memoryIsJudged);
    }
    if (sumsOf(share.figures)["all"] == 0) {
        share.complaints.add("no request has been made");
    }
    for (const Sum &sum : kSums) {
        if (run.seconds >= kAllHappensIn && sum.mustHappen && (share.figures.*sum.value).load() == 0) {
            share.complaints.add(std::string(sum.name) + ": nothing of the kind has happened");
        }
    }
}

std::string asText(const Share &share, const RunSummary &run)
{
    const Json figures = figuresOf(share, run);
    std::string text;
    for (const auto &[name, value] : figures.items()) {
        if (name == "held") {
            for (const auto &[process, held] : value.items()) {
                for (const auto &[quantity, moments] : held.items()) {
                    text += row(process + ", " + quantity, inOneLine(moments));
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
    for (unsigned i = 0; i < share.complaints.inWords(); ++i) {
        text += "soak: " + share.complaints.text(i) + '\n';
    }
    return text + "soak: " + figures["verdict"].get<std::string>() + ", " + std::to_string(share.complaints.count()) +
           " complaints, seed " + std::to_string(run.seed) + '\n';
}

std::string asJson(const Share &share, const RunSummary &run)
{
    Json figures = figuresOf(share, run);
    figures["by_request"] = requestsOf(share.figures);
    return figures.dump(1) + '\n';
}

}  // namespace soak
