// Notices when files of the service's folder come, go or are exchanged.
#pragma once

#include "common/descriptor.h"
#include "common/event_loop.h"

#include <filesystem>
#include <functional>
#include <memory>

namespace tools::tap {

class FolderWatch {
public:
    /// Calls @p onChange after each change, and now and then without one. The folder may be removed and made again.
    FolderWatch(EventLoop &loop, std::filesystem::path folder, std::function<void()> onChange);
    FolderWatch(const FolderWatch &) = delete;
    FolderWatch &operator=(const FolderWatch &) = delete;
    ~FolderWatch();

private:
    void watchFolder();
    void drain();
    void lookLater();

    EventLoop &loop_;
    std::filesystem::path folder_;
    std::function<void()> onChange_;
    Descriptor changes_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tools::tap
