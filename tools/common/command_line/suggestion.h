// "Did you mean ...?": the known words that are nearest to an unknown word.
#pragma once

#include <string>
#include <vector>

namespace tools::command_line {

/// Returns the words of @p known that differ least from @p typed, at most three words. Allows one difference for every three
/// characters of @p typed, and always at least one. Ignores case. A known word that begins with @p typed has one difference.
std::vector<std::string> nearest(const std::string &typed, const std::vector<std::string> &known);

/// Returns text such as '; did you mean "stations" or "station"?', or an empty text if @p words is empty.
std::string didYouMean(const std::vector<std::string> &words);

}  // namespace tools::command_line
