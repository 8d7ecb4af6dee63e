#include "support/stations.h"

#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <random>

namespace bench {

namespace {

constexpr unsigned kSeed = 4711;
constexpr std::size_t kShortestName = 4;
constexpr std::size_t kLongestName = 24;

}  // namespace

std::vector<ConnectionEntry> makeStations(uint32_t count)
{
    std::mt19937 random(kSeed);
    const auto number = [&random] { return static_cast<uint32_t>(random()); };
    std::vector<ConnectionEntry> stations(count);
    for (ConnectionEntry &station : stations) {
        station.address = number();
        station.attr1 = number();
        station.attr2 = number();
        station.attr3 = number();
        for (uint32_t *attribute : {&station.extAttr1, &station.extAttr2, &station.extAttr3, &station.extAttr4,
                                    &station.extAttr5, &station.extAttr6}) {
            *attribute = number();
        }
        station.extAttr7 = number();
        const std::size_t length = kShortestName + random() % (kLongestName - kShortestName + 1);
        std::string("panel at press line east").copy(station.name, length);
    }
    return stations;
}

std::string textOf(const std::vector<ConnectionEntry> &stations, bool extended)
{
    char piece[512];
    std::snprintf(piece, sizeof piece, "%08zX ", stations.size());
    std::string text = piece;
    for (const ConnectionEntry &station : stations) {
        std::snprintf(piece, sizeof piece, "%08X %08X %08X %08X %08zX %s ", station.address, station.attr1, station.attr2,
                      station.attr3, std::strlen(station.name), station.name);
        text += piece;
        if (extended) {
            std::snprintf(piece, sizeof piece, "%08X %08X %08X %08X %08X %08X %08lX ", station.extAttr1, station.extAttr2,
                          station.extAttr3, station.extAttr4, station.extAttr5, station.extAttr6, station.extAttr7);
            text += piece;
        }
    }
    return text;
}

std::string jsonOf(const std::vector<ConnectionEntry> &stations, bool extended)
{
    nlohmann::json list = nlohmann::json::array();
    for (const ConnectionEntry &station : stations) {
        nlohmann::json one = {{"address", station.address},
                              {"name", station.name},
                              {"attr1", station.attr1},
                              {"attr2", station.attr2},
                              {"attr3", station.attr3}};
        if (extended) {
            one.update({{"extAttr1", station.extAttr1},
                        {"extAttr2", station.extAttr2},
                        {"extAttr3", station.extAttr3},
                        {"extAttr4", station.extAttr4},
                        {"extAttr5", station.extAttr5},
                        {"extAttr6", station.extAttr6},
                        {"extAttr7", station.extAttr7}});
        }
        list.push_back(std::move(one));
    }
    return list.dump();
}

}  // namespace bench
