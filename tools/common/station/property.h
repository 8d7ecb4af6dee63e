// One property of a station: how it is read, and how its values are shown.
#pragma once

#include "common/json.h"
#include "common/station/result.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tools {

using Document = Json;

/// A value of a property.
struct Value {
    Document document;
    std::string shownAs{};  ///< the text for users; empty if it is the same as the document

    [[nodiscard]] std::string text() const;
};

/// A reply of the service. It has values only if the result is 1.
struct Reading {
    Result result;
    std::vector<Value> values{};
};

using Reader = std::function<Reading(uint32_t station)>;

struct Property {
    std::vector<std::string> keys;  ///< one for each value
    Reader read;
    std::vector<int32_t> states{};  ///< results besides 1 and 0 that describe the station
    bool isQuestion = false;        ///< the answer is yes or no
};

}  // namespace tools
