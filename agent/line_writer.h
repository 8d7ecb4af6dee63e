// Lines to the remote service: each goes out whole and as one segment, whoever else is writing.
#pragma once

#include <kvo_hws/agent.h>

namespace kvo_hws::agent {

/// Pushes the event @p text to the session's remote side, if there is one at the moment. As hmiconn_indication.
int pushIndication(HmiSession &session, const char *text) noexcept;

/// Closes a session's socket under the writers' lock, so that none of them writes to a descriptor that has become another's.
void closeSocket(HmiSession &session) noexcept;

/// Gives a connected socket to a session.
void openSocket(HmiSession &session, int socket) noexcept;

}  // namespace kvo_hws::agent
