// Input and display: counts a station's input devices, and prints the resolution of its display, in C++.
#include <kvo_hws/kvo_hws.hpp>

#include <iostream>

int main()
{
    try {
        const kvo::Station station("10.0.0.5");
        const kvo::InputDevices devices = station.show_input_device_v3().value();

        // A station need not report every number.
        std::cout << devices.keyboards.value_or(0) << " keyboards, " << devices.mice.value_or(0) << " mice, "
                  << devices.touch.value_or(0) << " touch devices\n";
        if (devices.max_contacts) {
            std::cout << *devices.max_contacts << " contacts at the same time\n";
        }
        std::cout << station.show_dpi().value() << " dots per inch\n";
    } catch (const kvo::Exception &failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
