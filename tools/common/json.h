// JSON documents whose keys keep the order in which they were added.
#pragma once

#include <nlohmann/json.hpp>

namespace tools {

using Json = nlohmann::ordered_json;

}  // namespace tools
