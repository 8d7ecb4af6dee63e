// Runs every scenario with every fault. Results must be documented, nothing is leaked, nothing hangs, and the next scenario
// runs as usual. docs/reliability.md lists the effect of each fault; KVO_WRITE_TABLE=1 in the environment rewrites its tables.
#include "common/join.h"
#include "reliability/faults.h"
#include "reliability/scenarios.h"
#include "reliability/table.h"

#include "support/eventually.h"
#include "support/failing_allocations.h"
#include "support/leak_suppressions.h"
#include "support/resource_usage.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>
#include <string>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

using reliability::Call;
using reliability::Error;
using reliability::Fault;
using reliability::Outcome;
using reliability::Record;
using reliability::ScenarioKind;
using reliability::Site;

namespace faults = reliability::faults;

/// The message for a run that hangs. It is formatted before the run, because a signal handler cannot format texts.
std::array<char, 256> hangMessage{};

void abortHangingRun(int /*signal*/)
{
    static_cast<void>(write(STDERR_FILENO, hangMessage.data(), std::strlen(hangMessage.data())));
    std::abort();
}

/// Aborts the program if a run hangs.
class Watch {
public:
    explicit Watch(const std::string &what)
    {
        constexpr unsigned kSeconds = 20;
        std::snprintf(hangMessage.data(), hangMessage.size(), "hangs: %s\n", what.c_str());
        std::signal(SIGALRM, abortHangingRun);
        alarm(kSeconds);
    }
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;
    ~Watch() { alarm(0); }
};

std::string describe(const ScenarioKind &scenario, const Fault &fault)
{
    return std::string(scenario.name) + ": " + reliability::nameOf(fault.site.call) + " number " +
           std::to_string(fault.site.number) + " of thread " + std::to_string(fault.site.thread) +
           (fault.site.step.empty() ? "" : ", " + fault.site.step) + " fails with " + reliability::nameOf(fault.error);
}

/// Messages that depend only on timing are not an effect of a fault.
bool dependsOnTiming(const std::string &message)
{
    // Also depends on timing: an agent ends differently if the cleanup finds it serving or between two connections.
    return message.ends_with("select with timeout") || message.ends_with("select returns 0==> timeout") ||
           message.find(" terminates with ") != std::string::npos;
}

/// Replaces values that differ between runs by placeholders.
std::string withoutNumbers(std::string text, const Fault *fault)
{
    static const std::vector<std::pair<std::regex, std::string>> kRules = {
        {std::regex("thread 0x[0-9A-F]{8}"), "thread <thread>"},
        {std::regex("\\[[0-9A-F]{4,16}\\]"), "[<thread>]"},
        {std::regex("(recv|select)\\(-?[0-9]+\\)"), "$1(<fd>)"},
        {std::regex("(socket|closesocket) -?[0-9]+"), "$1 <fd>"},
        {std::regex("(HWS connection to .*:[0-9]: ).*"), "$1<reason>"},
        {std::regex("(thread - )(error|timeout)"), "$1error or timeout"},  // depends on whether the listener ends in time
        {std::regex("(terminated[0-9]) [0-9]+ .*"), "$1 <errno> <text>"}};
    for (const auto &[pattern, replacement] : kRules) {
        text = std::regex_replace(text, pattern, replacement);
    }
    if (fault != nullptr && fault->error.number != 0) {
        // Errors whose messages differ only in the number share one row.
        text = std::regex_replace(
            text, std::regex("(=|returns |errno:|error:|fails )" + std::to_string(fault->error.number) + "\\b"), "$1<errno>");
        const std::string words = std::string("(") + std::strerror(fault->error.number) + ")";
        if (const auto found = text.find(words); found != std::string::npos) {
            text.replace(found, words.size(), "(<text>)");
        }
    }
    return text;
}

