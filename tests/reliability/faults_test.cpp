// Every journey with every fault: the result is a documented one, nothing is lost, nothing hangs, and the next journey goes as
// ever. What each fault comes to stands in docs/reliability.md; KVO_WRITE_TABLE=1 in the environment writes that page anew.
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
using reliability::JourneyKind;
using reliability::Outcome;
using reliability::Record;
using reliability::Site;

namespace faults = reliability::faults;

/// What to say about a run that hangs, put together before it begins.
std::array<char, 256> underWay{};

void tellWhatHangs(int /*signal*/)
{
    static_cast<void>(write(STDERR_FILENO, underWay.data(), std::strlen(underWay.data())));
    std::abort();
}

/// Ends the program where a run hangs.
class Watch {
public:
    explicit Watch(const std::string &what)
    {
        constexpr unsigned kSeconds = 20;
        std::snprintf(underWay.data(), underWay.size(), "hangs: %s\n", what.c_str());
        std::signal(SIGALRM, tellWhatHangs);
        alarm(kSeconds);
    }
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;
    ~Watch() { alarm(0); }
};

std::string describe(const JourneyKind &journey, const Fault &fault)
{
    return std::string(journey.name) + ": " + reliability::nameOf(fault.site.call) + " number " +
           std::to_string(fault.site.number) + " of thread " + std::to_string(fault.site.thread) +
           (fault.site.step.empty() ? "" : ", " + fault.site.step) + " fails with " + reliability::nameOf(fault.error);
}

/// Those that come with time alone are no part of what a fault comes to.
bool isIdle(const std::string &message)
{
    // Whether an agent that is cleaned up is serving or between two connections is time as well; it ends differently then.
    return message.ends_with("select with timeout") || message.ends_with("select returns 0==> timeout") ||
           message.find(" terminates with ") != std::string::npos;
}

/// What differs from run to run is written as what it is.
std::string withoutNumbers(std::string text, const Fault *fault)
{
    static const std::vector<std::pair<std::regex, std::string>> kRules = {
        {std::regex("thread 0x[0-9A-F]{8}"), "thread <thread>"},
        {std::regex("\\[[0-9A-F]{4,16}\\]"), "[<thread>]"},
        {std::regex("(recv|select)\\(-?[0-9]+\\)"), "$1(<fd>)"},
        {std::regex("(socket|closesocket) -?[0-9]+"), "$1 <fd>"},
        {std::regex("(HWS connection to .*:[0-9]: ).*"), "$1<reason>"},
        {std::regex("(thread - )(error|timeout)"), "$1error or timeout"},  // the listener may end in time or not
        {std::regex("(terminated[0-9]) [0-9]+ .*"), "$1 <errno> <text>"}};
    for (const auto &[pattern, replacement] : kRules) {
        text = std::regex_replace(text, pattern, replacement);
    }
    if (fault != nullptr && fault->error.number != 0) {
        // Errors that differ by nothing else belong into one row.
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
        if (!isIdle(text)) {
            messages.push_back(withoutNumbers(text, fault));
        }
    }
    std::ranges::sort(messages);
    messages.erase(std::unique(messages.begin(), messages.end()), messages.end());
    return messages;
}

/// Steps that went otherwise than usual; those that were not come to, where there are none.
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
        ASSERT_TRUE(memory) << "a page without the faults of memory would be half a page";
        reliability::writePartOfPage(name, part);
        GTEST_SKIP() << "wrote " << KVO_RELIABILITY_PAGE << " instead of comparing";
    }
    const std::string page = reliability::partOfPage(name);
    if (memory) {
        EXPECT_EQ(part, page) << "KVO_WRITE_TABLE=1 writes the page anew";
    } else {
        EXPECT_EQ(reliability::withoutMemory(part), reliability::withoutMemory(page));
    }
}

class Journeys : public testing::TestWithParam<std::size_t> {
protected:
    Journeys() : kind_(reliability::journeys()[GetParam()]), calls_(faults::standIns()), journey_(kind_.make()) {}

    Outcome travel(const Fault *fault)
    {
        const Watch watch(fault == nullptr ? kind_.name : describe(kind_, *fault));
        reliability::Run run;
        {
            const support::SyslogCapture capture;
            const auto descriptors = support::descriptorsOpen();
            const auto threads = support::threadsRunning();
            faults::begin(fault);
            journey_->travel(run);
            EXPECT_TRUE(settles(descriptors, threads))
                << support::descriptorsOpen() << " descriptors, " << descriptors << " before; " << support::threadsRunning()
                << " threads, " << threads << " before";
            happened_ = faults::happened();
            run.outcome().messages = messagesOf(capture, fault);
        }
        const support::SyslogCapture forgets;
        return std::move(run.outcome());
    }

