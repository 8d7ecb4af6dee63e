// Viewer: starts the viewer of a station, prints what it shows, and stops it, in C++.
#include <kvo_hws/kvo_hws.hpp>

#include <iostream>

int main()
{
    try {
        const kvo::Station station("10.0.0.5");

        station.stop_viewer().value();  // false means that no viewer was running; this is not a failure
        if (!station.start_viewer("10.0.0.7", "3", "").value()) {
            std::cout << "the station is busy; try again later\n";
            return 1;
        }
        if (const auto shown = station.current_server().value()) {
            std::cout << "shows display " << shown->display << " of " << shown->server << '\n';
        }
        station.stop_viewer().value();
    } catch (const kvo::Exception &failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
