// An agent that a test plays: it connects to the simulator's remote side, hears requests, and answers what it likes.
#pragma once

#include "common/descriptor.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>

namespace kvosim_test {

class Agent {
public:
    explicit Agent(unsigned session = 3, const char *address = "127.0.0.1")
        : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_port = htons(static_cast<uint16_t>(5850 + session));
        inet_pton(AF_INET, address, &place.sin_addr);
        if (connect(socket_.get(), reinterpret_cast<const sockaddr *>(&place), sizeof place) != 0) {
            throw std::runtime_error(std::string("can not connect: ") + std::strerror(errno));
        }
    }

    [[nodiscard]] int get() const { return socket_.get(); }

    /// False when the simulator has closed.
    bool send(std::string_view bytes) const
    {
        return ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

    /// The next line with its end; "(closed)", "(reset)", or what has come by the time nothing more does.
    std::string hear(std::chrono::milliseconds patience = std::chrono::seconds(5))
    {
        while (heard_.find('\n') == std::string::npos) {
            pollfd waiting{.fd = socket_.get(), .events = POLLIN, .revents = 0};
            if (poll(&waiting, 1, static_cast<int>(patience.count())) != 1) {
                return heard_ + "(nothing more came)";
            }
            char piece[4096];
            const ssize_t count = recv(socket_.get(), piece, sizeof piece, 0);
            if (count <= 0) {
                return heard_ + (count == 0 ? "(closed)" : "(reset)");
            }
            heard_.append(piece, static_cast<std::size_t>(count));
        }
        const std::size_t end = heard_.find('\n') + 1;
        std::string line = heard_.substr(0, end);
        heard_.erase(0, end);
        return line;
    }

    /// Hears a request and answers it with the tag that it has.
    std::string answer(std::string_view reply)
    {
        std::string request = hear();
        const bool tagged = request.size() > 4 && request[3] == ':';
        send((tagged ? request.substr(0, 4) : std::string()) + std::string(reply));
        return tagged ? request.substr(4) : request;
    }

private:
    tools::Descriptor socket_;
    std::string heard_;
};

}  // namespace kvosim_test
