// A service in the process of the test, on a separate thread.
#pragma once

#include "kvosim/plant_file/plant_file.h"
#include "kvosim/service.h"

#include <string_view>
#include <thread>

namespace kvosim_test {

/// A plant with three stations and a value in every field.
inline constexpr std::string_view kSmallPlant = R"toml(
[service]
version = "V09.08"

[[registry.previous]]
address = "10.0.0.4"
name = "Gone"
attr1 = 4

[[station]]
address = "10.0.0.5"
name = "Lathe 1"
attr1 = 1
attr2 = 2
attr3 = 3
ext = [11, 12, 13, 14, 15, 16, 17]

[[station]]
address = "10.0.0.6"
name = "Fräse"
attr1 = 0xFFFFFFFF
brightness = 0

[[station]]
address = "192.168.0.7"
name = "No attributes"
)toml";

class RunningService {
public:
    explicit RunningService(std::string_view plant = kSmallPlant, const kvosim::ServiceOptions &options = {})
        : service_(loop_, kvosim::parsePlant(plant, "plant"), options, [this] { loop_.stop(); }),
          thread_([this] { loop_.run(); })
    {
    }
    RunningService(const RunningService &) = delete;
    RunningService &operator=(const RunningService &) = delete;
    ~RunningService() { stop(); }

    /// The address at which it receives the datagrams of the USB lock.
    [[nodiscard]] const std::string &usbLockAddress() const { return service_.usbLockAddress(); }
    /// Stops the service and returns its state.
    kvosim::Plant &stop()
    {
        loop_.stop();
        join();
        return service_.plant();
    }
    /// Waits until the service has ended by itself.
    void join()
    {
        if (thread_.joinable()) {
            thread_.join();
        }
    }

private:
    tools::EventLoop loop_;
    kvosim::Service service_;
    std::thread thread_;
};

}  // namespace kvosim_test
