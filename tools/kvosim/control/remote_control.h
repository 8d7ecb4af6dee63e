// Requests of the control socket for the remote side.
#pragma once

#include "common/control_protocol.h"
#include "kvosim/net/line_server.h"
#include "kvosim/remote/remote_side.h"

#include <optional>
#include <string_view>

namespace kvosim {

/// Carries out "remote.list", "remote.ask", "remote.send", "remote.raw", "remote.close" and "remote.log". Returns nothing if
/// the request is another one. Throws if it cannot be carried out.
std::optional<Reply> answerRemoteControl(RemoteSide &remote, const tools::Json &request, const LineServer::Caller &caller);

/// The names above, for messages.
extern const std::string_view kRemoteActions;

}  // namespace kvosim
