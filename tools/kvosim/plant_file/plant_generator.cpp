// Generates plants: lines of machines with names and attributes that vary as in a real plant.
#include "kvosim/plant_file/plant_generator.h"

#include "common/dotted_address.h"

#include <array>
#include <ostream>
#include <random>

namespace kvosim {

namespace {

constexpr uint32_t kFirstAddress = 0x0A000001;  // 10.0.0.1
constexpr uint32_t kStationsPerNet = 254;       // 256 without .0 and .255
constexpr uint32_t kMachinesPerLine = 40;

constexpr std::array kMachines = {"Lathe",       "Milling centre", "Grinder", "Gear hobber",
                                  "Fräszentrum", "Press",          "Washer",  "Laser cutter"};
constexpr std::array<uint32_t, 4> kEdges = {0, 1, 0x80000000, 0xFFFFFFFF};

class Random {
public:
    explicit Random(uint64_t seed) : engine_(seed) {}

    /// 0 to @p limit - 1. Does not use the distributions of the standard library: they differ between machines.
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(engine_() % limit); }

    /// Usually a small number, sometimes one at an end of the range.
    uint32_t attribute() { return below(16) == 0 ? kEdges.at(below(kEdges.size())) : below(1000); }

private:
    std::mt19937_64 engine_;
};

}  // namespace

void generatePlant(std::ostream &out, uint32_t count, uint64_t seed)
{
    Random random(seed);
    out << "# " << count << " generated stations, seed " << seed << "\n\n[service]\nversion = \"V01.00.00.00\"\n";
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t address = kFirstAddress + i / kStationsPerNet * 256 + i % kStationsPerNet;
        out << "\n[[station]]\naddress = \"" << tools::dotted(address) << "\"\nname = \"Line " << i / kMachinesPerLine + 1
            << ' ' << kMachines.at(random.below(kMachines.size())) << ' ' << i % kMachinesPerLine + 1 << "\"\n";
        for (int attribute = 1; attribute <= 3; ++attribute) {
            out << "attr" << attribute << " = " << random.attribute() << '\n';
        }
        out << "ext = [";
        for (int ext = 0; ext < 7; ++ext) {
            out << (ext == 0 ? "" : ", ") << random.attribute();
        }
        out << "]\n";
    }
}

}  // namespace kvosim
