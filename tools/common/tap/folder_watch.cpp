// Uses inotify, and looks again each half second: the folder may be new, or the system may have no watches left.
#include "common/tap/folder_watch.h"

#include <array>
#include <sys/epoll.h>
#include <sys/inotify.h>

namespace tools::tap {

namespace {

constexpr std::chrono::milliseconds kPeriod{500};
constexpr uint32_t kChanges = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ATTRIB | IN_ONLYDIR;

}  // namespace

FolderWatch::FolderWatch(EventLoop &loop, std::filesystem::path folder, std::function<void()> onChange)
    : loop_(loop), folder_(std::move(folder)), onChange_(std::move(onChange)), changes_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    if (changes_.valid()) {
        watchFolder();
        loop_.watch(changes_.get(), EPOLLIN, [this](uint32_t) { drain(); });
    }
    lookLater();
}

FolderWatch::~FolderWatch()
{
    if (changes_.valid()) {
        loop_.unwatch(changes_.get());
    }
}

/// Does nothing if the same folder is already watched.
void FolderWatch::watchFolder() { inotify_add_watch(changes_.get(), folder_.c_str(), kChanges); }

void FolderWatch::drain()
{
    std::array<char, 4096> events{};
    while (read(changes_.get(), events.data(), events.size()) > 0) {
    }
    onChange_();
}

void FolderWatch::lookLater()
{
    loop_.after(kPeriod, [this, alive = std::weak_ptr(alive_)] {
        if (alive.expired()) {
            return;
        }
        watchFolder();
        lookLater();
        onChange_();
    });
}

}  // namespace tools::tap
