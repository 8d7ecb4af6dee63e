// What passes on the sockets, for some seconds.
#include "common/recording/writer.h"
#include "common/refused.h"
#include "kvoctl/report/part.h"
#include "kvoctl/trace/observers.h"
#include "kvoctl/trace/record_output.h"
#include "kvoctl/trace/session.h"

#include <fcntl.h>
#include <unistd.h>

namespace kvoctl::reporting {

namespace {

constexpr std::size_t kQueue = 16UL * 1024 * 1024;
/// The report is put together in memory.
constexpr uint64_t kLongestRecording = 64UL * 1024 * 1024;

/// A recording in a file that has no name any more, so that it does not remain whatever happens.
class UnnamedRecording {
public:
    UnnamedRecording(const std::filesystem::path &folder, tools::recording::StartTime start)
        : path_(folder / (".kvo_trace." + std::to_string(getpid()))),
          writer_(path_, {.force = true, .maxSize = kLongestRecording}, start),
          file_(open(path_.c_str(), O_RDONLY | O_CLOEXEC), "open")
    {
        unlink(path_.c_str());
    }

    [[nodiscard]] tools::recording::Writer &writer() noexcept { return writer_; }
    [[nodiscard]] std::string text() const { return readFile("/proc/self/fd/" + std::to_string(file_.get())).value_or(""); }

private:
    std::filesystem::path path_;
    tools::recording::Writer writer_;
    tools::Descriptor file_;
};

}  // namespace

Content trace(const Circumstances &circumstances, std::chrono::seconds length, const std::filesystem::path &folder)
{
    Session session({.length = length});
    UnnamedRecording recording(folder, session.startTime());
    ObservedQueue queue(kQueue);
    RecordObserver observer(queue);
    std::optional<RecordOutput> output;
    const auto start = [&] {
        circumstances.progress("for " + std::to_string(length.count()) + " s");
        output.emplace(queue, recording.writer());
        return output->endedDescriptor();
    };
    static_cast<void>(session.run(observer, {.open = [] {}, .start = start}));
    output->finish();
    recording.writer().add(tools::recording::Note{session.elapsed(), "the trace ended"});
    recording.writer().flush();
    Content content{.files = {{"trace.rec", recording.text(), Form::recording}}};
    if (!session.givenUpReason().empty()) {
        content.notes.push_back(session.givenUpReason());
    }
    if (!recording.writer().fullReason().empty()) {
        content.notes.push_back("it ended early: " + recording.writer().fullReason());
    }
    if (queue.dropped() > 0) {
        content.notes.push_back(amountOf(queue.dropped(), "exchange") + " missing: the disk was too slow");
    }
    return content;
}

}  // namespace kvoctl::reporting
