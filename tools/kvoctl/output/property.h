// One thing that can be read of a station: how it is asked for, and how its values are shown, alone or on the station's page.
#pragma once

#include "kvoctl/output/output.h"
#include "kvoctl/output/result.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kvoctl {

/// A value in documents, and for people where that is different.
struct Value {
    Document document;
    std::string own{};

    [[nodiscard]] std::string text() const;
};

/// An answer of the service; no values unless the result is 1.
struct Reading {
    int32_t result;
    std::vector<Value> values{};
};

using Reader = std::function<Reading(uint32_t station)>;

struct Property {
    std::vector<std::string> keys;  ///< one for each value
    Reader read;
    std::vector<Meaning> codes{};
    bool isQuestion = false;  ///< answered by yes or no, which the exit status tells too
};

/// Properties that belong together on a station's page.
struct Section {
    std::string key;
    std::vector<Property> properties;
};

/// @p words  of the subcommand that shows the property
void addTo(std::vector<Section> &sections, const std::string &words, const Property &property);

/// Asks for one property and reports it alone; throws Failure where there is none.
Report show(const Property &property, uint32_t station);

}  // namespace kvoctl
