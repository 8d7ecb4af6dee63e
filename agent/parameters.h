// The host's parameter text.
#pragma once

#include <kvo_hws/agent.h>

namespace kvo_hws::agent {

/// Reads the parameters into @p instance, whose fields from the first to the last of them are set anew. False where an
/// obligatory one is missing.
bool readParameters(const char *params, EmbKvoInst &instance) noexcept;

}  // namespace kvo_hws::agent
