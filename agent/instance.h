// The agent, and the variables that its threads share with the host. They are defined in instance.cpp.
#pragma once

#include <kvo_hws/agent.h>

#include "runtime/shared_word.h"

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace kvo_hws::agent {

inline constexpr std::size_t kLineSize = 256;

/// How often a waiting thread checks whether the agent must end.
inline constexpr std::chrono::milliseconds kStopPeriod{100};

/// The number of agents that were started.
extern std::atomic<uint32_t> starts;

/// The number of the last agent that was still running when its clean-up returned.
extern std::atomic<uint32_t> abandoned;

/// True on the thread that runs the agent, which must not wait for its own end.
bool isConnectionThread() noexcept;

/// True if the agent must end.
inline bool mustStop() noexcept
{
    const bool isAbandoned = shared(gEmbKvoInst->running).load() != 0 && abandoned.load() == starts.load();
    return isAbandoned || shared(gEmbKvoInst->stop).load() != 0;
}

inline int32_t socketOf(HmiSession &session) noexcept { return shared(session.socket).load(); }

}  // namespace kvo_hws::agent
