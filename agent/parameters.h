// Parsing of the host's parameter text.
#pragma once

#include <kvo_hws/agent.h>

namespace kvo_hws::agent {

/// Reads the parameters into @p instance. All parameter fields are first reset to their defaults. Returns false if a required
/// parameter is missing.
bool readParameters(const char *params, EmbKvoInst &instance) noexcept;

}  // namespace kvo_hws::agent
