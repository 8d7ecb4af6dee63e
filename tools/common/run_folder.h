// Keeps the folder of the sockets during a run, such as "kvosim run". If a run made the folder, the last run removes it.
#pragma once

#include "common/guardian.h"
#include "common/socket_folder.h"

namespace tools {

class RunFolder {
public:
    /// Keeps kSocketDirectory until the process ends; executing another program does not end it. If the process is killed, the
    /// guardian still removes the folder. Construct it before the process has threads, and in the mount namespace of the
    /// folder. Throws as lockFolder does.
    explicit RunFolder(FolderUse use, const OnWait &onWait = {});
    RunFolder(const RunFolder &) = delete;
    RunFolder &operator=(const RunFolder &) = delete;
    /// Releases the folder. If this is the last run, returns after the folder is removed.
    ~RunFolder();

private:
    LockedFolder folder_;
    Guardian guardian_;  // removes the folder
};

}  // namespace tools
