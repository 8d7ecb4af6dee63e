// "Did you mean ...?": the known words that are nearest to an unknown word.
#pragma once

#include <string>
#include <vector>

namespace tools::command_line {

/// The words of @p known that differ least from @p typed, at most three. A word that differs in more than every third character
/// is left out. Case is ignored, and the beginning of a known word counts as near.
std::vector<std::string> nearest(const std::string &typed, const std::vector<std::string> &known);

/// "; did you mean "stations" or "station"?"; empty without words.
std::string didYouMean(const std::vector<std::string> &words);

}  // namespace tools::command_line
