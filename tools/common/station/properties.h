// All properties that can be read from a station, by family.
#pragma once

#include "common/station/property.h"

#include <span>
#include <string>
#include <string_view>

namespace tools {

struct NamedProperty {
    std::string_view subcommand;  ///< of kvoctl, such as "panel type"; its first word names the family
    Property property;
};

/// The key of a property's family in documents: "channel_info" for "channel-info get".
std::string familyKey(std::string_view subcommand);

/// All properties, in the order in which a station's state is shown. The properties of a family are adjacent.
std::span<const NamedProperty> stationProperties();

/// The property that @p subcommand shows. Throws std::out_of_range for any other subcommand, which is an error of the caller.
const Property &stationProperty(std::string_view subcommand);

}  // namespace tools
