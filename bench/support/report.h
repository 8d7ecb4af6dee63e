// The table that a run prints: one row per comparison, with its goal and whether it was met.
#pragma once

#include "support/comparison.h"

#include <optional>
#include <string>

namespace bench {

/// Prints the column headings of the rows that follow.
void printHeading(const std::string &subject);

/// Prints the library's time next to another one. @p goal is the largest acceptable ratio of the medians; a row without a goal
/// is only information.
void printRow(const std::string &work, const Timing &library, const std::string &otherName, const Timing &other,
              std::optional<double> goal = std::nullopt);

/// Prints the library's rate next to another one. @p goal is the smallest acceptable ratio; a row without a goal is only
/// information.
void printRates(const std::string &work, double library, const std::string &otherName, double other,
                std::optional<double> goal = std::nullopt);

/// Prints a single figure with its goal.
void printFigure(const std::string &what, const std::string &figure, const std::string &goal, bool met);

/// The number of goals missed so far.
int missedGoals();

}  // namespace bench
