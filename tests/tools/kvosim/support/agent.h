// An agent played by a test: it connects to the simulator's remote side, receives requests, and sends any replies.
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
            throw std::runtime_error(std::string("cannot connect: ") + std::strerror(errno));
        }
    }

    [[nodiscard]] int get() const { return socket_.get(); }

    /// Returns false if the simulator has closed the connection.
    bool send(std::string_view bytes) const
    {
        return ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

    /// Returns the next line with its end. If none arrives in time, returns the received bytes and a note in parentheses.
    std::string receiveLine(std::chrono::milliseconds timeout = std::chrono::seconds(5))
    {
        while (received_.find('\n') == std::string::npos) {
            pollfd waiting{.fd = socket_.get(), .events = POLLIN, .revents = 0};
            if (poll(&waiting, 1, static_cast<int>(timeout.count())) != 1) {
                return received_ + "(nothing more came)";
            }
            char piece[4096];
            const ssize_t count = recv(socket_.get(), piece, sizeof piece, 0);
            if (count <= 0) {
                return received_ + (count == 0 ? "(closed)" : "(reset)");
            }
            received_.append(piece, static_cast<std::size_t>(count));
        }
        const std::size_t end = received_.find('\n') + 1;
        std::string line = received_.substr(0, end);
        received_.erase(0, end);
        return line;
    }

    /// Receives a request and answers it with the same tag. Returns the request without the tag.
    std::string answer(std::string_view reply)
    {
        std::string request = receiveLine();
        const bool tagged = request.size() > 4 && request[3] == ':';
        send((tagged ? request.substr(0, 4) : std::string()) + std::string(reply));
        return tagged ? request.substr(4) : request;
    }

private:
    tools::Descriptor socket_;
    std::string received_;
};

}  // namespace kvosim_test
