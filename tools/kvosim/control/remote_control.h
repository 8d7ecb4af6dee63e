// Requests of the control socket for the remote side.
#pragma once

#include "common/control_protocol.h"
#include "kvosim/net/line_server.h"
#include "kvosim/remote/remote_side.h"

#include <optional>
#include <string_view>

namespace kvosim {

/// Carries out "remote.list", "remote.ask", "remote.send", "remote.raw", "remote.close" and "remote.log". Returns nothing for
/// any other request. Throws if the request cannot be carried out.
std::optional<Reply> answerRemoteControl(RemoteSide &remote, const tools::Json &request, const LineServer::Caller &caller);

/// The names of these requests, for messages.
extern const std::string_view kRemoteActions;

}  // namespace kvosim
