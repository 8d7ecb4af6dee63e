// A tap's guardian, which cleans up if the tap is killed. If the guardian itself ends, there is soon another one.
#pragma once

#include "common/event_loop.h"
#include "common/guardian.h"

#include <functional>
#include <memory>
#include <vector>

namespace tools::tap {

class TapGuardian {
public:
    /// @p cleanUp  runs in the guardian's process when this one has ended, or when this object is destroyed
    TapGuardian(EventLoop &loop, std::function<void()> cleanUp);
    TapGuardian(const TapGuardian &) = delete;
    TapGuardian &operator=(const TapGuardian &) = delete;
    ~TapGuardian();

private:
    void start();
    void ended();
    void startLater();

    EventLoop &loop_;
    std::function<void()> cleanUp_;
    Guardian guardian_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tools::tap
