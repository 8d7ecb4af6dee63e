// The folder of the sockets during a run. The last run removes the folder if a run made it.
#pragma once

#include "common/socket_folder.h"

namespace tools {

class RunFolder {
public:
    /// Keeps kSocketDirectory until the process ends, even if it is killed or executes another program. Construct it before the
    /// process has threads, and in the mount namespace of the folder. Throws as lockFolder does.
    explicit RunFolder(FolderUse use, const OnWait &onWait = {});
    RunFolder(const RunFolder &) = delete;
    RunFolder &operator=(const RunFolder &) = delete;
    /// Releases the folder. If this is the last run, returns after the folder is removed.
    ~RunFolder();

private:
    LockedFolder folder_;
    Descriptor guardian_;
};

}  // namespace tools
