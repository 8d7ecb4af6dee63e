// The station in focus, read once when the agent starts.
#pragma once

#include <kvo_hws/codecs.h>

namespace kvo_hws::agent::focusStation {

/// Null until the description has been read once.
const KvoDescriptionEx *description() noexcept;

const char *t2m2n() noexcept;

}  // namespace kvo_hws::agent::focusStation
