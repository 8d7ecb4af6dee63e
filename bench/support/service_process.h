// A hardware service in a process of its own that knows its replies by heart, so that what is measured is the client's side.
#pragma once

#include "support/child_process.h"

#include <map>
#include <optional>
#include <string>

namespace bench {

class ServiceProcess {
public:
    /// The reply to each command; a command that is not listed is answered "failed".
    using Replies = std::map<std::string, std::string, std::less<>>;

    /// Listens at the command socket by the time it returns. Throws std::system_error.
    explicit ServiceProcess(Replies replies);

private:
    std::optional<ChildProcess> process_;
};

}  // namespace bench
