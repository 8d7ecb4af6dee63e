// The soak run: everything that the library does, at once and for long, beside a simulated service that misbehaves. Run it inside
// "kvosim run --remote 3"; scripts/soak.sh does. Whatever it finds is a complaint, and makes the exit status 1.
#include "load_driver.h"
#include "host.h"
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
using soak::ProcessShare;
using soak::Program;
using soak::Share;

constexpr auto kLookAround = 100ms;
constexpr auto kEndTime = 60s;            // for a program to come to rest or to its end, beside what it waits for
constexpr double kMemoryJudgedFrom = 60;  // seconds
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

Share &makeShare()
{
    void *const memory = mmap(nullptr, sizeof(Share), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::runtime_error("no shared memory");
    }
    return *new (memory) Share;
}

/// Signals that a program under test may get at any time: they interrupt what they meet and do nothing else.
void standSignals()
{
    struct sigaction nothing {};
    nothing.sa_handler = [](int) {};
    for (const int signal : {SIGUSR1, SIGALRM, SIGWINCH}) {
        sigaction(signal, &nothing, nullptr);
    }
}

/// A process of this program that works until the run is over.
template <class Run>
void startProgram(Share &share, Program program, const char *name, Run run)
{
    ProcessShare &place = share.processes[program];
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
    Run(Share &share, const Options &options) : share_(share), options_(options) {}
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;
    ~Run()
    {
        for (const Program program : kPrograms) {
            if (share_.processes[program].process != 0) {
                kill(share_.processes[program].process, SIGKILL);
                waitpid(share_.processes[program].process, nullptr, 0);
            }
        }
    }

    /// False where it had to be broken off.
    bool carryOut()
    {
        start_ = Clock::now();
        return awaitRest(soak::kAtStart) && work(options_.warmUp) && awaitRest(soak::kAfterWarmUp) &&
               work(options_.seconds - options_.warmUp) && awaitRest(soak::kAtEnd) && awaitEnds();
    }

private:
    bool awaitRest(int moment)
    {
        const auto atRest = [&] {
            return std::all_of(std::begin(kPrograms), std::end(kPrograms),
                               [&](Program program) { return share_.processes[program].measured.load() > moment; });
        };
        return await(atRest, "did not come to rest");
    }

    bool awaitEnds()
    {
        ++share_.resumed;
        // Those that end now do what is asked of them.
        ending_ = true;
        const auto ended = [&] {
            return std::all_of(std::begin(kPrograms), std::end(kPrograms),
                               [&](Program program) { return share_.processes[program].process.load() == 0; });
        };
        return await(ended, "did not end");
    }

    template <class Condition>
    bool await(Condition condition, const char *complaint)
    {
        const auto until = Clock::now() + kEndTime + std::chrono::seconds(options_.patience);
        while (!condition()) {
            if (!lookAround()) {
                return false;
            }
            if (Clock::now() > until) {
                share_.complaints.add(std::string("a program ") + complaint);
                return false;
            }
        }
        return true;
    }

    bool work(double seconds)
    {
        ++share_.resumed;
        const auto until = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        while (Clock::now() < until) {
            if (!lookAround()) {
                return false;
            }
            tellProgress();
        }
        ++share_.rests;
        return true;
    }

    /// False where going on makes no sense.
    bool lookAround()
    {
        std::this_thread::sleep_for(kLookAround);
        for (const Program program : kPrograms) {
            lookAtEnd(share_.processes[program]);
            sample(share_.processes[program]);
        }
        for (ProcessShare &process : share_.processes) {
            lookAtWatches(process);
        }
        return !broken_;
    }

    void lookAtEnd(ProcessShare &process)
    {
        int status = 0;
        if (process.process == 0 || waitpid(process.process, &status, WNOHANG) <= 0) {
            return;
        }
        process.process = 0;
        if (ending_ && status == 0) {
            return;
        }
        broken_ = true;
        share_.complaints.add(std::string(process.name) + (WIFSIGNALED(status)
                                                               ? ": ended by signal " + std::to_string(WTERMSIG(status))
                                                               : ": ended with status " + std::to_string(WEXITSTATUS(status))));
    }

    static void sample(ProcessShare &process)
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
        soak::raise(process.most.descriptors, entries("/fd"));
        soak::raise(process.most.threads, entries("/task"));
        uint64_t whole = 0;
        uint64_t resident = 0;
        std::ifstream(place + "/statm") >> whole >> resident;
        soak::raise(process.most.residentBytes, resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)));
    }

    void lookAtWatches(const ProcessShare &process)
    {
        for (const soak::Watch &watch : process.watches) {
            const int64_t since = watch.since;
            if (since == 0 || soak::nowMilliseconds() - since < int64_t{options_.patience} * 1000) {
                continue;
            }
            broken_ = true;
            share_.complaints.add(std::string(process.name) + ", " + watch.worker.load() + ": " + watch.call.load() +
                                  " has not returned for " + std::to_string(options_.patience) + " s");
        }
    }

    void tellProgress()
    {
        const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(Clock::now() - start_).count();
        if (minutes > toldMinutes_) {
            toldMinutes_ = minutes;
            uint64_t requests = 0;
            for (const soak::Results &results : share_.figures.requests) {
                requests += results.all();
            }
            std::fprintf(stderr, "soak: %d minutes, %llu requests, %llu USB events, %u complaints\n", static_cast<int>(minutes),
                         static_cast<unsigned long long>(requests),
                         static_cast<unsigned long long>(share_.figures.usbEventsReceived.load()), share_.complaints.count());
        }
    }

    Share &share_;
    const Options &options_;
    Clock::time_point start_;
    int64_t toldMinutes_ = 0;
    bool ending_ = false;
    bool broken_ = false;
};

