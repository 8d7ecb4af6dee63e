// Whether a process listens at a socket, found out without connecting: the process notices nothing.
#pragma once

#include "common/tap/file_id.h"

namespace tools::tap {

enum class Listening { yes, no, unknown };

/// Whether a process listens at the socket @p file. Not known if the kernel or a container does not permit the question. A socket
/// of another network namespace is not seen.
Listening listeningAt(const FileId &file);

/// Whether a process listens at the socket @p path. If the kernel does not list it, connects: the process may be in another network
/// namespace. A process that listens there notices a connection that ends at once.
bool isServed(const std::filesystem::path &path);

}  // namespace tools::tap
