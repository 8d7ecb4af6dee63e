// Addressing: finds the station that serves machine control panel 5, in C++.
#include <kvo_hws/kvo_hws.hpp>

#include <iostream>

int main()
{
    constexpr std::uint32_t panel = 5;
    try {
        kvo::Station("10.0.0.5").set_mcp_address(panel).value();
        const auto station = kvo::Service::ip_by_mcp_address(panel).value();
        if (!station) {
            std::cout << "no station serves it\n";
            return 1;
        }
        std::cout << "panel " << panel << " is served by " << *station << '\n';
    } catch (const kvo::Exception &failure) {
        const bool several = failure.error().meaning() == kvo::Errc::ambiguous;
        std::cerr << (several ? "several stations serve it" : failure.what()) << '\n';
        return 1;
    }
}
