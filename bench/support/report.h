// The table that a run prints: one row per comparison, each with its goal and what came of it.
#pragma once

#include "support/comparison.h"

#include <optional>
#include <string>

namespace bench {

/// Column heads of the rows that follow.
void printHeading(const std::string &subject);

/// The library's time beside another's. @p goal is the largest ratio wanted of the medians; without one the row is information.
void printRow(const std::string &work, const Timing &library, const std::string &otherName, const Timing &other,
              std::optional<double> goal = std::nullopt);

/// The library's rate beside another's. @p goal is the smallest ratio wanted; without one the row is information.
void printRates(const std::string &work, double library, const std::string &otherName, double other,
                std::optional<double> goal = std::nullopt);

/// A plain figure with a goal.
void printFigure(const std::string &what, const std::string &figure, const std::string &goal, bool met);

/// How many goals were missed so far.
int missedGoals();

}  // namespace bench
