// Prints events for embedded stations until Enter is pressed, in C++.
#include <kvo_hws/kvo_hws.hpp>

#include <iostream>

int main()
{
    // The handler runs on the listener's thread. With a kvo::Requests before it, it would run in the thread of an event loop.
    const auto events = kvo::EmbeddedEvents::activate(
        [](const kvo::EmbeddedEvent &event) { std::cout << event.name << ": " << event.data << std::endl; });
    if (!events) {
        std::cerr << "cannot listen for events: " << events.error().reason() << '\n';
        return 1;
    }
    std::cin.get();
}
