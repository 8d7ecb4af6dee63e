// Where the service of a run has its sockets.
#pragma once

#include "common/lock_file.h"
#include "common/private_namespace.h"

#include <optional>

namespace kvosim {

/// The machine's own kSocketDirectory, for one run at a time.
class SharedDirectory {
public:
    /// Waits for its turn and says so. Throws std::runtime_error where a service runs there already, or the folder is another
    /// user's.
    SharedDirectory();

private:
    tools::RunFolder folder_;
    tools::LockFile runLock_;
};

class RunDirectory {
public:
    /// A private place, or with @p shared the machine's own. Throws std::runtime_error whose text says what works instead.
    explicit RunDirectory(bool shared);

private:
    std::optional<tools::PrivateNamespace> private_;
    std::optional<SharedDirectory> shared_;
};

}  // namespace kvosim
