// The simulated hardware service: a plant, its registry, and the doors to it: the command socket, the datagrams of the USB
// lock, the remote side of agents, the events of embedded stations, and the simulator's own control socket.
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
    std::filesystem::path eventSocket = "/tmp/kvo_hws/event_sock";  ///< of the events of embedded stations
    std::optional<std::filesystem::path> registry{};                ///< none: a temporary directory
    bool verbose = false;                                           ///< logs each exchange on standard error
    mode_t socketMode = tools::kForThisUser;  ///< who may connect to the sockets of the service, as file modes
    /// Where the USB lock's datagrams are taken. None: where the plant says, else nowhere.
    std::optional<std::string> usbLockAddress{};
    /// The same where neither says; the service does without when the place is taken.
    std::optional<std::string> usbLockDefault{};
    /// For which sessions agents are served, and where. None: as the plant says, else for none and at 127.0.0.1.
    std::optional<std::vector<unsigned>> remoteSessions{};
    std::optional<std::string> remoteAddress{};
    std::chrono::seconds alive{0};  ///< between "Alive?" events; 0: none
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
    /// Empty where no datagrams are taken.
    [[nodiscard]] const std::string &usbLockAddress() const noexcept { return context_.usbLockAddress; }

private:
    void report(std::string_view line) const;
    void openUsbLock(const ServiceOptions &options);
    Reply exchange(std::string_view request);
    void takeDatagram(std::string_view datagram);

    EventLoop &loop_;
    bool verbose_;
    std::function<void()> ended_;
    Plant plant_;
    Registry registry_;
    ServiceContext context_;
    UsbEvents usbEvents_;
    LineServer commands_;
    LineServer control_;
    // Behind the command socket, so that a service that runs already is told by that.
    EmbeddedEvents embeddedEvents_;
    RemoteSide remote_;
    std::unique_ptr<UdpSocket> usbLock_;
};

}  // namespace kvosim
