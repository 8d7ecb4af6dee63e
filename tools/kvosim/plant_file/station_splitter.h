// Splits a plant file into one piece per station.
#pragma once

#include <string_view>
#include <vector>

namespace kvosim {

/// Returns the text before the first line [[station]], then each such line with the text up to the next one. A line [[station]]
/// inside a multi-line string or list also begins a piece. Then the piece before it is not valid TOML.
std::vector<std::string_view> splitAtStations(std::string_view text);

}  // namespace kvosim
