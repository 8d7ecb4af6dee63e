// A tap in a process of its own, which records what passes through it into a file.
#pragma once

#include "common/tap/file_id.h"
#include "support/child_process.h"

#include <cstddef>
#include <filesystem>
#include <optional>

namespace bench {

class RecordingTap {
public:
    /// The tap has taken its place when the constructor returns. Replaces the file @p recording. Throws std::runtime_error.
    explicit RecordingTap(std::filesystem::path recording);
    RecordingTap(const RecordingTap &) = delete;
    RecordingTap &operator=(const RecordingTap &) = delete;
    /// Waits until the tap's guardian has put the service's socket back.
    ~RecordingTap();

    /// Waits until the file contains @p count exchanges. Throws std::runtime_error if they do not come.
    void expectExchanges(std::size_t count) const;

    [[nodiscard]] const ChildProcess &process() const { return *process_; }

private:
    std::filesystem::path recording_;
    tools::tap::FileId service_;  // the service's own socket
    std::optional<ChildProcess> process_;
};

}  // namespace bench
