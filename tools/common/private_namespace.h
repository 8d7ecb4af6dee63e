// A private /tmp/kvo_hws for a process, so that programs can run side by side, each with its own hardware service.
#pragma once

#include "common/run_folder.h"

#include <stdexcept>

namespace tools {

/// The kernel, or the container that confines this process, refuses a mount namespace. The text says which right is missing.
class NamespaceRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class PrivateNamespace {
public:
    /// Moves the calling process permanently into a mount namespace in which kSocketDirectory is empty and private. Needs no
    /// root rights if the kernel grants user namespaces, but then the process must have a single thread. Construct it before
    /// threads start. Programs that the process executes later are inside too. Throws NamespaceRefused, or std::runtime_error
    /// whose text says which step failed.
    PrivateNamespace();

private:
    RunFolder folder_;  // the mount point
};

}  // namespace tools
