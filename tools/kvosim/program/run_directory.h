// The directory for the sockets of "kvosim run".
#pragma once

#include "common/lock_file.h"
#include "common/private_namespace.h"

#include <optional>

namespace kvosim {

/// The machine's own kSocketDirectory, used by one run at a time.
class SharedDirectory {
public:
    /// Waits for the previous run to end, and prints that it waits. Throws std::runtime_error if a service already runs there,
    /// or the folder belongs to another user.
    SharedDirectory();

private:
    tools::RunFolder folder_;
    tools::LockFile runLock_;
};

class RunDirectory {
public:
    /// A private directory, or with @p shared the machine's own. Throws std::runtime_error with a text that says what to do
    /// instead.
    explicit RunDirectory(bool shared);

private:
    std::optional<tools::PrivateNamespace> private_;
    std::optional<SharedDirectory> shared_;
};

}  // namespace kvosim
