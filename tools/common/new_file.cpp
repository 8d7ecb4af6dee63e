#include "common/new_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

namespace tools {

namespace {

constexpr mode_t kOwnerOnly = 0600;

std::string reason() { return std::strerror(errno); }

[[noreturn]] void refuseExisting(const std::filesystem::path &path)
{
    throw std::runtime_error("\"" + path.string() + "\" exists; choose another name, or replace it with --force");
}

std::filesystem::path temporaryNameFor(const std::filesystem::path &path)
{
    return path.parent_path() / (".kvo_new." + std::to_string(getpid()));
}

Descriptor create(const std::filesystem::path &path, const std::filesystem::path &temporary)
{
    unlink(temporary.c_str());  // of a process with this number that was killed
    Descriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly));
    if (!file.valid()) {
        throw std::runtime_error("cannot create \"" + path.string() + "\": " + reason());
    }
    return file;
}

/// Some file systems have no rename that replaces nothing.
bool renameToNew(const char *from, const char *to)
{
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    struct stat status {};
    if (lstat(to, &status) == 0) {
        errno = EEXIST;
        return false;
    }
    return rename(from, to) == 0;
}

}  // namespace

bool checkReplaceable(const std::filesystem::path &path, bool force)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno != ENOENT || !path.has_filename()) {
            throw std::runtime_error("cannot create \"" + path.string() + "\": " + reason());
        }
        return false;
    }
    if (!force) {
        refuseExisting(path);
    }
    if (S_ISLNK(status.st_mode)) {
        throw std::runtime_error("\"" + path.string() + "\" is a link, which is not followed; name the file itself");
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error("\"" + path.string() + "\" is not a file; name a file");
    }
    return true;
}

NewFile::NewFile(std::filesystem::path path, bool force)
    : path_((checkReplaceable(path, force), std::move(path))), force_(force), temporary_(temporaryNameFor(path_)),
      file_(create(path_, temporary_))
{
}

NewFile::~NewFile()
{
    if (!isKept_) {
        unlink(temporary_.c_str());
    }
}

void NewFile::keep()
{
    if (fsync(file_.get()) != 0 && errno != EINVAL) {  // a file system may not know it
        throw std::runtime_error("cannot write \"" + path_.string() + "\": " + reason());
    }
    const bool isNamed =
        force_ ? rename(temporary_.c_str(), path_.c_str()) == 0 : renameToNew(temporary_.c_str(), path_.c_str());
    if (!isNamed && errno == EEXIST) {
        refuseExisting(path_);
    }
    if (!isNamed) {
        throw std::runtime_error("cannot write \"" + path_.string() + "\": " + reason());
    }
    isKept_ = true;
}

}  // namespace tools
