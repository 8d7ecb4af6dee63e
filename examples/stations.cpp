// Prints the stations that the hardware service knows, in C++. Start with this program.
#include <kvo_hws/kvo_hws.hpp>

#include <iostream>

int main()
{
    const auto stations = kvo::Service::description_list();
    if (!stations) {
        std::cerr << "no station list: " << stations.error().reason() << '\n';
        return 1;
    }
    for (const kvo::StationDescription &station : *stations) {
        std::cout << station.address << "  " << station.name << '\n';
    }
}
