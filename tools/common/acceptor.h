// Accepts the connections of a listening socket.
#pragma once

#include "common/event_loop.h"

#include <functional>
#include <memory>

namespace tools {

class Acceptor {
public:
    /// Calls @p onConnection on the loop's thread with each connection. @p loop and the listening socket must outlive this
    /// object.
    Acceptor(EventLoop &loop, int listener, std::function<void(Descriptor connection)> onConnection);
    Acceptor(const Acceptor &) = delete;
    Acceptor &operator=(const Acceptor &) = delete;
    ~Acceptor();

private:
    void watch();
    void acceptOne();
    void pause();

    EventLoop &loop_;
    int listener_;
    std::function<void(Descriptor connection)> onConnection_;
    bool watching_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tools
