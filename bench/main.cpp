// kvo_bench [--seconds N] [SUBJECT...]: compares the library with a baseline that does the same work, and prints ratios with their
// goals. N is the length of the subject "recording".
#include "common/private_namespace.h"
#include "subjects.h"
#include "support/pinning.h"
#include "support/report.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <iterator>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

struct Subject {
    std::string_view name;
    void (*measure)();
    bool needsService;
};

constexpr Subject kSubjects[] = {
    {"exchange", bench::measureExchange, true},
    {"lists", bench::measureListExchange, true},
    {"reading", bench::measureReading, false},
    {"writing", bench::measureWriting, false},
    {"usb", bench::measureUsbEvents, true},
    {"agent", bench::measureAgent, true},
    {"plant", bench::measurePlant, false},
    {"tap", bench::measureTap, true},
    {"recording", bench::measureRecording, true},
    {"loading", bench::measureLoading, false},
    {"cpp", bench::measureCpp, true},
    {"requests", bench::measureRequests, true},
};

bool setRecordingLength(std::string_view text)
{
    constexpr int kLongest = 86'400;
    int seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    bench::setRecordingLength(std::chrono::seconds(seconds));
    return error == std::errc() && end == text.data() + text.size() && seconds >= 1 && seconds <= kLongest;
}

int usage()
{
    std::fprintf(stderr, "usage: kvo_bench [--seconds N] [SUBJECT...]\nN: length of the recording, from 1 to 86400\nsubjects:");
    for (const Subject &subject : kSubjects) {
        std::fprintf(stderr, " %s", std::string(subject.name).c_str());
    }
    std::fprintf(stderr, " (default: all)\n");
    return 2;
}

std::vector<Subject> subjectsOf(const std::set<std::string_view> &names)
{
    std::vector<Subject> subjects;
    std::ranges::copy_if(kSubjects, std::back_inserter(subjects),
                         [&](const Subject &subject) { return names.empty() || names.contains(subject.name); });
    return subjects;
}

void measure(const std::vector<Subject> &subjects)
{
    const int core = bench::pinToOneCore();
    std::optional<tools::PrivateNamespace> place;
    if (std::ranges::any_of(subjects, &Subject::needsService)) {
        place.emplace();
    }
    std::printf("Medians on core %d; ratio: library / other; minima: the same ratio of the fastest samples\n", core);
    for (const Subject &subject : subjects) {
        subject.measure();
    }
    std::printf("\ngoals missed: %d\n", bench::missedGoals());
}

}  // namespace

int main(int argc, char **argv)
{
    std::span<char *> arguments(argv + 1, argv + argc);
    if (arguments.size() >= 2 && arguments[0] == std::string_view("--seconds")) {
        if (!setRecordingLength(arguments[1])) {
            return usage();
        }
        arguments = arguments.subspan(2);
    }
    const std::set<std::string_view> names(arguments.begin(), arguments.end());
    const std::vector<Subject> subjects = subjectsOf(names);
    if (!names.empty() && subjects.size() != names.size()) {
        return usage();
    }
    try {
        measure(subjects);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "kvo_bench: %s\n", error.what());
        return 1;
    }
    return 0;  // a missed goal is not a failure: machines differ
}
