// The path and the format of the simulator's control socket, which is next to the service's socket. A request and its reply are
// one line of JSON each. The reply to a refused request is {"error": text}. The reply to a valid request that could not be
// carried out is {"could_not": text}.
#pragma once

#include "common/json.h"

namespace tools {

inline constexpr const char *kControlSocket = "/tmp/kvo_hws/kvosim_ctl";

}  // namespace tools
