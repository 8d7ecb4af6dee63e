// The folder of the sockets for the time of a run: the last run removes the folder that a run made.
#pragma once

#include "common/socket_folder.h"

namespace tools {

class RunFolder {
public:
    /// Holds kSocketDirectory until the process ends, also where it is killed or executes another program meanwhile. To be made
    /// before the process has threads, and in the mount namespace whose folder is meant. Throws as holdFolder does.
    explicit RunFolder(FolderUse use, const Waiting &waiting = {});
    RunFolder(const RunFolder &) = delete;
    RunFolder &operator=(const RunFolder &) = delete;
    /// Lets go of it already; returns when it is removed, if this is the last run.
    ~RunFolder();

private:
    HeldFolder folder_;
    Descriptor guardian_;
};

}  // namespace tools
