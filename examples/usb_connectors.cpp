// USB: shows the lock of one station and the connectors of all stations, in C++.
#include <kvo_hws/kvo_hws.hpp>

#include <iostream>

int main()
{
    try {
        const kvo::Station station("10.0.0.5");
        const kvo::UsbLock lock = station.usb_lock().value();

        std::cout << "lock " << lock.first << ':' << lock.second << '\n';
        std::cout << "connectors: " << kvo::Service::usb_connector_list().value() << '\n';
    } catch (const kvo::Exception &failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
