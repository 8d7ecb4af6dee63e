// Listens to the embedded events of the service, beside the programs that do.
#pragma once

#include "common/descriptor.h"
#include "common/event_loop.h"
#include "common/tap/event_lines.h"

#include <filesystem>

namespace tools::tap {

class EventListener {
public:
    EventListener(EventLoop &loop, std::filesystem::path path, Observer &observer, Clock::time_point start);
    EventListener(const EventListener &) = delete;
    EventListener &operator=(const EventListener &) = delete;
    ~EventListener();

    /// Connects, unless it is connected already. Returns whether it is connected now.
    bool look();

private:
    void read();
    void disconnect();

    EventLoop &loop_;
    std::filesystem::path path_;
    EventLines lines_;
    Descriptor connection_;
};

}  // namespace tools::tap
