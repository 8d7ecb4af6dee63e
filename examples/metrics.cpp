// Metrics and clients: shows what kind of panel a station has and how many clients are connected, in C++.
#include <kvo_hws/kvo_hws.hpp>

#include <iostream>

int main()
{
    const kvo::Station station(kvo::Address(0x0A000005));  // 10.0.0.5

    if (const auto rotation = station.metric(kvo::Metric::panel_rotation)) {
        std::cout << "rotation " << *rotation << '\n';
    } else if (rotation.error().meaning() == kvo::Errc::not_available) {
        std::cout << "the station does not report its rotation\n";
    }
    if (const auto clients = kvo::Service::client_list()) {
        std::cout << clients->size() << " clients\n";
    }
    std::cout << (station.is_marovanti_panel().value_or(false) ? "a Marovanti panel\n" : "another panel\n");
}