std::vector<std::string> messagesOf(const support::SyslogCapture &capture, const Fault *fault)
{
    std::vector<std::string> messages;
    for (const std::string &text : capture.texts()) {
        if (!dependsOnTiming(text)) {
            messages.push_back(withoutNumbers(text, fault));
        }
    }
    std::ranges::sort(messages);
    messages.erase(std::unique(messages.begin(), messages.end()), messages.end());
    return messages;
}

/// The steps whose results differ from the usual ones. If there are none, the steps that are missing.
std::string changedSteps(const Outcome &usual, const Outcome &outcome)
{
    std::string text;
    const auto add = [&text](const std::string &step) { tools::appendTo(text, ", ", step); };
    for (const auto &step : outcome.steps) {
        if (std::ranges::find(usual.steps, step) == usual.steps.end()) {
            add(step.first + ": " + step.second);
        }
    }
    if (!text.empty()) {
        return text;
    }
    for (const auto &step : usual.steps) {
        if (std::ranges::find(outcome.steps, step.first, &std::pair<std::string, std::string>::first) == outcome.steps.end()) {
            add("no " + step.first);
        }
    }
    return text;
}

std::string newMessages(const Outcome &usual, const Outcome &outcome)
{
    std::string text;
    for (const std::string &message : outcome.messages) {
        if (std::ranges::find(usual.messages, message) == usual.messages.end()) {
            tools::appendTo(text, "; ", "`" + message + "`");
        }
    }
    return text;
}

std::size_t heapBytes()
{
    const auto all = mallinfo2();
    return all.uordblks + all.hblkhd;
}

void compareWithPage(const std::string &name, const std::string &part)
{
    const bool memory = support::FailingAllocations::unavailable() == nullptr;
    if (std::getenv("KVO_WRITE_TABLE") != nullptr) {
        ASSERT_TRUE(memory) << "cannot write the page: memory faults are not available in this build";
        reliability::writeSection(name, part);
        GTEST_SKIP() << "wrote " << KVO_RELIABILITY_PAGE << " instead of comparing";
    }
    const std::string page = reliability::readSection(name);
    if (memory) {
        EXPECT_EQ(part, page) << "KVO_WRITE_TABLE=1 rewrites the page";
    } else {
        EXPECT_EQ(reliability::withoutMemory(part), reliability::withoutMemory(page));
    }
}

class Scenarios : public testing::TestWithParam<std::size_t> {
protected:
    Scenarios() : kind_(reliability::scenarios()[GetParam()]), calls_(faults::replacements()), scenario_(kind_.make()) {}

    Outcome run(const Fault *fault)
    {
        const Watch watch(fault == nullptr ? kind_.name : describe(kind_, *fault));
        reliability::Run run;
        {
            const support::SyslogCapture capture;
            const auto descriptors = support::descriptorsOpen();
            const auto threads = support::threadsRunning();
            faults::begin(fault);
            scenario_->run(run);
            EXPECT_TRUE(settles(descriptors, threads))
                << support::descriptorsOpen() << " descriptors, " << descriptors << " before; " << support::threadsRunning()
                << " threads, " << threads << " before";
            occurred_ = faults::occurred();
            run.outcome().messages = messagesOf(capture, fault);
        }
        const support::SyslogCapture forgets;
        return std::move(run.outcome());
    }

    /// Waits until ending threads have ended.
    static bool settles(std::size_t descriptors, std::size_t threads)
    {
        return support::eventually(
            [=] { return support::descriptorsOpen() <= descriptors && support::threadsRunning() <= threads; }, 3s);
    }

    void expectUsualRun(const Outcome &usual)
    {
        const Outcome healthy = run(nullptr);
        EXPECT_EQ(changedSteps(usual, healthy) + newMessages(usual, healthy), "") << "after the fault";
    }

    /// Repeats the fault, then runs the scenario without it, which must run as usual. Some memory is allocated only once,
    /// during the first faults; a leak occurs each time.
    void checkAfter(const Fault &fault, const Outcome &usual)
    {
        constexpr int kMostAttempts = 4;
        std::size_t before = 0;
        std::size_t after = 1;
        for (int attempt = 0; attempt < kMostAttempts && after > before; ++attempt) {
            before = heapBytes();
            run(&fault);
            expectUsualRun(usual);
            after = support::FailingAllocations::unavailable() == nullptr ? heapBytes() : before;
        }
        EXPECT_LE(after, before) << "memory is leaked each time";
    }

