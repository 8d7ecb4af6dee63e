// Who is at the other end of a socket.
#pragma once

#include "common/tap/observer.h"

namespace tools::tap {

/// The process that connected to the socket @p connection was accepted from, or that listens where @p connection has connected.
Peer peerOf(int connection);

}  // namespace tools::tap
