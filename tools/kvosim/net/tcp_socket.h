// Listening TCP sockets, and the names of their peers.
#pragma once

#include "common/descriptor.h"

#include <cstdint>
#include <string>

namespace kvosim {

/// Listens at an address and port. If that fails, throws std::runtime_error with a text that begins with @p purpose.
tools::Descriptor listenAt(const std::string &purpose, uint32_t address, uint16_t port);

/// For example "127.0.0.1:40312", or "?" if the other side has already disconnected.
std::string peerOf(const tools::Descriptor &connection);

}  // namespace kvosim
