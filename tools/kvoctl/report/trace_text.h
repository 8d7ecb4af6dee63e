// A recording as lines for people.
#pragma once

#include <string>

namespace kvoctl::reporting {

/// The lines and the summary that "kvoctl trace" would have shown. @p name  of the recording, in errors
std::string traceText(const std::string &recording, const std::string &name);

}  // namespace kvoctl::reporting
