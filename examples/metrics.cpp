// Metrics and clients: shows what kind of panel a station has and how many clients are connected.
#include <kvo_hws/kvo_hws.h>

#include <cstring>
#include <iostream>
#include <vector>

int main()
{
    constexpr uint32_t station = 0x0A000005;  // 10.0.0.5
    constexpr uint32_t rotationMetric = 6;

    unsigned char area[8];
    if (KVO_HWS_getStationMetrics(station, rotationMetric, area) == KVO_HWS_OK) {
        uint32_t rotation = 0;
        std::memcpy(&rotation, area, sizeof rotation);
        std::cout << "rotation " << rotation << '\n';
    }
    std::vector<KvoClientEntry> clients(16);
    auto count = static_cast<uint32_t>(clients.size());
    while (KVO_HWS_getClientList(clients.data(), &count, 0) == KVO_HWS_TOO_SMALL) {
        clients.resize(count);
    }
    clients.resize(count);
    std::cout << clients.size() << " clients\n";
    std::cout << (KVO_HWS_isMarovantiPanel(station) == KVO_HWS_OK ? "a Marovanti panel\n" : "another panel\n");
}
