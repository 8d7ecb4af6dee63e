#include "kvosim/replay/timeline.h"

#include <algorithm>

namespace kvosim {

Timeline::Timeline(tools::EventLoop &loop, const EventGroup &group, Speed speed, Send send)
    : loop_(loop), group_(group), speed_(speed), send_(std::move(send))
{
    waitForNext();
}

/// Also with a pause of 0, the event is sent later: the reply that begins the timeline goes first.
void Timeline::waitForNext()
{
    if (next_ == group_.size()) {
        return;
    }
    const auto due = begin_ + speed_.scaled(group_[next_].offset);
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(due - tools::Clock::now());
    loop_.after(std::max(wait, std::chrono::milliseconds(0)), [this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) {
            sendNext();
        }
    });
}

void Timeline::sendNext()
{
    const LineIndex event = group_[next_++].line;
    send_(event, [this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) {
            waitForNext();
        }
    });
}

}  // namespace kvosim
