// Identifies a file, whatever its name is.
#pragma once

#include <filesystem>
#include <sys/stat.h>
#include <sys/types.h>

namespace tools::tap {

struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileId &) const = default;
};

/// The file at @p path, which may be a socket; zeros if there is none. Links are not followed.
inline FileId fileAt(const std::filesystem::path &path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? FileId{status.st_dev, status.st_ino} : FileId{};
}

}  // namespace tools::tap
