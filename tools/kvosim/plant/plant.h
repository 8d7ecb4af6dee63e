// The state of the simulated plant: the service itself, the stations that it knows, their clients, and the faults.
#pragma once

#include "kvosim/plant/faults.h"
#include "kvosim/plant/panel.h"

#include <kvo_hws/codecs.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kvosim {

/// The longest name that a description can carry, in bytes.
inline constexpr std::size_t kLongestName = sizeof(ConnectionEntry::name) - 1;

/// Values of the debug level and what the protocol calls them (service_commands.cpp).
enum class DebugLevel : uint32_t { none, one, two };

/// What the service knows of itself and of the panel that it runs on.
struct ServiceState {
    std::string version = "V01.00.00.00";
    std::chrono::milliseconds initTime{0};  ///< for so long after its start the service says that it is not ready
    DebugLevel debugLevel = DebugLevel::none;
    uint32_t backlight = 1;                       ///< 0 off, 1 on
    std::chrono::milliseconds focusHold{0};       ///< for so long a station that has got the focus keeps it
    std::optional<std::string> usbLockAddress{};  ///< where the datagrams of the USB lock are taken
    std::vector<unsigned> remoteSessions{};       ///< for which agents are served
    std::string remoteAddress = "127.0.0.1";      ///< where they are
};

/// Which station has the focus; 0 is none.
struct Focus {
    uint32_t station = 0;
    std::chrono::steady_clock::time_point since{};
};

/// One station of the plant, to be changed.
struct Station {
    ConnectionEntry &entry;
    Panel &panel;
};

class Plant {
public:
    ServiceState service;
    Focus focus;
    Faults faults;
    std::vector<ConnectionClientEntry> clients;
    std::vector<KvoDescription> previous;  ///< the registry's previous list where there has been no start before

    /// Makes room for @p count stations.
    void reserve(std::size_t count);
    /// @p station needs an address and a name that no other station has.
    void add(const ConnectionEntry &station, Panel panel);

    [[nodiscard]] std::span<const ConnectionEntry> stations() const noexcept { return stations_; }
    /// In the order of the stations.
    [[nodiscard]] std::span<Panel> panels() noexcept { return panels_; }
    /// Null when there is no such station.
    [[nodiscard]] const ConnectionEntry *findAddress(uint32_t address) const;
    [[nodiscard]] const ConnectionEntry *findName(std::string_view name) const;
    [[nodiscard]] Panel *findPanel(uint32_t address);
    [[nodiscard]] std::optional<Station> findStation(uint32_t address);

private:
    // In one piece, as the description codecs take them; the panels stand in the same order.
    std::vector<ConnectionEntry> stations_;
    std::vector<Panel> panels_;
    std::unordered_map<uint32_t, std::size_t> byAddress_;
    std::unordered_map<std::string, std::size_t> byName_;
};

}  // namespace kvosim
