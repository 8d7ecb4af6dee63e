// A running service and a receiver of its USB events.
#pragma once

#include "common/control_client.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/running_service.h"

#include "support/scripted_service.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvosim_test {

inline void activateUsbEvents() { EXPECT_EQ(exchange("activateUSBEvents\n"), "ok\n"); }

/// A service and a receiver, which has activated the USB events and answers each event by a script.
class UsbReceiver : private RunningService, public support::ScriptedService {
public:
    explicit UsbReceiver(std::vector<support::Script> scripts = {support::replies("ok")}, std::string_view plant = kSmallPlant)
        : RunningService(plant), ScriptedService(std::move(scripts), support::kUsbSocket)
    {
        activateUsbEvents();
    }
    /// Waits until the service has ended by itself.
    void joinService() { join(); }
};

/// The reply of the simulator to a USB action. Throws if the simulator refuses.
inline tools::Json askUsb(const std::string &action, const tools::Json &more)
{
    tools::Json request{{"do", "usb." + action}};
    request.update(more);
    return tools::askSimulator(request, tools::kControlSocket, std::chrono::seconds(60));
}

/// The number of devices plugged in at all stations.
inline std::size_t devicesPluggedIn() { return tools::askSimulator({{"do", "status"}})["usb_devices"].get<std::size_t>(); }

}  // namespace kvosim_test
