// Locks a file with flock and removes it at the end.
#include "common/lock_file.h"

#include "common/socket_folder.h"

#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tools {

namespace {

constexpr mode_t kForThisUserAlone = 0600;

void check(bool good, const std::string &what)
{
    if (!good) {
        throw std::runtime_error(what + ": " + std::generic_category().message(errno));
    }
}

}  // namespace

LockFile::LockFile(std::filesystem::path path, const std::function<void()> &onWait) : path_(std::move(path))
{
    // The previous owner removes the file, so another file may be at the path by the time that this one is locked.
    bool notified = false;
    for (bool locked = false; !locked || !isAt(file_.get(), path_);) {
        file_ = Descriptor(open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kForThisUserAlone));
        check(file_.valid(), "cannot create " + path_.string());
        locked = flock(file_.get(), LOCK_EX | LOCK_NB) == 0;
        if (locked) {
            continue;
        }
        check(errno == EWOULDBLOCK || errno == EINTR, "cannot lock " + path_.string());
        if (onWait && !std::exchange(notified, true)) {
            onWait();
        }
        locked = flock(file_.get(), LOCK_EX) == 0;
    }
}

LockFile::~LockFile() { unlink(path_.c_str()); }

}  // namespace tools
