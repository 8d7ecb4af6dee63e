// The table that a run prints: one row per comparison, with its goal and whether it was met.
#pragma once

#include "support/comparison.h"

#include <optional>
#include <string>
#include <vector>

namespace bench {

/// Prints the column headings of the rows that follow. @p measured  what is compared
void printHeading(const std::string &subject, const std::string &measured = "library");

/// Prints the library's time next to another one. @p goal is the largest acceptable ratio of the medians; a row without a goal
/// is only information.
void printRow(const std::string &work, const Timing &library, const std::string &otherName, const Timing &other,
              std::optional<double> goal = std::nullopt);

/// Prints the library's rate next to another one. @p goal is the smallest acceptable ratio; a row without a goal is only
/// information.
void printRates(const std::string &work, double library, const std::string &otherName, double other,
                std::optional<double> goal = std::nullopt);

/// A ratio of two times that were measured in pairs: its median, and the interval that contains the true median with 95 %
/// confidence.
struct Ratio {
    double median;
    double from;
    double to;
};

/// The ratio of the pairs first[i] / second[i].
Ratio ratioOfPairs(const std::vector<double> &first, const std::vector<double> &second);

/// Prints a ratio with its interval. @p goal is the largest acceptable median; a row without a goal is only information.
void printRatio(const std::string &work, const Ratio &ratio, std::optional<double> goal = std::nullopt);

/// Prints a single figure with its goal.
void printFigure(const std::string &what, const std::string &figure, const std::string &goal, bool met);

/// The number of goals missed so far.
int missedGoals();

}  // namespace bench
