// Prints the stations that the hardware service knows, in C++. Start with this program.
#include <kvo_hws/kvo_hws.h>

#include <iostream>
#include <vector>

int main()
{
    std::vector<KvoDescription> stations(64);
    auto count = static_cast<uint32_t>(stations.size());
    int32_t result = KVO_HWS_getDescriptionList(stations.data(), &count);

    // On KVO_HWS_TOO_SMALL, count is the number that is needed. The list may grow before the next call, so this is a loop.
    while (result == KVO_HWS_TOO_SMALL) {
        stations.resize(count);
        result = KVO_HWS_getDescriptionList(stations.data(), &count);
    }
    if (result != KVO_HWS_OK) {
        std::cerr << "no station list: " << kvo_hws_result_text("KVO_HWS_getDescriptionList", result) << '\n';
        return 1;
    }
    stations.resize(count);
    for (const KvoDescription &station : stations) {
        const uint32_t address = station.address;
        std::cout << (address >> 24) << '.' << (address >> 16 & 255U) << '.' << (address >> 8 & 255U) << '.' << (address & 255U)
                  << "  " << station.name << '\n';
    }
}
