// The soak run: uses all functions of the library at once and for a long time, with a simulated service that misbehaves. Run it
// inside "kvosim run --remote 3", as scripts/soak.sh does. Every finding is a complaint; with complaints, the exit status is 1.
#include "host.h"
#include "load_driver.h"
#include "report.h"
#include "usb_program.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <random>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

using soak::Clock;
using soak::ProcessState;
using soak::Program;
using soak::SharedState;

constexpr auto kPollInterval = 100ms;
constexpr auto kEndTimeout = 60s;  // for a program to reach a checkpoint or to end, in addition to the timeout of a call
constexpr double kMemoryCheckedFrom = 60;  // seconds
constexpr Program kPrograms[] = {soak::kHost, soak::kUsbOne, soak::kUsbTwo};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

struct Options {
    double seconds = 1200;
    double warmUp = 0;
    uint64_t seed = 0;
    uint32_t patience = 30;  // seconds
    unsigned session = 3;
    bool json = false;
};

SharedState &makeSharedState()
{
    void *const memory = mmap(nullptr, sizeof(SharedState), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::runtime_error("cannot allocate shared memory");
    }
    return *new (memory) SharedState;
}

/// Installs empty handlers for the signals of the load driver, which then only interrupt system calls.
void installSignalHandlers()
{
    struct sigaction nothing {};
    nothing.sa_handler = [](int) {};
    for (const int signal : {SIGUSR1, SIGALRM, SIGWINCH}) {
        sigaction(signal, &nothing, nullptr);
    }
}

/// Starts a process that runs until the end of the soak run.
template <class Run>
void startProgram(SharedState &shared, Program program, const char *name, Run run)
{
    ProcessState &place = shared.processes[program];
    place.name = name;
    const pid_t process = fork();
    if (process < 0) {
        throw std::runtime_error("fork failed");
    }
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        run();
        std::exit(0);
    }
    place.process = process;
}

class Run {
public:
    Run(SharedState &shared, const Options &options) : shared_(shared), options_(options) {}
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;
    ~Run()
    {
        for (const Program program : kPrograms) {
            if (shared_.processes[program].process != 0) {
                kill(shared_.processes[program].process, SIGKILL);
                waitpid(shared_.processes[program].process, nullptr, 0);
            }
        }
    }

    /// Returns false if the run was aborted.
    bool execute()
    {
        start_ = Clock::now();
        return awaitCheckpoint(soak::kAtStart) && work(options_.warmUp) && awaitCheckpoint(soak::kAfterWarmUp) &&
               work(options_.seconds - options_.warmUp) && awaitCheckpoint(soak::kAtEnd) && awaitEnds();
    }

private:
    bool awaitCheckpoint(int checkpoint)
    {
        const auto reached = [&] {
            return std::all_of(std::begin(kPrograms), std::end(kPrograms),
                               [&](Program program) { return shared_.processes[program].measured.load() > checkpoint; });
        };
        return await(reached, "did not reach a checkpoint");
    }

    bool awaitEnds()
    {
        ++shared_.checkpointsPassed;
        // From here on, programs may end.
        ending_ = true;
        const auto ended = [&] {
            return std::all_of(std::begin(kPrograms), std::end(kPrograms),
                               [&](Program program) { return shared_.processes[program].process.load() == 0; });
        };
        return await(ended, "did not end");
    }

    template <class Condition>
    bool await(Condition condition, const char *complaint)
    {
        const auto until = Clock::now() + kEndTimeout + std::chrono::seconds(options_.patience);
        while (!condition()) {
            if (!checkPrograms()) {
                return false;
            }
            if (Clock::now() > until) {
                shared_.complaints.add(std::string("a program ") + complaint);
                return false;
            }
        }
        return true;
    }

    bool work(double seconds)
    {
        ++shared_.checkpointsPassed;
        const auto until = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        while (Clock::now() < until) {
            if (!checkPrograms()) {
                return false;
            }
            printProgress();
        }
        ++shared_.checkpointsRequested;
        return true;
    }

    /// Checks all programs. Returns false if the run must be aborted.
    bool checkPrograms()
    {
        std::this_thread::sleep_for(kPollInterval);
        for (const Program program : kPrograms) {
            checkForEnd(shared_.processes[program]);
            sample(shared_.processes[program]);
        }
        for (ProcessState &process : shared_.processes) {
            checkCalls(process);
        }
        return !aborted_;
    }

    void checkForEnd(ProcessState &process)
    {
        int status = 0;
        if (process.process == 0 || waitpid(process.process, &status, WNOHANG) <= 0) {
            return;
        }
        process.process = 0;
        if (ending_ && status == 0) {
            return;
        }
        aborted_ = true;
        shared_.complaints.add(std::string(process.name) +
                               (WIFSIGNALED(status) ? ": ended by signal " + std::to_string(WTERMSIG(status))
                                                    : ": ended with status " + std::to_string(WEXITSTATUS(status))));
    }

