// A file that one process at a time has, and that is there only as long.
#pragma once

#include "common/descriptor.h"

#include <filesystem>
#include <functional>

namespace tools {

class LockFile {
public:
    /// Waits until no other process has it; @p waiting is called once, before it has to wait. In a folder that only this user can write.
    explicit LockFile(std::filesystem::path path, const std::function<void()> &waiting = {});
    LockFile(const LockFile &) = delete;
    LockFile &operator=(const LockFile &) = delete;
    ~LockFile();

private:
    std::filesystem::path path_;
    Descriptor file_;
};

}  // namespace tools