    /// Returns whether the fault occurred.
    bool testFault(const Fault &fault, const Outcome &usual)
    {
        SCOPED_TRACE(describe(kind_, fault));
        const Outcome outcome = run(&fault);
        if (!occurred_) {
            return false;
        }
        records_.push_back({fault, changedSteps(usual, outcome), newMessages(usual, outcome)});
        checkAfter(fault, usual);
        return true;
    }

    void testCallFaults(const Outcome &usual, const std::vector<Site> &sites)
    {
        for (const Site &site : sites) {
            // The number of pauses depends on timing, so only the first one, if any, is tested.
            const bool isPause = site.call == Call::clockNanosleep || site.call == Call::select;
            // The order of the entries of a folder depends on the file system.
            if ((isPause || site.call == Call::readdir) && site.number > 1) {
                continue;
            }
            for (const Error &error : errorsOf(site.call)) {
                const Fault fault{site, error};
                EXPECT_TRUE(testFault(fault, usual) || isPause) << describe(kind_, fault) << " does not occur";
            }
        }
    }

    /// Makes later and later allocations fail, until the scenario needs fewer allocations than permitted.
    void testMemoryFaults(const Outcome &usual, std::size_t threads)
    {
        if (const char *const reason = support::FailingAllocations::unavailable()) {
            std::printf("no memory faults: %s\n", reason);
            return;
        }
        if (kind_.endsWithoutMemory) {
            std::puts("no memory faults: they end the process, as the header documents");
            return;
        }
        std::vector<Site> sites;
        for (const auto &[step, result] : usual.steps) {
            sites.push_back({Call::memory, 0, 1, step});
        }
        for (std::size_t thread = 1; thread <= threads; ++thread) {
            sites.push_back({Call::memory, thread, 1, {}});
        }
        constexpr int kMost = 100;
        for (Site site : sites) {
            while (testFault({site, errorsOf(Call::memory).front()}, usual)) {
                ASSERT_LT(++site.number, kMost) << "too many allocations";
            }
        }
    }

    const ScenarioKind &kind_;
    const support::MessagesOn messages_;
    const support::WithSystemCalls calls_;
    std::unique_ptr<reliability::Scenario> scenario_;
    bool occurred_ = false;
    std::vector<Record> records_;
};

TEST_P(Scenarios, return_documented_results_after_every_fault)
{
    run(nullptr);
    const Outcome usual = run(nullptr);
    const std::vector<Site> sites = faults::sites();
    const std::size_t threads = faults::threads();
    ASSERT_EQ(threads + 1, kind_.threads.size());
    ASSERT_FALSE(sites.empty());
    testCallFaults(usual, sites);
    testMemoryFaults(usual, threads);
    RecordProperty("faults", static_cast<int>(records_.size()));
    std::printf("%zu faults\n", records_.size());

    compareWithPage(kind_.name, tableOf(kind_, usual, records_));
}

TEST(Faults, match_the_table_in_the_page) { compareWithPage("errors", reliability::tableOfErrors()); }

INSTANTIATE_TEST_SUITE_P(All, Scenarios, testing::Range(std::size_t{0}, reliability::scenarios().size()),
                         [](const auto &instance) { return std::string(reliability::scenarios()[instance.param].name); });

}  // namespace

/// Disables the caches of the allocator, so bytes in use can be counted exactly. The allocator reads this setting at startup.
int main(int argc, char **argv)
{
    constexpr const char *kTunables = "GLIBC_TUNABLES";
    if (std::getenv(kTunables) == nullptr && support::FailingAllocations::unavailable() == nullptr) {
        setenv(kTunables, "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=1", 1);
        execv("/proc/self/exe", argv);
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
