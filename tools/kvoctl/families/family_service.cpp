// Subcommands about the service itself.
#include "kvoctl/command_line/arguments.h"
#include "kvoctl/families/families.h"

#include <kvo_hws/result.h>
#include <kvo_hws/service.h>

#include <array>
#include <chrono>
#include <thread>

using namespace std::chrono_literals;

namespace kvoctl {

namespace {

using Column = Table::Column;

// ---- kvoctl version ----

/// Far longer than any version. A retry with a larger buffer is impossible, because the library reports a longer text in the
/// same way as a refusal.
constexpr std::size_t kVersionSize = 4096;

std::string version(Request<char *, unsigned *> request)
{
    std::array<char, kVersionSize> text{};
    unsigned size = text.size();
    require(request(text.data(), &size));
    return text.data();
}

Action setUpVersion(CLI::App & /*command*/)
{
    return [] {
        const std::string library = version(KVO_REQUEST(KVO_HWS_getDLLVersion));
        Report report{.document = {{"library", library}, {"service", nullptr}},
                      .table = Table({Column::text, Column::text}),
                      .line = explainLibraryVersion()};
        report.table->add({"library", library});
        try {
            const std::string service = version(KVO_REQUEST(KVO_HWS_getKVOHWSVersion));
            report.document["service"] = service;
            report.table->add({"service", service});
        } catch (const Failure &failure) {
            if (exitOf(failure) != Exit::noService) {
                throw;
            }
            report.table->add({"service", std::string("(") + failure.what() + ")"});
        }
        return report;
    };
}

// ---- kvoctl ready ----

constexpr auto kReadyPause = 100ms;

/// Waits until the service answers, because it may be about to start, and until it is ready.
Result waitUntilReady(std::chrono::seconds longest)
{
    const auto deadline = std::chrono::steady_clock::now() + longest;
    for (;;) {
        const Result ready = KVO_REQUEST(KVO_HWS_isInitComplete)();
        const auto left = deadline - std::chrono::steady_clock::now();
        if ((ready.code != KVO_HWS_NO && ready.code != KVO_HWS_NO_SERVICE) || left <= 0s) {
            return ready;
        }
        std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(kReadyPause, left));
    }
}

Action setUpReady(CLI::App &command)
{
    const auto longest = addSeconds(command, "--wait", "Wait until the service is ready, at most SECONDS", 0);
    return [=] {
        const Result ready = waitUntilReady(std::chrono::seconds(*longest.value));
        if (ready.code == KVO_HWS_NO) {
            return Report{.document = {{"ready", false}}, .line = "not ready", .exit = Exit::no};
        }
        require(ready);
        return Report{.document = {{"ready", true}}, .line = "ready"};
    };
}

// ---- kvoctl debug-level ----

constexpr std::array kDebugLevels{"none", "I", "II"};

Report debugLevel()
{
    const Result level = KVO_REQUEST(KVO_HWS_getDebugLevel)();
    if (level.code < 0) {
        require(level);
    }
    return {.document = {{"debug_level", level.code}}, .line = kDebugLevels.at(static_cast<std::size_t>(level.code))};
}

Action setUpDebugLevel(CLI::App &command)
{
    const Words words{{"none", 0}, {"1", 1}, {"2", 2}, {"I", 1}, {"II", 2}};
    auto level = std::make_shared<int>();
    auto *given = command.add_option("LEVEL", *level, "none, 1 or I, 2 or II; omit it to show the level")
                      ->transform(oneOf(words))
                      ->type_name("");
    completeWords(given, words);
    return [=] { return given->count() > 0 ? reportDone(KVO_REQUEST(KVO_HWS_setDebugLevel)(*level)) : debugLevel(); };
}

// ---- kvoctl registry ----

Action setUpRegistryLock(CLI::App & /*command*/)
{
    return [] { return reportDone(tools::distinguishMissingService(KVO_REQUEST(KVO_HWS_lockKVORegData)())); };
}

Action setUpRegistryUnlock(CLI::App & /*command*/)
{
    return [] { return reportDone(tools::distinguishMissingService(KVO_REQUEST(KVO_HWS_unlockKVORegData)())); };
}

// ---- kvoctl kill-daemon ----

Action setUpKillDaemon(CLI::App & /*command*/)
{
    return [] { return reportDone(KVO_REQUEST(KVO_HWS_killDaemon)()); };
}

}  // namespace

void addServiceCommands(CommandLine &commandLine)
{
    Family service(commandLine, "Service");
    service.add("version", "Show the library's and the service's version", {""}, setUpVersion);
    service.add("ready", "Show whether the service has finished starting", {"", "--wait 30"}, setUpReady);
    service.add("debug-level", "Show or set the service's debug level", {"", "II"}, setUpDebugLevel);
    service.add("kill-daemon", "Make the service exit", {""}, setUpKillDaemon);

    Family registry(commandLine, "Service", "registry", "The lock on the service's registry files");
    registry.add("lock", "Acquire the lock; release it with \"unlock\" afterwards", {""}, setUpRegistryLock);
    registry.add("unlock", "Release the lock, even if another program has acquired it", {""}, setUpRegistryUnlock);
}

}  // namespace kvoctl
