// A replay in the process of the test, on a separate thread.
#pragma once

#include "kvosim/plant_file/plant_file.h"
#include "kvosim/replay/replay.h"
#include "tools/kvosim/compare/recordings.h"

#include <optional>
#include <string>
#include <thread>

namespace kvosim_test {

class RunningReplay {
public:
    explicit RunningReplay(const std::string &lines, kvosim::ReplayOptions options = {},
                           const std::optional<std::string> &plant = std::nullopt)
        : recording_(recordingOf(lines)),
          replay_(loop_, recording_, plant ? std::optional(kvosim::parsePlant(*plant, "plant")) : std::nullopt,
                  withFile(std::move(options))),
          thread_([this] { loop_.run(); })
    {
    }
    RunningReplay(const RunningReplay &) = delete;
    RunningReplay &operator=(const RunningReplay &) = delete;
    ~RunningReplay() { stop(); }

    /// Stops the replay and returns its report.
    kvosim::ReplayReport stop()
    {
        loop_.stop();
        if (thread_.joinable()) {
            thread_.join();
        }
        return replay_.report();
    }

private:
    static kvosim::ReplayOptions withFile(kvosim::ReplayOptions options)
    {
        options.file = "plant.rec";
        return options;
    }

    kvosim::Recording recording_;
    tools::EventLoop loop_;
    kvosim::Replay replay_;
    std::thread thread_;
};

inline kvosim::ReplayOptions atSpeed(const std::string &speed) { return {.speed = *kvosim::Speed::parse(speed)}; }
inline kvosim::ReplayOptions strictly()
{
    kvosim::ReplayOptions options;
    options.strict = true;
    return options;
}

}  // namespace kvosim_test
