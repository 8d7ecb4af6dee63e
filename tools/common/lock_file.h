// A file that only one process at a time can lock. It exists only while it is locked.
#pragma once

#include "common/descriptor.h"

#include <filesystem>
#include <functional>

namespace tools {

class LockFile {
public:
    /// Waits until no other process has the lock, and calls @p onWait once before it has to wait. The folder must be one that
    /// only this user can write to.
    explicit LockFile(std::filesystem::path path, const std::function<void()> &onWait = {});
    LockFile(const LockFile &) = delete;
    LockFile &operator=(const LockFile &) = delete;
    ~LockFile();

private:
    std::filesystem::path path_;
    Descriptor file_;
};

}  // namespace tools
