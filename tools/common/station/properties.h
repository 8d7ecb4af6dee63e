// All that can be read of a station, family by family.
#pragma once

#include "common/station/property.h"

#include <span>
#include <string>
#include <string_view>

namespace tools {

struct NamedProperty {
    std::string_view words;  ///< those of kvoctl's subcommand, "panel type": the first names the family
    Property property;
};

/// The key of its family in documents: "channel_info" for "channel-info get".
std::string familyKey(std::string_view words);

/// In the order in which a station's state is shown; properties of one family stand together.
std::span<const NamedProperty> stationProperties();

/// The one of these words. Throws std::out_of_range where there is none, which is a mistake of the caller.
const Property &stationProperty(std::string_view words);

}  // namespace tools
