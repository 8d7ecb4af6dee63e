// Listening TCP sockets, and the names of their peers.
#pragma once

#include "common/descriptor.h"

#include <cstdint>
#include <string>

namespace kvosim {

/// Listens at an address and port. Throws std::runtime_error, which begins with @p purpose, where it can not be had.
tools::Descriptor listenAt(const std::string &purpose, uint32_t address, uint16_t port);

/// "127.0.0.1:40312"; "?" where the other side has gone already.
std::string peerOf(const tools::Descriptor &connection);

}  // namespace kvosim
