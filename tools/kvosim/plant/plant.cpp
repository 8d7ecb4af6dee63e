// Stores stations and finds them by address and name.
#include "kvosim/plant/plant.h"

#include <stdexcept>
#include <utility>

namespace kvosim {

void Plant::reserve(std::size_t count)
{
    stations_.reserve(count);
    panels_.reserve(count);
    byAddress_.reserve(count);
    byName_.reserve(count);
}

void Plant::add(const ConnectionEntry &station, Panel panel)
{
    const std::size_t index = stations_.size();
    if (!byAddress_.emplace(station.address, index).second || !byName_.emplace(station.name, index).second) {
        throw std::invalid_argument(std::string("a station's address and name must be unique: ") + station.name);
    }
    stations_.push_back(station);
    panels_.push_back(std::move(panel));
}

const ConnectionEntry *Plant::findAddress(uint32_t address) const
{
    const auto found = byAddress_.find(address);
    return found == byAddress_.end() ? nullptr : &stations_[found->second];
}

const ConnectionEntry *Plant::findName(std::string_view name) const
{
    const auto found = byName_.find(std::string(name));
    return found == byName_.end() ? nullptr : &stations_[found->second];
}

Panel *Plant::findPanel(uint32_t address)
{
    const auto found = byAddress_.find(address);
    return found == byAddress_.end() ? nullptr : &panels_[found->second];
}

std::optional<Station> Plant::findStation(uint32_t address)
{
    const auto found = byAddress_.find(address);
    return found == byAddress_.end() ? std::nullopt
                                     : std::optional(Station{stations_[found->second], panels_[found->second], clock});
}

}  // namespace kvosim
