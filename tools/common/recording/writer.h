// Writes a recording to a file that other users cannot read. Whatever ends the writing, the file is a valid recording.
#pragma once

#include "common/descriptor.h"
#include "common/recording/line.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace tools::recording {

class Writer {
public:
    struct Options {
        bool force = false;               ///< replace the content of an existing file
        std::optional<uint64_t> maxSize;  ///< of the file, in bytes
    };

    /// Creates the file with mode 0600 and writes its first lines. Throws std::runtime_error if the file exists and must not be
    /// replaced, if the path is a link or something other than a file, or if the first lines cannot be written.
    Writer(std::filesystem::path path, const Options &options, StartTime start);

    /// The number of a program. Writes its line when it is new, or when it was forgotten: the 5000 latest programs, or up to twice as
    /// many, are remembered.
    unsigned numberOf(int64_t pid, const std::string &name);
    /// Adds a line. Returns false if the file is full; fullReason() then has the reason.
    bool add(const Line &line);
    /// Writes what is still in memory. Returns false if the file is full.
    bool flush();

    /// Why the file takes no further lines: its largest size, or the system's reason. Empty if it takes more.
    [[nodiscard]] const std::string &fullReason() const noexcept { return fullReason_; }
    /// Whether the reason is Options::maxSize.
    [[nodiscard]] bool isAtMaxSize() const noexcept { return isAtMaxSize_; }
    /// The bytes of the file and of what is still in memory.
    [[nodiscard]] uint64_t size() const noexcept { return written_ + buffer_.size(); }

private:
    using Numbers = std::map<std::pair<int64_t, std::string>, unsigned>;

    std::filesystem::path path_;
    Options options_;
    Descriptor file_;
    Numbers numbers_;         // of the programs that were used last
    Numbers earlierNumbers_;  // of those before
    unsigned lastNumber_ = 0;
    std::string buffer_;    // complete lines
    uint64_t written_ = 0;  // complete lines in the file
    std::string fullReason_;
    bool isAtMaxSize_ = false;
};

}  // namespace tools::recording
