#include "support/report.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <functional>

namespace bench {

namespace {

int gMissed = 0;

const char *verdict(bool met)
{
    gMissed += met ? 0 : 1;
    return met ? "met" : "MISSED";
}

std::string duration(double nanoseconds)
{
    constexpr double kThousand = 1000;
    const char *unit = "ns";
    if (nanoseconds >= kThousand * kThousand) {
        nanoseconds /= kThousand * kThousand;
        unit = "ms";
    } else if (nanoseconds >= kThousand) {
        nanoseconds /= kThousand;
        unit = "us";
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.*f %s", nanoseconds < 100 ? 2 : 1, nanoseconds, unit);
    return text;
}

}  // namespace

void printHeading(const std::string &subject, const std::string &measured)
{
    std::printf("\n%-38s %10s   %-22s %10s %7s %7s   %s\n", subject.c_str(), measured.c_str(), "compared with", "its time",
                "ratio", "minima", "goal");
    std::fflush(stdout);
}

void printRow(const std::string &work, const Timing &library, const std::string &otherName, const Timing &other,
              std::optional<double> goal)
{
    const double ratio = library.median / other.median;
    std::printf("%-38s %10s   %-22s %10s %7.3f %7.3f", work.c_str(), duration(library.median).c_str(), otherName.c_str(),
                duration(other.median).c_str(), ratio, library.least / other.least);
    if (goal) {
        std::printf("   <= %.2f  %s", *goal, verdict(ratio <= *goal));
    }
    std::printf("\n");
    std::fflush(stdout);
}

void printRates(const std::string &work, double library, const std::string &otherName, double other, std::optional<double> goal)
{
    const double ratio = library / other;
    std::printf("%-38s %10.0f   %-22s %10.0f %7.3f", work.c_str(), library, otherName.c_str(), other, ratio);
    if (goal) {
        std::printf(" %7s   >= %.2f  %s", "", *goal, verdict(ratio >= *goal));
    }
    std::printf("\n");
    std::fflush(stdout);
}

Ratio ratioOfPairs(const std::vector<double> &first, const std::vector<double> &second)
{
    std::vector<double> ratios(first.size());
    std::ranges::transform(first, second, ratios.begin(), std::divides());
    std::ranges::sort(ratios);
    // The ranks between which the median of a population lies, whatever its distribution is.
    const auto count = static_cast<double>(ratios.size());
    const auto below = static_cast<std::size_t>(std::max(0.0, std::floor((count - 1.96 * std::sqrt(count)) / 2)));
    return {ratios[ratios.size() / 2], ratios[below], ratios[ratios.size() - 1 - below]};
}

void printRatio(const std::string &work, const Ratio &ratio, std::optional<double> goal)
{
    std::printf("%-38s ratio %.3f, 95 %% interval %.3f to %.3f", work.c_str(), ratio.median, ratio.from, ratio.to);
    if (goal) {
        std::printf("   <= %.2f  %s", *goal, verdict(ratio.median <= *goal));
    }
    std::printf("\n");
    std::fflush(stdout);
}

void printFigure(const std::string &what, const std::string &figure, const std::string &goal, bool met)
{
    std::printf("%-38s %s   %s  %s\n", what.c_str(), figure.c_str(), goal.c_str(), verdict(met));
    std::fflush(stdout);
}

int missedGoals() { return gMissed; }

}  // namespace bench
