// The state of the simulated plant: the service, its stations, their clients, and the faults.
#pragma once

#include "common/plant_values.h"
#include "kvosim/plant/faults.h"
#include "kvosim/plant/panel.h"
#include "kvosim/plant/plant_clock.h"

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

using tools::kLongestName;

/// The debug levels; service_commands.cpp has their names in the protocol.
enum class DebugLevel : uint32_t { none, one, two };

/// The state of the service and of the panel that it runs on.
struct ServiceState {
    std::string version = "V01.00.00.00";
    std::chrono::milliseconds initTime{0};  ///< for this long after its start the service reports that it is not ready
    DebugLevel debugLevel = DebugLevel::none;
    uint32_t backlight = 1;                       ///< 0 off, 1 on
    std::chrono::milliseconds focusHold{0};       ///< for this long a station keeps the focus after getting it
    std::optional<std::string> usbLockAddress{};  ///< where the service receives datagrams of the USB lock
    std::vector<unsigned> remoteSessions{};       ///< the sessions of agents that are served
    std::string remoteAddress = "127.0.0.1";      ///< where agents connect
};

/// The station that has the focus; 0 means none.
struct Focus {
    uint32_t station = 0;
    PlantClock::TimePoint since{};
};

/// References to the entry and the panel of one station, to change them, and to the plant's clock.
struct Station {
    ConnectionEntry &entry;
    Panel &panel;
    const PlantClock &clock = kRealTime;

    [[nodiscard]] bool rebooting() const { return panel.rebooting(clock); }
};

class Plant {
public:
    PlantClock clock;
    ServiceState service;
    Focus focus;
    Faults faults;
    std::vector<ConnectionClientEntry> clients;
    std::vector<KvoDescription> previousList;  ///< the registry's previous list at the first start

    /// Reserves memory for @p count stations.
    void reserve(std::size_t count);
    /// The address and the name of @p station must be unique.
    void add(const ConnectionEntry &station, Panel panel);

    [[nodiscard]] std::span<const ConnectionEntry> stations() const noexcept { return stations_; }
    /// In the order of the stations.
    [[nodiscard]] std::span<Panel> panels() noexcept { return panels_; }
    /// Null, or nothing, if no such station exists.
    [[nodiscard]] const ConnectionEntry *findAddress(uint32_t address) const;
    [[nodiscard]] const ConnectionEntry *findName(std::string_view name) const;
    [[nodiscard]] Panel *findPanel(uint32_t address);
    [[nodiscard]] std::optional<Station> findStation(uint32_t address);

private:
    // The description codecs need the entries in one array. The panels are in the same order.
    std::vector<ConnectionEntry> stations_;
    std::vector<Panel> panels_;
    std::unordered_map<uint32_t, std::size_t> byAddress_;
    std::unordered_map<std::string, std::size_t> byName_;
};

}  // namespace kvosim
