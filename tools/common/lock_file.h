// A file that only one process at a time can lock. It exists only while it is locked.
#pragma once

#include "common/descriptor.h"

#include <filesystem>
#include <functional>

namespace tools {

class LockFile {
public:
    /// Locks the file. If another process has the lock, calls @p onWait once, then waits. Only this user may have the right to
    /// write to the folder.
    explicit LockFile(std::filesystem::path path, const std::function<void()> &onWait = {});
    LockFile(const LockFile &) = delete;
    LockFile &operator=(const LockFile &) = delete;
    ~LockFile();

private:
    std::filesystem::path path_;
    Descriptor file_;
};

}  // namespace tools
