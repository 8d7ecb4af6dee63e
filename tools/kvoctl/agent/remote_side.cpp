// Sends a ping after each command: everything before the reply to the ping is the reply to the command, with or without a line
// end.
#include "kvoctl/agent/remote_side.h"

#include "kvoctl/agent/agent_arguments.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>

using namespace std::chrono_literals;

namespace kvoctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kGiveUpPeriod = 200ms;
constexpr std::string_view kEndQuestion = "999:ping\r\n";
constexpr std::string_view kEndAnswer = "999:pong\r\n";

/// Returns an error number, or 0.
int listenAt(int socket, unsigned session)
{
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);  // for ports of connections that have just ended
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(kFirstPort + session));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool listens =
        bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 && listen(socket, 1) == 0;
    return listens ? 0 : errno;
}

int openSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

/// The first session from @p first to @p last whose port is free.
unsigned listenAtOneOf(int socket, unsigned first, unsigned last)
{
    int error = 0;
    for (unsigned session = first; session <= last; ++session) {
        error = listenAt(socket, session);
        if (error == 0) {
            return session;
        }
    }
    const std::string ports =
        first == last ? "port " + std::to_string(kFirstPort + first)
                      : "any of the ports " + std::to_string(kFirstPort + first) + " to " + std::to_string(kFirstPort + last);
    throw std::runtime_error("cannot listen on " + ports + " of 127.0.0.1: " + std::strerror(error));
}

/// Whether the socket becomes readable before the deadline.
bool waitReadable(int socket, Clock::time_point deadline)
{
    pollfd waiting{.fd = socket, .events = POLLIN, .revents = 0};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return poll(&waiting, 1, static_cast<int>(std::max(left, 0ms).count())) > 0;
}

}  // namespace

RemoteSide::RemoteSide(std::optional<unsigned> session)
    : listener_(openSocket(), "socket"),
      session_(listenAtOneOf(listener_.get(), session.value_or(0), session.value_or(kLastSession)))
{
}

bool RemoteSide::accept(std::chrono::milliseconds within, const std::function<bool()> &giveUp)
{
    const auto deadline = Clock::now() + within;
    while (!waitReadable(listener_.get(), std::min(deadline, Clock::now() + kGiveUpPeriod))) {
        if (Clock::now() >= deadline || giveUp()) {
            return false;
        }
    }
    connection_.emplace(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC), "accept4");
    return true;
}

std::optional<std::string> RemoteSide::ask(const std::string &line, std::chrono::milliseconds within)
{
    const int socket = connection_->get();
    const std::string both = line + "\r\n" + std::string(kEndQuestion);
    if (send(socket, both.data(), both.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(both.size())) {
        return std::nullopt;
    }
    const auto deadline = Clock::now() + within;
    std::string answer;
    while (!answer.ends_with(kEndAnswer)) {
        std::array<char, 4096> bytes{};
        const ssize_t count = waitReadable(socket, deadline) ? recv(socket, bytes.data(), bytes.size(), 0) : 0;
        if (count <= 0) {
            return std::nullopt;
        }
        answer.append(bytes.data(), static_cast<std::size_t>(count));
    }
    answer.resize(answer.size() - kEndAnswer.size());
    return answer;
}

}  // namespace kvoctl
