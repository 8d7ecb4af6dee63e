// One thing that can be read of a station: how it is asked for, and how its values are shown.
#pragma once

#include "common/json.h"
#include "common/station/result.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tools {

using Document = Json;

/// A value in documents, and for people where that is different.
struct Value {
    Document document;
    std::string own{};

    [[nodiscard]] std::string text() const;
};

/// An answer of the service; no values unless the result is 1.
struct Reading {
    Result result;
    std::vector<Value> values{};
};

using Reader = std::function<Reading(uint32_t station)>;

struct Property {
    std::vector<std::string> keys;  ///< one for each value
    Reader read;
    std::vector<int32_t> states{};  ///< results that say something about the station, besides 1 and 0
    bool isQuestion = false;        ///< answered by yes or no
};

}  // namespace tools
