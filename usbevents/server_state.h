// The state of this process's USB event server. The server and the threads that start and stop it share this state.
#pragma once

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "runtime/shared_word.h"

namespace kvo_hws {

/// ServerPipeThreadSyncState; its values are those of NotifyState.
inline std::atomic_ref<uint32_t> serverState() noexcept { return shared(ServerPipeThreadSyncState); }

/// uiSuicide: whether the server has received "suicide", the request to give up the events.
inline std::atomic_ref<uint32_t> suicide() noexcept { return shared(uiSuicide); }

/// Changes the state from @p from to @p to. Returns false if the state has another value.
inline bool advanceServer(uint32_t from, uint32_t to) noexcept { return serverState().compare_exchange_strong(from, to); }

}  // namespace kvo_hws
