// The one agent and the words that its threads share with the host. All of them are owned here.
#pragma once

#include <kvo_hws/agent.h>

#include "runtime/shared_word.h"

namespace kvo_hws::agent {

inline constexpr std::size_t kLineRoom = 256;

/// A clean-up did not wait for the agent's end, or not long enough: it is still to end. Until the next start.
extern std::atomic<bool> abandoned;

/// Whether the agent is to end.
inline bool mustStop() noexcept { return shared(gEmbKvoInst->stop).load() != 0 || abandoned.load(); }

inline int32_t socketOf(HmiSession &session) noexcept { return shared(session.socket).load(); }

}  // namespace kvo_hws::agent
