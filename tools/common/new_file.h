// A file that is complete from the moment it appears, and that other users cannot read.
#pragma once

#include "common/descriptor.h"

#include <filesystem>

namespace tools {

/// Returns whether @p path exists. Throws std::runtime_error if it may not be replaced: nothing is without @p force, and a link or
/// what is not a file never is. Throws also if no file can have this path.
bool checkReplaceable(const std::filesystem::path &path, bool force);

class NewFile {
public:
    /// Creates the file with mode 0600 and a temporary name in the same folder. Throws std::runtime_error as checkReplaceable()
    /// does, and if the file cannot be created.
    NewFile(std::filesystem::path path, bool force);
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;
    /// Removes the file, unless it was kept. The one that it was to replace stays.
    ~NewFile();

    [[nodiscard]] int descriptor() const noexcept { return file_.get(); }
    /// Gives the file its name in one step, after its content has reached the disk. Throws std::runtime_error.
    void keep();

private:
    std::filesystem::path path_;
    bool force_;
    std::filesystem::path temporary_;
    Descriptor file_;
    bool isKept_ = false;
};

}  // namespace tools
