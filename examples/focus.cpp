// Focus and channel information: stores a note at a station, reads it back and deletes it, in C++.
#include <kvo_hws/kvo_hws.hpp>

#include <iostream>

int main()
{
    try {
        const kvo::Station station("10.0.0.5");

        std::cout << "shows channel " << station.channel_on_focus().value() << " on focus\n";
        station.set_channel_info("tool change at 14:00").value();
        std::cout << "note: " << station.channel_info().value().value_or("none") << '\n';
        station.delete_channel_info().value();

        // A text that would arrive in parts, or shorter, is refused before anything is sent.
        const auto two_lines = station.set_channel_info("tool change\nat 14:00");
        std::cout << "two lines: " << two_lines.error().reason() << '\n';
    } catch (const kvo::Exception &failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