int soakFor(const Options &options)
{
    Share &share = makeShare();
    standSignals();
    soak::RunSummary summary{.seed = options.seed,
                             .memoryIsJudged = !kSanitized && options.seconds - options.warmUp >= kMemoryJudgedFrom};
    std::fprintf(stderr, "soak: %.0f s, %.0f of them to warm up, seed %llu\n", options.seconds, options.warmUp,
                 static_cast<unsigned long long>(options.seed));
    share.processes[soak::kConductor].name = "conductor";
    // Forked before there is a thread here.
    startProgram(share, soak::kHost, "host", [&] { soak::runHost(share, options.seed); });
    startProgram(share, soak::kUsbOne, "usb 1", [&] { soak::runUsbProgram(share, soak::kUsbOne, options.seed); });
    startProgram(share, soak::kUsbTwo, "usb 2", [&] { soak::runUsbProgram(share, soak::kUsbTwo, options.seed); });
    const auto start = Clock::now();
    {
        Run run(share, options);
        soak::Conductor conductor(share, options.seed, options.session);
        summary.complete = run.carryOut();
        share.rests = soak::kMoments;
        share.resumed = soak::kMoments;  // for the conductor's threads, where the run was broken off
    }
    summary.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    soak::judge(share, summary);
    std::cout << (options.json ? asJson(share, summary) : asText(share, summary)) << std::flush;
    return share.complaints.count() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv)
{
    Options options;
    CLI::App app("Works the library hard for a time, and tells whether it has held.", "kvo_soak");
    app.add_option("--seconds", options.seconds, "How long (default: 1200)")->check(CLI::Range(3.0, 1e6));
    app.add_option("--warm-up", options.warmUp,
                   "Seconds of them before the resource usage is judged (default: a fifth, at most 120)");
    app.add_option("--seed", options.seed, "Of the random numbers (default: another one each time; it is printed)");
    app.add_option("--patience", options.patience, "Seconds after which a call counts as unanswered (default: 30)");
    app.add_option("--session", options.session, "The agent's, which the simulator serves (default: 3)");
    app.add_flag("--json", options.json, "Prints the figures as JSON, with those of each request");
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
