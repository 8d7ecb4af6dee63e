// A thread that writes while the main thread serves the tap. It can be ended at any time.
#pragma once

#include "common/descriptor.h"

#include <chrono>
#include <functional>
#include <optional>
#include <thread>

namespace kvoctl {

class WorkerThread {
public:
    /// @p abort  a descriptor that is readable when the work must end at once
    using Work = std::function<void(int abort)>;

    /// The thread blocks all signals, so they reach the main thread, and a closed pipe is an error instead of SIGPIPE. @p work
    /// throws nothing.
    explicit WorkerThread(Work work);
    WorkerThread(const WorkerThread &) = delete;
    WorkerThread &operator=(const WorkerThread &) = delete;
    ~WorkerThread() { finish(std::chrono::milliseconds(0)); }

    /// A descriptor that is readable once the work has ended.
    [[nodiscard]] int endedDescriptor() const noexcept { return ended_.get(); }
    /// Waits for the end of the work; without @p timeout, as long as it takes. Aborts the work after @p timeout.
    void finish(std::optional<std::chrono::milliseconds> timeout);

private:
    tools::Descriptor abort_;
    tools::Descriptor ended_;
    std::thread thread_;
};

}  // namespace kvoctl
