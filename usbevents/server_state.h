// The life state of this process's USB event server, as its starter, its stopper and the server itself share it.
#pragma once

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "runtime/shared_word.h"

namespace kvo_hws {

/// ServerPipeThreadSyncState; its values are those of NotifyState.
inline std::atomic_ref<uint32_t> serverState() noexcept { return shared(ServerPipeThreadSyncState); }

/// uiSuicide: whether the server has been told to give the events up.
inline std::atomic_ref<uint32_t> suicide() noexcept { return shared(uiSuicide); }

/// From @p from to @p to; nothing where the state is another one. Returns whether it was done.
inline bool advanceServer(uint32_t from, uint32_t to) noexcept { return serverState().compare_exchange_strong(from, to); }

}  // namespace kvo_hws
