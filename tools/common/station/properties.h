// All properties that can be read from a station, by family.
#pragma once

#include "common/station/property.h"

#include <span>
#include <string>
#include <string_view>

namespace tools {

struct NamedProperty {
    std::string_view subcommand;  ///< the words of kvoctl's subcommand, such as "panel type"; the first names the family
    Property property;
};

/// The key of a property's family in documents: "channel_info" for "channel-info get".
std::string familyKey(std::string_view subcommand);

/// All properties in the order in which a station's state is shown, with the properties of one family together.
std::span<const NamedProperty> stationProperties();

/// The property with these words. Throws std::out_of_range if none has them, which is an error of the caller.
const Property &stationProperty(std::string_view subcommand);

}  // namespace tools
