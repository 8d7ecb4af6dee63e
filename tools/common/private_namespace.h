// A process's own /tmp/kvo_hws: programs that talk to a hardware service run side by side, each with a service of its own.
#pragma once

namespace tools {

/// Where the library looks for its sockets; the paths are fixed for the whole machine.
inline constexpr const char *kSocketDirectory = "/tmp/kvo_hws";

/// Moves the calling process into a mount namespace in which kSocketDirectory is empty and its own. Needs no root where the
/// kernel grants user namespaces, but then only a single thread. Call it before threads are started, and pass it on by exec.
/// Throws std::system_error whose text says which step the kernel refused.
void enterPrivateNamespace();

}  // namespace tools
