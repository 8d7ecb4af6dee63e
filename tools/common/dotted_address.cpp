// Converts dotted addresses with the C library's functions.
#include "common/dotted_address.h"

#include <arpa/inet.h>
#include <array>

namespace tools {

std::string dotted(uint32_t address)
{
    const in_addr network{.s_addr = htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    return inet_ntop(AF_INET, &network, text.data(), text.size());
}

std::optional<uint32_t> parseDotted(const std::string &text)
{
    in_addr network{};
    if (inet_pton(AF_INET, text.c_str(), &network) != 1) {
        return std::nullopt;
    }
    return ntohl(network.s_addr);
}

}  // namespace tools
