// The one agent and the words that its threads share with the host. All of them are owned here.
#pragma once

#include <kvo_hws/agent.h>

#include "runtime/shared_word.h"

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace kvo_hws::agent {

inline constexpr std::size_t kLineRoom = 256;

/// How often whoever waits looks whether the agent is to end.
inline constexpr std::chrono::milliseconds kStopPeriod{100};

/// How many agents were started, and the last of them whose end a clean-up did not wait for, or not long enough.
extern std::atomic<uint32_t> starts;
extern std::atomic<uint32_t> abandoned;

/// Whether this is the thread that runs the agent, which must not wait for its own end.
bool isConnectionThread() noexcept;

/// Whether the agent is to end.
inline bool mustStop() noexcept
{
    const bool isAbandoned = shared(gEmbKvoInst->running).load() != 0 && abandoned.load() == starts.load();
    return isAbandoned || shared(gEmbKvoInst->stop).load() != 0;
}

inline int32_t socketOf(HmiSession &session) noexcept { return shared(session.socket).load(); }

}  // namespace kvo_hws::agent
