// "Did you mean ...?": the known words that are nearest to one that is not known.
#pragma once

#include <string>
#include <vector>

namespace command_line {

/// Those of @p known that differ least from @p typed, three at most; none where all differ in more than every third character.
/// Case counts for nothing, and the beginning of a word counts as near.
std::vector<std::string> nearest(const std::string &typed, const std::vector<std::string> &known);

/// "; did you mean "stations" or "station"?", or nothing without words.
std::string didYouMean(const std::vector<std::string> &words);

}  // namespace command_line