    /// Waits for threads on their last steps.
    static bool settles(std::size_t descriptors, std::size_t threads)
    {
        return support::eventually(
            [=] { return support::descriptorsOpen() <= descriptors && support::threadsRunning() <= threads; }, 3s);
    }

    void checkHealth(const Outcome &usual)
    {
        const Outcome healthy = travel(nullptr);
        EXPECT_EQ(changedSteps(usual, healthy) + newMessages(usual, healthy), "") << "after it";
    }

    /// The fault once more, and a journey without it behind, which must be as ever. What was allocated for the first time in a
    /// fault's way stays; what is lost, is lost each time.
    void checkAfter(const Fault &fault, const Outcome &usual)
    {
        constexpr int kMostAttempts = 4;
        std::size_t before = 0;
        std::size_t after = 1;
        for (int attempt = 0; attempt < kMostAttempts && after > before; ++attempt) {
            before = heapBytes();
            travel(&fault);
            checkHealth(usual);
            after = support::FailingAllocations::unavailable() == nullptr ? heapBytes() : before;
        }
        EXPECT_LE(after, before) << "bytes are lost each time";
    }

    /// Returns whether the fault came about.
    bool endure(const Fault &fault, const Outcome &usual)
    {
        SCOPED_TRACE(describe(kind_, fault));
        const Outcome outcome = travel(&fault);
        if (!happened_) {
            return false;
        }
        records_.push_back({fault, changedSteps(usual, outcome), newMessages(usual, outcome)});
        checkAfter(fault, usual);
        return true;
    }

    void endureCalls(const Outcome &usual, const std::vector<Site> &sites)
    {
        for (const Site &site : sites) {
            // How often the library pauses depends on time: its first pause stands for the others, where there is one.
            const bool isPause = site.call == Call::clockNanosleep || site.call == Call::select;
            // Which entry of a folder is read first is up to the file system.
            if ((isPause || site.call == Call::readdir) && site.number > 1) {
                continue;
            }
            for (const Error &error : errorsOf(site.call)) {
                const Fault fault{site, error};
                EXPECT_TRUE(endure(fault, usual) || isPause) << describe(kind_, fault) << " does not come about";
            }
        }
    }

    /// Takes memory away earlier and earlier until the journey no longer needs what it is granted.
    void endureMemory(const Outcome &usual, std::size_t threads)
    {
        if (const char *const reason = support::FailingAllocations::unavailable()) {
            std::printf("without faults of memory: %s\n", reason);
            return;
        }
        if (kind_.endsWithoutMemory) {
            std::puts("without faults of memory: the process ends with them, as the header says");
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
            while (endure({site, errorsOf(Call::memory).front()}, usual)) {
                ASSERT_LT(++site.number, kMost) << "no end of allocations";
            }
        }
    }

    const JourneyKind &kind_;
    const support::MessagesOn messages_;
    const support::WithSystemCalls calls_;
    std::unique_ptr<reliability::Journey> journey_;
    bool happened_ = false;
    std::vector<Record> records_;
};

TEST_P(Journeys, endure_every_fault)
{
    travel(nullptr);
    const Outcome usual = travel(nullptr);
    const std::vector<Site> sites = faults::sites();
    const std::size_t threads = faults::threads();
    ASSERT_EQ(threads + 1, kind_.threads.size());
    ASSERT_FALSE(sites.empty());
    endureCalls(usual, sites);
    endureMemory(usual, threads);
    RecordProperty("faults", static_cast<int>(records_.size()));
    std::printf("%zu faults\n", records_.size());

    compareWithPage(kind_.name, tableOf(kind_, usual, records_));
}

TEST(Faults, are_those_of_the_page) { compareWithPage("errors", reliability::tableOfErrors()); }

INSTANTIATE_TEST_SUITE_P(All, Journeys, testing::Range(std::size_t{0}, reliability::journeys().size()),
                         [](const auto &instance) { return std::string(reliability::journeys()[instance.param].name); });

}  // namespace

/// Bytes in use can be counted exactly only where the allocator keeps no caches of its own, which it reads when it starts.
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
