#include "tools/kvosim/support/private_tmp.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace kvosim_test {

std::string enterPrivateTmp(const std::string &kept)
{
    if (geteuid() != 0) {
        return "only root can have a private /tmp";
    }
    if (unshare(CLONE_NEWNS) != 0) {
        return std::string("no mount namespace: ") + std::strerror(errno);
    }
    mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
    // The new /tmp hides the path of the folder, so the bind mount uses its descriptor.
    const int folder = open(kept.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777") != 0) {
        close(folder);
        return std::string("no tmpfs at /tmp: ") + std::strerror(errno);
    }
    std::string failure;
    if (kept.starts_with("/tmp/")) {
        std::filesystem::create_directories(kept);
        const std::string source = "/proc/self/fd/" + std::to_string(folder);
        if (mount(source.c_str(), kept.c_str(), nullptr, MS_BIND, nullptr) != 0) {
            failure = kept + " cannot be kept: " + std::strerror(errno);
        }
    }
    close(folder);
    return failure;
}

}  // namespace kvosim_test
