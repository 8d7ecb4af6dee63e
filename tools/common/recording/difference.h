// Compares two requests field by field, to find the recorded request that is nearest to another one, and to say what differs.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tools::recording {

/// The keyword of a request, which ends at the first "=" or blank.
std::string_view keywordOf(std::string_view request);

/// How far two requests with the same keyword are apart.
struct Distance {
    std::size_t fields = 0;      ///< the arguments that differ, are missing or are extra
    std::size_t characters = 0;  ///< the characters in these arguments that differ
    // NOLINTNEXTLINE(modernize-use-nullptr): the check sees a 0 that is not written
    auto operator<=>(const Distance &) const = default;
};

/// Compares the arguments. The keywords are not compared.
Distance distanceOf(std::string_view request, std::string_view other);

/// What differs, such as "station 10.0.0.6 instead of 10.0.0.5"; "different command" if the keywords differ; empty if nothing
/// differs. @p other  what was expected
std::string differenceOf(std::string_view request, std::string_view other);

}  // namespace tools::recording
