// Starts the guardian, a process that outlives the run and then removes the folder. It stays in the mount namespace of the
// folder.
#include "common/run_folder.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tools {

namespace {

constexpr int kRemovalMilliseconds = 2'000;
constexpr char kDone = 'd';

/// The numbers of the guardian's descriptors. It has no others, so it keeps no terminal, pipe or file of the run open.
enum GuardianDescriptor { kFolder, kRun, kProcess, kDescriptors };

void keepOnly(const std::array<int, kDescriptors> &descriptors)
{
    std::array<int, kDescriptors> moved{};
    std::transform(descriptors.begin(), descriptors.end(), moved.begin(),
                   [](int descriptor) { return fcntl(descriptor, F_DUPFD, static_cast<int>(kDescriptors)); });
    int number = 0;
    for (const int descriptor : moved) {
        dup2(descriptor, number++);
    }
    syscall(SYS_close_range, static_cast<unsigned>(kDescriptors), ~0U, 0);
}

/// Waits until the run sends kDone or its process ends. A closed socket alone is not the end: a run that executes another
/// program continues without the socket.
void waitForEndOfRun()
{
    std::array<pollfd, 2> events{pollfd{.fd = kRun, .events = POLLIN, .revents = 0},
                                 pollfd{.fd = kProcess, .events = POLLIN, .revents = 0}};
    for (;;) {
        if (poll(events.data(), events.size(), -1) < 0) {
            continue;
        }
        char word = 0;
        if (events[1].revents != 0 || (events[0].revents != 0 && read(kRun, &word, 1) == 1)) {
            return;
        }
        events[0].fd = -1;  // closed
    }
}

/// The program of the guardian. If @p made, this run made the folder: other users cannot remove it, so the guardian also waits
/// for their runs.
[[noreturn]] void guard(const std::array<int, kDescriptors> &descriptors, bool made)
{
    // In a new session the guardian does not receive the terminal's signals.
    setsid();
    prctl(PR_SET_NAME, "kvosim_folder");
    keepOnly(descriptors);
    if (chdir("/") != 0) {
        _exit(1);
    }
    waitForEndOfRun();
    removeUnusedFolder(kFolder, kSocketDirectory, false);
    close(kRun);  // ends the wait of the destructor
    close(kProcess);
    if (made) {
        removeUnusedFolder(kFolder, kSocketDirectory, true);
    }
    _exit(0);
}

/// Starts the guardian as a process that is not a child of this one, because this process may wait for all of its children, or
/// kill them. If that fails, the folder is not removed.
Descriptor startGuardian(const LockedFolder &folder)
{
    std::array<int, 2> ends{};
    const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)));
    if (!process.valid() || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return {};
    }
    Descriptor ours(ends[0]);
    const Descriptor guardians(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        if (fork() == 0) {
            guard({folder.descriptor.get(), guardians.get(), process.get()}, folder.made);
        }
        _exit(0);
    }
    if (child > 0) {
        waitpid(child, nullptr, 0);
    }
    return ours;
}

}  // namespace

RunFolder::RunFolder(FolderUse use, const OnWait &onWait) : folder_(lockFolder(kSocketDirectory, use, kRunFolderMode, onWait))
{
    if (folder_.descriptor.valid()) {
        guardian_ = startGuardian(folder_);
    }
}

RunFolder::~RunFolder()
{
    if (!guardian_.valid() || send(guardian_.get(), &kDone, 1, MSG_NOSIGNAL) != 1) {
        return;
    }
    pollfd gone{.fd = guardian_.get(), .events = POLLIN, .revents = 0};
    poll(&gone, 1, kRemovalMilliseconds);
}

}  // namespace tools
