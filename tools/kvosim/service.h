// The simulated hardware service: a plant, its registry, and the interfaces to them: the command socket, the datagrams of the
// USB lock, the remote side of agents, the events of embedded stations, and the simulator's own control socket.
#pragma once

#include "kvosim/commands/commands.h"
#include "kvosim/events/embedded_events.h"
#include "kvosim/events/usb_events.h"
#include "kvosim/net/line_server.h"
#include "kvosim/net/udp_socket.h"
#include "kvosim/plant/plant.h"
#include "kvosim/plant/registry.h"
#include "kvosim/remote/remote_side.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kvosim {

struct ServiceOptions {
    std::filesystem::path socket = "/tmp/kvo_hws/cmd_sock";
    std::filesystem::path controlSocket = "/tmp/kvo_hws/kvosim_ctl";
    std::filesystem::path eventSocket = "/tmp/kvo_hws/event_sock";  ///< for events of embedded stations
    std::optional<std::filesystem::path> registry{};                ///< without a value: a temporary directory
    bool verbose = false;                                           ///< log each exchange on standard error
    mode_t socketMode = tools::kForThisUser;  ///< who may connect to the sockets of the service, as a file mode
    /// Address for the datagrams of the USB lock. Without a value: the address in the plant, else usbLockDefault.
    std::optional<std::string> usbLockAddress{};
    /// Used when neither usbLockAddress nor the plant gives an address. If this address is in use, the service runs without
    /// datagrams.
    std::optional<std::string> usbLockDefault{};
    /// The sessions of agents, and the address at which they connect. Without a value: those of the plant, else no session and
    /// 127.0.0.1.
    std::optional<std::vector<unsigned>> remoteSessions{};
    std::optional<std::string> remoteAddress{};
    std::chrono::seconds alive{0};  ///< time between "Alive?" events; 0 sends none
    LineServerLimits limits{};
};

class Service {
public:
    /// Serves as soon as @p loop runs. Calls @p ended on the loop's thread when the service has ended, by itself or by end().
    /// Throws std::runtime_error if the service cannot start.
    Service(tools::EventLoop &loop, Plant plant, const ServiceOptions &options, std::function<void()> ended);

    /// Stops accepting requests, finishes the replies that are being written, then ends. Call it on the loop's thread.
    void end();

    /// Call these only on the loop's thread, or while the loop does not run.
    [[nodiscard]] Plant &plant() noexcept { return plant_; }
    [[nodiscard]] Registry &registry() noexcept { return registry_; }
    /// Empty if the service does not receive datagrams.
    [[nodiscard]] const std::string &usbLockAddress() const noexcept { return context_.usbLockAddress; }

private:
    void report(std::string_view line) const;
    void openUsbLock(const ServiceOptions &options);
    Reply exchange(std::string_view request);
    void handleDatagram(std::string_view datagram);

    tools::EventLoop &loop_;
    bool verbose_;
    std::function<void()> ended_;
    Plant plant_;
    Registry registry_;
    ServiceContext context_;
    UsbEvents usbEvents_;
    LineServer commands_;
    LineServer control_;
    // After the command socket: if another service is running, the error message names the command socket.
    EmbeddedEvents embeddedEvents_;
    RemoteSide remote_;
    std::unique_ptr<UdpSocket> usbLock_;
};

}  // namespace kvosim
