// Values as people read them.
#include "common/station/property.h"

namespace tools {

std::string Value::text() const
{
    if (!own.empty()) {
        return own;
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
