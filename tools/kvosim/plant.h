// The state of the simulated plant: the service itself, the stations that it knows, and the panel of each.
#pragma once

#include <kvo_hws/codecs.h>

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kvosim {

/// The longest name that a description can carry, in bytes.
inline constexpr std::size_t kLongestName = sizeof(ConnectionEntry::name) - 1;

/// Values of the debug level and what the protocol calls them (commands.cpp).
enum class DebugLevel : uint32_t { none, one, two };

/// What the service knows of itself and of the panel that it runs on.
struct ServiceState {
    std::string version = "V01.00.00.00";
    std::chrono::milliseconds initTime{0};  ///< for so long after its start the service says that it is not ready
    DebugLevel debugLevel = DebugLevel::none;
    uint32_t backlight = 1;  ///< 0 off, 1 on
};

/// What a station's panel is set to.
struct Panel {
    uint32_t brightness = 1;  ///< 0 dark, 1 bright
};

class Plant {
public:
    ServiceState service;
    std::vector<KvoDescription> previous;  ///< the registry's previous list where there has been no start before

    /// @p station needs an address and a name that no other station has.
    void add(const ConnectionEntry &station, Panel panel);

    [[nodiscard]] std::span<const ConnectionEntry> stations() const noexcept { return stations_; }
    /// Null when there is no such station.
    [[nodiscard]] const ConnectionEntry *findAddress(uint32_t address) const;
    [[nodiscard]] const ConnectionEntry *findName(std::string_view name) const;
    [[nodiscard]] Panel *findPanel(uint32_t address);

private:
    // In one piece, as the description codecs take them; the panels stand in the same order.
    std::vector<ConnectionEntry> stations_;
    std::vector<Panel> panels_;
    std::unordered_map<uint32_t, std::size_t> byAddress_;
    std::unordered_map<std::string, std::size_t> byName_;
};

}  // namespace kvosim