    static void sample(ProcessState &process)
    {
        if (process.process == 0) {
            return;
        }
        const std::string place = "/proc/" + std::to_string(process.process);
        const auto entries = [&](const char *folder) {
            std::error_code gone;
            const std::filesystem::directory_iterator all(place + folder, gone);
            return static_cast<uint64_t>(std::distance(begin(all), end(all)));
        };
        soak::raise(process.peak.descriptors, entries("/fd"));
        soak::raise(process.peak.threads, entries("/task"));
        uint64_t whole = 0;
        uint64_t resident = 0;
        std::ifstream(place + "/statm") >> whole >> resident;
        soak::raise(process.peak.residentBytes, resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)));
    }

    void checkCalls(const ProcessState &process)
    {
        for (const soak::Watch &watch : process.watches) {
            const int64_t since = watch.since;
            if (since == 0 || soak::nowMilliseconds() - since < int64_t{options_.patience} * 1000) {
                continue;
            }
            aborted_ = true;
            shared_.complaints.add(std::string(process.name) + ", " + watch.worker.load() + ": " + watch.call.load() +
                                   " has not returned for " + std::to_string(options_.patience) + " s");
        }
    }

    void printProgress()
    {
        const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(Clock::now() - start_).count();
        if (minutes > printedMinutes_) {
            printedMinutes_ = minutes;
            uint64_t requests = 0;
            for (const soak::Results &results : shared_.figures.requests) {
                requests += results.all();
            }
            std::fprintf(stderr, "soak: %d minutes, %llu requests, %llu USB events, %u complaints\n", static_cast<int>(minutes),
                         static_cast<unsigned long long>(requests),
                         static_cast<unsigned long long>(shared_.figures.usbEventsReceived.load()), shared_.complaints.count());
        }
    }

    SharedState &shared_;
    const Options &options_;
    Clock::time_point start_;
    int64_t printedMinutes_ = 0;
    bool ending_ = false;
    bool aborted_ = false;
};

int soakFor(const Options &options)
{
    SharedState &shared = makeSharedState();
    installSignalHandlers();
    soak::RunSummary summary{.seed = options.seed,
                             .memoryIsChecked = !kSanitized && options.seconds - options.warmUp >= kMemoryCheckedFrom};
    std::fprintf(stderr, "soak: %.0f s with %.0f s of warm-up, seed %llu\n", options.seconds, options.warmUp,
                 static_cast<unsigned long long>(options.seed));
    shared.processes[soak::kLoadDriver].name = "load driver";
    // Fork before this process starts threads.
    startProgram(shared, soak::kHost, "host", [&] { soak::runHost(shared, options.seed); });
    startProgram(shared, soak::kUsbOne, "usb 1", [&] { soak::runUsbProgram(shared, soak::kUsbOne, options.seed); });
    startProgram(shared, soak::kUsbTwo, "usb 2", [&] { soak::runUsbProgram(shared, soak::kUsbTwo, options.seed); });
    const auto start = Clock::now();
    {
        Run run(shared, options);
        soak::LoadDriver loadDriver(shared, options.seed, options.session);
        summary.complete = run.execute();
        shared.checkpointsRequested = soak::kCheckpoints;
        shared.checkpointsPassed = soak::kCheckpoints;  // stops the load driver's threads if the run was aborted
    }
    summary.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    soak::check(shared, summary);
    std::cout << (options.json ? asJson(shared, summary) : asText(shared, summary)) << std::flush;
    return shared.complaints.count() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv)
{
    Options options;
    CLI::App app("Stress-tests the library and reports whether it passed.", "kvo_soak");
    app.add_option("--seconds", options.seconds, "Length of the run (default: 1200)")->check(CLI::Range(3.0, 1e6));
    app.add_option("--warm-up", options.warmUp,
                   "Seconds before the resource usage is checked (default: a fifth of the run, at most 120)");
    app.add_option("--seed", options.seed, "Seed of the random numbers (default: a new one for each run, which is printed)");
    app.add_option("--patience", options.patience, "Seconds after which a call counts as unanswered (default: 30)");
    app.add_option("--session", options.session, "Session of the agent, which the simulator serves (default: 3)");
    app.add_flag("--json", options.json, "Print the figures as JSON, including those of each request");
    CLI11_PARSE(app, argc, argv);
    if (options.seed == 0) {
        options.seed = std::random_device{}() % 1'000'000 + 1;
    }
    if (options.warmUp <= 0 || options.warmUp >= options.seconds) {
        options.warmUp = std::min(120.0, options.seconds / 5);
    }
    try {
        return soakFor(options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return 1;
    }
}
