// Measures how long it takes to load a recording of 100 MB, and how much memory that needs.
#include "common/recording/recording.h"
#include "common/recording/writer.h"
#include "subjects.h"
#include "support/child_cost.h"
#include "support/expect.h"
#include "support/report.h"
#include "support/temporary_file.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>

using namespace std::chrono_literals;

namespace bench {

namespace {

using namespace tools::recording;

constexpr uint64_t kSize = 100'000'000;  // bytes
constexpr double kMostSeconds = 5;
constexpr double kMostMemory = 3;  // times the size of the file
constexpr auto kPeriod = 20ms;     // between requests
constexpr StartTime kStart{1'795'356'000s};

constexpr const char *kPlant[] = {"[[station]]", "address = \"10.0.0.5\"", "name = \"Milling centre 1\"", "mcp_address = 5"};

/// Short requests with short replies: the smaller the lines, the more work and memory for each byte of the file.
constexpr std::array<std::array<const char *, 2>, 4> kRequests{{{"getMCPAddress=0A000005\n", "mcpaddr=5\n"},
                                                                {"isViewerActive=0A000005\n", "not active\n"},
                                                                {"getVersion\n", "V01.00.00.00\n"},
                                                                {"setBrightness=1 0A000005\n", "ok\n"}}};

/// Returns the number of exchanges.
std::size_t write(const std::string &path)
{
    Writer writer(path, {.force = true, .maxSize = {}}, kStart);
    for (const char *line : kPlant) {
        writer.add(PlantLine{line});
    }
    const unsigned program = writer.numberOf(4711, "panel");
    std::size_t count = 0;
    for (; writer.size() < kSize; ++count) {
        const auto &[request, reply] = kRequests.at(count % kRequests.size());
        writer.add(Exchange{.at = kPeriod * static_cast<int64_t>(count),
                            .kind = Kind::ask,
                            .process = program,
                            .request = {{0us, request}},
                            .requestEnded = false,
                            .reply = {{312us, reply}},
                            .end = End::closed,
                            .endPause = 0us});
    }
    writer.flush();
    return count;
}

/// The child with the median time, of three.
template <class Measure>
ChildCost medianCost(const Measure &measure)
{
    std::array<ChildCost, 3> costs{measure(), measure(), measure()};
    std::ranges::sort(costs, {}, &ChildCost::seconds);
    return costs[1];
}

/// Returns the figures, and whether the goal is met.
std::pair<std::string, bool> figuresOf(const ChildCost &cost, uint64_t size)
{
    const double memory = static_cast<double>(cost.mostResidentKilobytes) * 1024 / static_cast<double>(size);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%5.2f s, %4.2f times its size in memory", cost.seconds, memory);
    return {text.data(), cost.seconds <= kMostSeconds && memory <= kMostMemory};
}

}  // namespace

void measureLoading()
{
    const TemporaryFile file;
    const std::string path = file.path();
    const std::size_t count = write(path);
    const uint64_t size = std::filesystem::file_size(path);
    std::printf("\nA recording of %.0f MB, %zu exchanges\n", static_cast<double>(size) / 1e6, count);

    const auto load = [&] { expect(Recording::load(path).size() == count, "lines are missing"); };
    const auto [loaded, isMet] = figuresOf(medianCost([&] { return costOf(load); }), size);
    printFigure("loaded and checked", loaded, "<= 5 s, 3 times", isMet);

    const auto replay = [&] { return costOfProgram({KVOSIM_PROGRAM, "replay", path, "--", "true"}); };
    const auto [replayed, isReplayMet] = figuresOf(medianCost(replay), size);
    printFigure("kvosim replay, until programs can ask", replayed, "<= 5 s, 3 times", isReplayMet);

    const auto compare = [&] { return costOfProgram({KVOSIM_PROGRAM, "compare", path}); };
    std::printf("%-38s %s\n", "kvosim compare, with all requests", figuresOf(medianCost(compare), size).first.c_str());
}

}  // namespace bench
