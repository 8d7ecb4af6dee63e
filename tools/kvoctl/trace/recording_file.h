// The file of a recording, which is created before the tap takes its place: afterwards nothing may fail while programs wait.
#pragma once

#include "common/recording/writer.h"

#include <filesystem>

namespace kvoctl {

class RecordingFile {
public:
    /// Creates the file. If it replaces another one, it has a temporary name in the same folder until keep(). Throws as Writer does.
    RecordingFile(std::filesystem::path path, const tools::recording::Writer::Options &options,
                  tools::recording::StartTime start);
    RecordingFile(const RecordingFile &) = delete;
    RecordingFile &operator=(const RecordingFile &) = delete;
    /// Removes the file, unless it is to be kept. The one that it was to replace stays.
    ~RecordingFile();

    /// The recording begins. Throws std::runtime_error if the other file cannot be replaced.
    void keep();
    [[nodiscard]] tools::recording::Writer &writer() noexcept { return writer_; }

private:
    std::filesystem::path path_;
    std::filesystem::path created_;
    tools::recording::Writer writer_;
    bool isKept_ = false;
};

}  // namespace kvoctl
