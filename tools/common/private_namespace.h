// A process's own /tmp/kvo_hws: programs that talk to a hardware service run side by side, each with a service of its own.
#pragma once

#include "common/run_folder.h"

#include <stdexcept>

namespace tools {

/// The kernel, or what confines this process, does not grant it a mount namespace. The text says which right is missing.
class NamespaceRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class PrivateNamespace {
public:
    /// Moves the calling process into a mount namespace in which kSocketDirectory is empty and its own, for good. Needs no root
    /// where the kernel grants user namespaces, but then only a single thread. Make it before threads are started; a program
    /// that is executed from here on is inside too. Throws NamespaceRefused; std::runtime_error whose text says which step failed.
    PrivateNamespace();

private:
    RunFolder folder_;  // what the mount lies on
};

}  // namespace tools
