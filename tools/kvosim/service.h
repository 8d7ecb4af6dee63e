// The simulated hardware service: a plant, its registry, and the command socket on which it answers.
#pragma once

#include "commands.h"
#include "line_server.h"
#include "plant.h"
#include "registry.h"

#include <filesystem>
#include <functional>
#include <optional>

namespace kvosim {

struct ServiceOptions {
    std::filesystem::path socket = "/tmp/kvo_hws/cmd_sock";
    std::optional<std::filesystem::path> registry{};  ///< none: a temporary directory
    bool verbose = false;                             ///< logs each exchange on standard error
    LineServerLimits limits{};
};

class Service {
public:
    /// Serves as soon as @p loop runs. @p ended is called, on the loop, when the service has ended, by itself or by end.
    /// Throws std::runtime_error where it can not be started.
    Service(EventLoop &loop, Plant plant, const ServiceOptions &options, std::function<void()> ended);

    /// On the loop's thread: no new requests; the replies on their way are written first.
    void end();

    /// Only on the loop's thread, or when the loop does not run.
    [[nodiscard]] Plant &plant() noexcept { return plant_; }
    [[nodiscard]] Registry &registry() noexcept { return registry_; }

private:
    std::string exchange(std::string_view request);

    bool verbose_;
    std::function<void()> ended_;
    Plant plant_;
    Registry registry_;
    ServiceContext context_;
    LineServer commands_;
};

}  // namespace kvosim
