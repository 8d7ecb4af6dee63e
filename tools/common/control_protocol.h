// The simulator's own socket beside the service's: its place and its form. A request and its reply are one line of JSON each. What
// is refused is answered by {"error": text}, what could not be done by {"could_not": text}.
#pragma once

#include "common/json.h"

namespace tools {

inline constexpr const char *kControlSocket = "/tmp/kvo_hws/kvosim_ctl";

}  // namespace tools
