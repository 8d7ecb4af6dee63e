// A hardware service in a separate process with fixed replies, so the measured time is mostly the client's.
#pragma once

#include "support/child_process.h"

#include <map>
#include <optional>
#include <string>

namespace bench {

class ServiceProcess {
public:
    /// The reply to each command. The reply to any other command is "failed".
    using Replies = std::map<std::string, std::string, std::less<>>;

    /// The service is listening at the command socket when the constructor returns. Throws std::system_error.
    explicit ServiceProcess(Replies replies);

    [[nodiscard]] const ChildProcess &process() const { return *process_; }

private:
    std::optional<ChildProcess> process_;
};

}  // namespace bench
