// One request and one reply over a connection to the simulator's control socket.
#include "common/control_client.h"

#include "common/descriptor.h"

#include <array>
#include <cerrno>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <system_error>

namespace tools {

namespace {

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::generic_category().message(errno));
}

/// Makes a system call, again if a signal interrupts it. Because of its time limit, the socket reports an interruption even after a
/// process was only stopped and continued, as with Ctrl-Z.
template <class Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

Descriptor connectTo(const std::string &path, Timeout timeout)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto seconds = static_cast<time_t>(timeout.value_or(std::chrono::seconds(0)).count());
    const timeval limit{.tv_sec = seconds, .tv_usec = 0};  // 0 means no timeout
    setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    const auto connected = [&] {
        return connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    };
    if (uninterrupted(connected) != 0) {
        if (errno == ENOENT || errno == ECONNREFUSED) {
            throw NoSimulator("no simulator is running (no process listens at " + path +
                              "); start one with \"kvosim serve\", or work inside \"kvosim run\"");
        }
        fail("cannot connect to " + path);
    }
    return connection;
}

std::string exchange(const Descriptor &connection, const std::string &line)
{
    const auto sent = [&] { return send(connection.get(), line.data(), line.size(), MSG_NOSIGNAL); };
    if (uninterrupted(sent) != static_cast<ssize_t>(line.size())) {
        fail("cannot send to the simulator");
    }
    std::string reply;
    std::array<char, 4096> piece{};
    while (!reply.ends_with('\n')) {
        const ssize_t count = uninterrupted([&] { return recv(connection.get(), piece.data(), piece.size(), 0); });
        if (count < 0) {
            fail("the simulator does not answer");
        }
        if (count == 0) {
            throw std::runtime_error("the simulator closed the connection without a reply");
        }
        reply.append(piece.data(), static_cast<std::size_t>(count));
    }
    return reply;
}

/// A request as a line. The texts come from the command line and may contain any bytes.
std::string lineOfRequest(const Json &request)
{
    try {
        return request.dump() + '\n';
    } catch (const Json::type_error &) {
        throw Refused("a text is not UTF-8; write it as UTF-8");
    }
}

}  // namespace

Json askSimulator(const Json &request, const std::filesystem::path &socket, Timeout timeout)
{
    const std::string line = lineOfRequest(request);
    Json reply = Json::parse(exchange(connectTo(socket.string(), timeout), line));
    if (reply.contains("error")) {
        throw Refused(reply["error"].get<std::string>());
    }
    if (reply.contains("could_not")) {
        throw CouldNot(reply["could_not"].get<std::string>());
    }
    return reply;
}

}  // namespace tools
