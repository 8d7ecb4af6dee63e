// A recording in memory. The text stays as it is in the file; exchanges are decoded when they are asked for, so that a file of
// 100 MB needs little more than its size.
#pragma once

#include "common/recording/line.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace tools::recording {

/// A file that is not a valid recording. The text begins with the path and the number of the line.
class RecordingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Recording {
public:
    /// Reads and checks a whole file. Throws RecordingError, or std::system_error if the file cannot be read.
    static Recording load(const std::filesystem::path &path);
    /// The same for a text. @p name stands for the path in errors.
    static Recording read(std::string text, const std::string &name);

    [[nodiscard]] StartTime start() const noexcept { return start_; }
    /// The programs by their numbers.
    [[nodiscard]] const std::map<unsigned, Process> &processes() const noexcept { return processes_; }
    /// The plant when the recording began, as the text of a plant file. Empty if the recording has none.
    [[nodiscard]] const std::string &plant() const noexcept { return plant_; }
    /// The number of exchanges and notes.
    [[nodiscard]] std::size_t size() const noexcept { return lines_.size(); }
    /// An Exchange or a Note, in the order of the file. @p index is less than size().
    [[nodiscard]] Line line(std::size_t index) const;
    /// The line's number in the file, from 1.
    [[nodiscard]] std::size_t lineNumber(std::size_t index) const { return lines_.at(index).number; }

private:
    struct Place {
        std::size_t offset;
        uint32_t length;
        uint32_t number;
    };

    std::string text_;
    StartTime start_{};
    std::map<unsigned, Process> processes_;
    std::string plant_;
    std::vector<Place> lines_;
};

}  // namespace tools::recording
