// Accepts the connections of a listening socket.
#pragma once

#include "common/event_loop.h"

#include <functional>
#include <memory>

namespace kvosim {

class Acceptor {
public:
    /// Calls @p onConnection on the loop's thread with each connection. @p loop and the listening socket must outlive this
    /// object.
    Acceptor(tools::EventLoop &loop, int listener, std::function<void(tools::Descriptor connection)> onConnection);
    Acceptor(const Acceptor &) = delete;
    Acceptor &operator=(const Acceptor &) = delete;
    ~Acceptor();

private:
    void watch();
    void acceptSome();
    void pause();

    tools::EventLoop &loop_;
    int listener_;
    std::function<void(tools::Descriptor connection)> onConnection_;
    bool watching_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kvosim
