// A plant file cut before each of its stations.
#pragma once

#include <string_view>
#include <vector>

namespace kvosim {

/// What stands before the first line [[station]], then each such line with all up to the next one. Such a line in the middle of a
/// text or a list cuts that as well: then the piece before it is not TOML.
std::vector<std::string_view> splitAtStations(std::string_view text);

}  // namespace kvosim
