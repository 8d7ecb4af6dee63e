// kvo_bench [SUBJECT...]: compares the library with a baseline that does the same work, and prints ratios with their goals.
#include "common/private_namespace.h"
#include "subjects.h"
#include "support/pinning.h"
#include "support/report.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Subject {
    std::string_view name;
    void (*measure)();
    bool needsService;
};

constexpr Subject kSubjects[] = {
    {"exchange", bench::measureExchange, true}, {"lists", bench::measureListExchange, true},
    {"reading", bench::measureReading, false},  {"writing", bench::measureWriting, false},
    {"usb", bench::measureUsbEvents, true},     {"agent", bench::measureAgent, true},
    {"plant", bench::measurePlant, false},
};

int usage()
{
    std::fprintf(stderr, "usage: kvo_bench [SUBJECT...]\nsubjects:");
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
    const std::set<std::string_view> names(argv + 1, argv + argc);
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
