// Writes lines to the remote service. Each line is sent completely and as one segment, even if several threads write.
#pragma once

#include <kvo_hws/agent.h>

namespace kvo_hws::agent {

/// Sends the event @p text to the session's remote side if it is connected. Result as hmiconn_indication.
int pushIndication(HmiSession &session, const char *text) noexcept;

/// Closes a session's socket under the writers' lock, so that no writer uses a descriptor that has been reused.
void closeSocket(HmiSession &session) noexcept;

/// Sets a session's connected socket.
void openSocket(HmiSession &session, int socket) noexcept;

}  // namespace kvo_hws::agent
