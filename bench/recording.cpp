// Measures a recording of 50 requests per second with replies of up to 64 bytes: its size, and the resources of the tap that
// writes it.
#include "baseline/baseline.h"
#include "subjects.h"
#include "support/expect.h"
#include "support/recording_tap.h"
#include "support/report.h"
#include "support/resource_usage.h"
#include "support/service_process.h"
#include "support/temporary_file.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

using namespace std::chrono_literals;

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRequestsPerSecond = 50;
constexpr auto kPeriod = 1000ms / kRequestsPerSecond;
constexpr auto kWarmUp = 60s;
constexpr double kMostMegabytesPerHour = 20;
constexpr double kMostGrowth = 1.10;

constexpr std::size_t kShortestReply = 2;  // with the line feed
constexpr std::size_t kLongestReply = 64;

std::chrono::seconds gLength{15};

/// Replies of all lengths, to requests of two lengths.
ServiceProcess::Replies makeReplies()
{
    ServiceProcess::Replies replies;
    for (std::size_t length = kShortestReply; length <= kLongestReply; ++length) {
        std::array<char, 32> command{};
        std::snprintf(command.data(), command.size(), length % 2 == 0 ? "showInputDevice=%08zX" : "reboot=%08zX", length);
        replies[command.data()] = std::string(length - 1, 'x');
    }
    return replies;
}

/// Makes the requests of one run, at a steady rate.
class Requests {
public:
    explicit Requests(ServiceProcess::Replies replies) : replies_(std::move(replies)) {}

    void makeUntil(Clock::time_point end)
    {
        for (; next_ < end; next_ += kPeriod) {
            std::this_thread::sleep_until(next_);
            char reply[baseline::kLineSize];
            expect(baseline::exchange((request_->first + '\n').c_str(), reply) && reply == request_->second,
                   "a request failed");
            ++count_;
            if (++request_ == replies_.end()) {
                request_ = replies_.begin();
            }
        }
        std::this_thread::sleep_until(end);  // the tap has closed its connections
    }

    [[nodiscard]] std::size_t count() const { return count_; }

private:
    ServiceProcess::Replies replies_;
    ServiceProcess::Replies::const_iterator request_ = replies_.begin();
    Clock::time_point next_ = Clock::now();
    std::size_t count_ = 0;
};

std::string change(uint64_t from, uint64_t to) { return std::to_string(from) + " -> " + std::to_string(to); }

double megabytesPerHour(double bytes) { return bytes * kRequestsPerSecond * 3600 / 1e6; }

std::string perHour(double bytes)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.1f bytes, %.1f MB per hour", bytes, megabytesPerHour(bytes));
    return text.data();
}

void printSize(const std::string &recording, std::size_t exchanges)
{
    const double mean = static_cast<double>(std::filesystem::file_size(recording)) / static_cast<double>(exchanges);
    printFigure("an exchange, mean of " + std::to_string(exchanges), perHour(mean), "<= 20 MB",
                megabytesPerHour(mean) <= kMostMegabytesPerHour);
    std::size_t longest = 0;
    std::ifstream file(recording);
    for (std::string line; std::getline(file, line);) {
        longest = std::max(longest, line.size() + 1);
    }
    std::printf("%-38s %s\n", "the longest exchange", perHour(static_cast<double>(longest)).c_str());
}

}  // namespace

void setRecordingLength(std::chrono::seconds length) { gLength = length; }

void measureRecording()
{
    const ServiceProcess service(makeReplies());
    const TemporaryFile recording;
    const RecordingTap tap(recording.path());
    const auto start = Clock::now();
    const bool isLong = gLength >= 2 * kWarmUp;
    const std::chrono::milliseconds warmUp =
        isLong ? std::chrono::milliseconds(kWarmUp) : std::chrono::milliseconds(gLength) / 5;

    Requests requests(makeReplies());
    requests.makeUntil(start + warmUp);
    const ResourceUsage before = resourceUsageOf(tap.process());
    requests.makeUntil(start + gLength);
    const ResourceUsage after = resourceUsageOf(tap.process());
    tap.expectExchanges(requests.count());

    std::printf("\nA recording of %d s, %d requests per second\n", static_cast<int>(gLength.count()), kRequestsPerSecond);
    printSize(recording.path(), requests.count());
    printFigure("descriptors of the tap", change(before.descriptors, after.descriptors), "unchanged",
                before.descriptors == after.descriptors);
    const std::string memory = change(before.residentKilobytes, after.residentKilobytes) + " kB";
    if (isLong) {
        printFigure("resident memory after 60 s and later", memory, "<= 1.10 times",
                    static_cast<double>(after.residentKilobytes) <=
                        kMostGrowth * static_cast<double>(before.residentKilobytes));
    } else {
        std::printf("%-38s %s   (no goal: the run takes less than two minutes)\n", "resident memory", memory.c_str());
    }
}

}  // namespace bench
