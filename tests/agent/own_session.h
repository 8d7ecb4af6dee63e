// A session on a socket pair, for functions that are called without an agent.
#pragma once

#include <kvo_hws/agent.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace agent_test {

class OwnSession {
public:
    OwnSession()
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends_.data()), 0);
        session.socket = ends_[0];
        session.display = 3;
        session.server = &server;
        session.lineBuffer = line_.data() + 1;
        server.address = inet_addr("127.0.0.1");
        server.session = &session;
    }
    OwnSession(const OwnSession &) = delete;
    OwnSession &operator=(const OwnSession &) = delete;
    ~OwnSession()
    {
        if (session.socket >= 0) {
            close(session.socket);
        }
        closeRemote();
        EXPECT_EQ(line_.front(), '\r') << "one byte too early";
        EXPECT_EQ(line_.back(), '#') << "one byte too far";
    }

    /// Sends bytes as the remote side.
    void sends(const std::string &bytes) const
    {
        EXPECT_EQ(write(ends_[1], bytes.data(), bytes.size()), ssize_t(bytes.size()));
    }

    /// Reads and answers while there is something to read; returns what the remote side receives.
    std::string answers()
    {
        pollfd waiting{.fd = session.socket, .events = POLLIN, .revents = 0};
        while (session.socket >= 0 && poll(&waiting, 1, 0) == 1) {
            hmiconn_process_one_request(&session);
        }
        return received();
    }
    std::string answersTo(const std::string &bytes)
    {
        sends(bytes);
        return answers();
    }

    std::string replyTo(CmdHandler handler, std::string argument = "", const char *tag = nullptr)
    {
        handler(&session, tag, argument.data());
        return received();
    }

    /// What the remote side has received; "" if nothing.
    [[nodiscard]] std::string received() const
    {
        std::array<char, 65536> bytes;
        const ssize_t count = recv(ends_[1], bytes.data(), bytes.size(), MSG_DONTWAIT);
        return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }

    void closeRemote()
    {
        if (ends_[1] >= 0) {
            close(std::exchange(ends_[1], -1));
        }
    }

    HmiSession session{};
    HmiServer server{};

private:
    std::array<int, 2> ends_{};
    /// The line buffer with a guard byte on each side; the first one looks like part of a line end.
    std::array<char, 259> line_ = [] {
        std::array<char, 259> line;
        line.fill('#');
        line.front() = '\r';
        return line;
    }();
};

}  // namespace agent_test
