// Sends a group of recorded events at their offsets, one after another.
#pragma once

#include "common/event_loop.h"
#include "kvosim/replay/contents.h"
#include "kvosim/replay/speed.h"

#include <functional>
#include <memory>

namespace kvosim {

class Timeline {
public:
    /// Sends one event, and calls @p done when the next one may follow. @p done may be called at any later time, and also when the
    /// timeline no longer exists.
    using Send = std::function<void(LineIndex event, std::function<void()> done)>;

    /// Begins now. The offsets count from this moment. An event is late if the one before it takes longer than when it was
    /// recorded. The destructor stops: no further event is sent. @p loop and @p group must outlive this object.
    Timeline(tools::EventLoop &loop, const EventGroup &group, Speed speed, Send send);
    Timeline(const Timeline &) = delete;
    Timeline &operator=(const Timeline &) = delete;

private:
    void waitForNext();
    void sendNext();

    tools::EventLoop &loop_;
    const EventGroup &group_;
    Speed speed_;
    Send send_;
    tools::Clock::time_point begin_ = tools::Clock::now();
    std::size_t next_ = 0;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kvosim
