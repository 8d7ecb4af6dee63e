// IPv4 addresses in dotted form.
#pragma once

#include <arpa/inet.h>
#include <cstdint>

namespace kvo_hws::agent {

class Dotted {
public:
    /// @param address  as inet_aton stores it
    explicit Dotted(uint32_t address) noexcept { inet_ntop(AF_INET, &address, text_, sizeof text_); }

    [[nodiscard]] const char *text() const noexcept { return text_; }

private:
    char text_[INET_ADDRSTRLEN] = {};
};

}  // namespace kvo_hws::agent
