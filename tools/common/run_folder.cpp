// Starts the guardian, a process that outlives the run and then removes the folder. It stays in the mount namespace of the
// folder.
#include "common/run_folder.h"

namespace tools {

namespace {

constexpr std::chrono::milliseconds kRemovalTimeout{2'000};
constexpr int kFolder = 0;  // the guardian's descriptor

/// The guardian's program. If @p made, this run made the folder: other users cannot remove it, so the guardian also waits for
/// their runs.
void removeAtEnd(GuardedProcess &run, bool made)
{
    run.waitForEnd();
    removeUnusedFolder(kFolder, kSocketDirectory, false);
    run.release();
    if (made) {
        removeUnusedFolder(kFolder, kSocketDirectory, true);
    }
}

}  // namespace

RunFolder::RunFolder(FolderUse use, const OnWait &onWait) : folder_(lockFolder(kSocketDirectory, use, kRunFolderMode, onWait))
{
    // If the guardian cannot be started, the folder is not removed.
    if (folder_.descriptor.valid()) {
        guardian_ = Guardian::start("kvosim_folder", {folder_.descriptor.get()},
                                    [made = folder_.made](GuardedProcess &run) { removeAtEnd(run, made); });
    }
}

RunFolder::~RunFolder() { guardian_.finish(kRemovalTimeout); }

}  // namespace tools
