// Values in the form that is shown to users.
#include "common/station/property.h"

namespace tools {

std::string Value::text() const
{
    if (!shownAs.empty()) {
        return shownAs;
    }
    if (document.is_null()) {
        return "-";
    }
    if (document.is_boolean()) {
        return document.get<bool>() ? "yes" : "no";
    }
    return document.is_string() ? document.get<std::string>() : document.dump();
}

}  // namespace tools
