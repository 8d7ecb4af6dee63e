// Panel settings: dims a panel for the night and disables its NumLock key, in C++.
#include <kvo_hws/kvo_hws.hpp>

#include <iostream>

int main()
{
    const kvo::Station station(kvo::Address(0x0A000005));  // 10.0.0.5

    if (const auto dimmed = station.set_backlight_brightness(20); !dimmed) {
        std::cerr << "the backlight is unchanged: " << dimmed.error().reason() << '\n';
        return 1;
    }
    if (const auto done = station.set_disable_num_lock(true); !done) {
        std::cerr << "NumLock is unchanged: " << done.error().reason() << '\n';
        return 1;
    }
    if (const auto disabled = station.disable_num_lock()) {
        std::cout << "NumLock is " << (*disabled ? "disabled" : "enabled") << '\n';
    }
}
