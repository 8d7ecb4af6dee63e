// Notices when nothing listens at a server's socket any more.
#pragma once

#include "common/descriptor.h"
#include "common/event_loop.h"
#include "common/tap/file_id.h"

#include <functional>
#include <memory>

namespace tools::tap {

class ServerWatch {
public:
    /// Calls @p onEnd once, when the server at the socket @p file has ended. It is noticed at once if @p process is known (not 0)
    /// and listens until it ends; else within kPeriod, if the kernel can list the sockets that listen.
    ServerWatch(EventLoop &loop, const FileId &file, pid_t process, std::function<void()> onEnd);
    ServerWatch(const ServerWatch &) = delete;
    ServerWatch &operator=(const ServerWatch &) = delete;
    ~ServerWatch();

    static constexpr std::chrono::milliseconds kPeriod{20};

private:
    void processEnded();
    void end();
    void lookLater();
    void look();

    EventLoop &loop_;
    FileId file_;
    std::function<void()> onEnd_;
    Descriptor process_;  // a pidfd
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tools::tap
