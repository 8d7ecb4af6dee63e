// A private /tmp/kvo_hws for a process: each of several programs that run at the same time can have its own hardware service.
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
    /// Moves the calling process permanently into a mount namespace in which kSocketDirectory is private: it is empty, or shows
    /// the folder @p shown. Without
    /// root's rights, the kernel must allow user namespaces, and the process must have a single thread: construct it before
    /// threads start. Programs that the process executes later are inside the namespace too. Throws NamespaceRefused, or
    /// std::runtime_error whose text says which step failed.
    explicit PrivateNamespace(const std::filesystem::path &shown = {});

private:
    RunFolder folder_;  // the mount point
};

}  // namespace tools
