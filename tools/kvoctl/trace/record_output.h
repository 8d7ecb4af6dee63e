// Writes a recording, in a thread of its own: a slow disk delays no program.
#pragma once

#include "common/recording/writer.h"
#include "kvoctl/trace/observed_queue.h"
#include "kvoctl/trace/worker_thread.h"

#include <cstdint>
#include <functional>
#include <string>

namespace kvoctl {

class RecordOutput {
public:
    /// Called in the thread with everything that was observed, before it is written. May change it.
    using Prepare = std::function<void(Observed &observed)>;

    /// @p prepare  may be empty
    RecordOutput(ObservedQueue &queue, tools::recording::Writer &writer, Prepare prepare = {});

    /// Becomes readable when the file takes no more.
    [[nodiscard]] int endedDescriptor() const noexcept { return thread_.endedDescriptor(); }

    /// Writes everything that waits. The following functions may be called afterwards.
    void finish();
    /// How many exchanges are in the file.
    [[nodiscard]] uint64_t written() const noexcept { return written_; }
    /// How many programs are in the file.
    [[nodiscard]] unsigned programs() const noexcept { return programs_; }

private:
    void write();
    void add(Observed observed);

    ObservedQueue &queue_;
    tools::recording::Writer &writer_;
    Prepare prepare_;
    uint64_t written_ = 0;
    unsigned programs_ = 0;
    WorkerThread thread_;
};

}  // namespace kvoctl
