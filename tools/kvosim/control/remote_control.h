// Requests of the control socket about the remote side.
#pragma once

#include "common/control_protocol.h"
#include "kvosim/net/line_server.h"
#include "kvosim/remote/remote_side.h"

#include <optional>
#include <string_view>

namespace kvosim {

/// Carries out "remote.list", "remote.ask", "remote.send", "remote.raw", "remote.close" and "remote.log"; nothing where it is
/// none of them. What can not be done throws.
std::optional<Reply> answerRemoteControl(RemoteSide &remote, const tools::Json &request, const LineServer::Caller &caller);

/// The names above, for messages.
extern const std::string_view kRemoteActions;

}  // namespace kvosim
