// Requests in an event loop: asks every station for its MCP address while the loop goes on, in C++.
#include <kvo_hws/kvo_hws.hpp>

#include <chrono>
#include <iostream>
#include <poll.h>

namespace {

using Stations = std::vector<kvo::StationDescription>;

// Submits one request for each station. Each has half a second, and does not delay the loop meanwhile.
void ask_each(kvo::Requests &requests, const Stations &stations)
{
    for (const kvo::StationDescription &known : stations) {
        const auto submitted = requests.submit([station = kvo::Station(known.address)] { return station.mcp_address(); },
                                               [name = known.name](const kvo::Result<std::uint32_t> &mcp) {
                                                   const auto text = mcp ? std::to_string(*mcp) : mcp.error().reason();
                                                   std::cout << name << ": " << text << '\n';
                                               },
                                               std::chrono::milliseconds(500));
        if (!submitted) {
            std::cerr << "not asked: " << known.name << ": " << submitted.error().reason() << '\n';
        }
    }
}

}  // namespace

int main()
{
    auto requests = kvo::Requests::create();
    if (!requests) {
        std::cerr << requests.error().message() << '\n';
        return 1;
    }
    bool listed = false;
    const auto submitted = requests->submit(
        kvo::Service::description_list,
        [&](const kvo::Result<Stations> &stations) {
            if (stations) {
                listed = true;
                ask_each(*requests, *stations);
            } else {
                std::cerr << "no station list: " << stations.error().reason() << '\n';
            }
        },
        std::chrono::seconds(1));

    while (submitted && requests->pending() > 0) {
        pollfd ready{requests->descriptor(), POLLIN, 0};
        if (poll(&ready, 1, 100) > 0) {
            requests->dispatch();  // calls the completions that are due
        }
        // A panel would draw here, ten times a second.
    }
    return listed ? 0 : 1;
}
