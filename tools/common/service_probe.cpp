// Talks to the socket directly: the library reports all faults with two result codes, and keeps waiting while single bytes
// arrive.
#include "common/service_probe.h"

#include "common/command_socket.h"
#include "common/descriptor.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <optional>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <thread>

using namespace std::chrono_literals;

namespace tools {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kQueueTimeout = 2s;
constexpr auto kQueuePause = 50ms;
/// The library also waits this long for the first byte of a reply.
constexpr auto kReplyTimeout = 4s;
/// Valid replies are shorter.
constexpr std::size_t kLongestAnswer = 256;
constexpr std::size_t kLongestShown = 80;

constexpr std::string_view kQuestion = "isInitComplete\n";

const std::string kStartAdvice = "Start the hardware service. For a simulated one: kvosim run -- kvoctl ...";
const std::string kPermissionAdvice = "Run kvoctl as the user of the panel's programs, or as root.";

std::string errorText() { return std::strerror(errno); }

class Probe {
public:
    std::vector<Finding> run() &&
    {
        const bool ready = examineDirectory() && examineSocket() && connect() && ask() && examineAnswer();
        static_cast<void>(ready);  // the findings contain the result
        return std::move(findings_);
    }

private:
    bool passed(const std::string &check, const std::string &text)
    {
        findings_.push_back({.check = check, .text = text});
        return true;
    }
    bool fault(const std::string &check, Fault fault, const std::string &text, const std::string &advice)
    {
        findings_.push_back({.check = check, .text = text, .advice = advice, .fault = fault});
        return false;
    }

    bool examineDirectory()
    {
        const std::string path = kSocketDirectory;
        struct stat status {};
        if (stat(kSocketDirectory, &status) != 0) {
            return fault("directory", Fault::directoryMissing, "The directory " + path + ": " + errorText() + ".",
                         "The hardware service has not run since the panel started. " + kStartAdvice);
        }
        if (!S_ISDIR(status.st_mode)) {
            return fault("directory", Fault::wrongFileType, path + " is not a directory.",
                         "Remove it and start the hardware service again.");
        }
        return passed("directory", "The directory " + path + " exists.");
    }

    bool examineSocket()
    {
        const std::string path = kCommandSocket;
        struct stat status {};
        if (stat(kCommandSocket, &status) != 0) {
            if (errno == EACCES) {
                return fault("socket", Fault::notPermitted, std::string("This user may not access ") + kSocketDirectory + ".",
                             kPermissionAdvice);
            }
            return fault("socket", Fault::socketMissing, "The socket " + path + ": " + errorText() + ".", kStartAdvice);
        }
        if (!S_ISSOCK(status.st_mode)) {
            return fault("socket", Fault::wrongFileType, path + " is not a socket.",
                         "Remove it and start the hardware service again.");
        }
        return passed("socket", "The socket " + path + " exists.");
    }

    bool connect()
    {
        socket_ = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket");
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        std::string_view(kCommandSocket).copy(address.sun_path, sizeof address.sun_path - 1);
        const auto deadline = Clock::now() + kQueueTimeout;
        while (::connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            // connect fails at once if the queue is full. That may last only a moment.
            if (errno != EAGAIN || Clock::now() > deadline) {
                return connectFault();
            }
            std::this_thread::sleep_for(kQueuePause);
        }
        peer_ = peerName();
        return passed("connection", "The service accepts connections" + (peer_.empty() ? "" : ": " + peer_) + ".");
    }

    bool connectFault()
    {
        switch (errno) {
        case ECONNREFUSED:
            return fault("connection", Fault::staleSocket,
                         "No process listens at the socket: the service ended without removing it.",
                         "Start the hardware service again; it replaces the socket. If it does not, remove the socket.");
        case EACCES:
            return fault("connection", Fault::notPermitted, "This user may not write to the socket.", kPermissionAdvice);
        case EAGAIN:
            return fault("connection", Fault::queueFull,
                         "The queue of the socket stays full: the service no longer accepts connections.",
                         "The service hangs or is overloaded. Look for programs that send many requests, or restart it.");
        case ENOENT: return fault("connection", Fault::socketMissing, "The socket has just disappeared.", kStartAdvice);
        default: throw std::system_error(errno, std::generic_category(), "connect");
        }
    }

    /// The process that listens, if the system can name it.
    [[nodiscard]] std::string peerName() const
    {
        ucred peer{};
        socklen_t size = sizeof peer;
        if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.pid <= 0) {
            return {};
        }
        const std::string process = std::to_string(peer.pid);
        std::string name;
        std::getline(std::ifstream("/proc/" + process + "/comm"), name);
        return "process " + process + (name.empty() ? "" : " (" + name + ")");
    }

    bool ask()
    {
        if (send(socket_.get(), kQuestion.data(), kQuestion.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(kQuestion.size())) {
            return noAnswer("does not accept the request: " + errorText());
        }
        const auto deadline = Clock::now() + kReplyTimeout;
        while (answer_.find('\n') == std::string::npos && answer_.size() < kLongestAnswer) {
            if (!waitUntil(deadline)) {
                return fault("answer", Fault::noReply,
                             "The service accepts the request, but sends no complete answer within " +
                                 std::to_string(kReplyTimeout.count()) + " s. Programs wait no longer.",
                             "The service hangs. Restart it" + (peer_.empty() ? "" : ": " + peer_) + ".");
            }
            if (!receive()) {
                return false;
            }
        }
        answer_.erase(std::min(answer_.find_first_of("\r\n"), answer_.size()));
        return true;
    }

    /// Whether the socket becomes readable in time.
    [[nodiscard]] bool waitUntil(Clock::time_point deadline) const
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd waiting{.fd = socket_.get(), .events = POLLIN, .revents = 0};
        return left > 0ms && poll(&waiting, 1, static_cast<int>(left.count())) != 0;
    }

    bool receive()
    {
        std::array<char, kLongestAnswer> piece{};
        const ssize_t count = recv(socket_.get(), piece.data(), piece.size(), 0);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
            return true;
        }
        if (count <= 0) {
            return noAnswer(count == 0 ? "closes the connection without an answer" : "breaks the connection: " + errorText());
        }
        answer_.append(piece.data(), static_cast<std::size_t>(count));
        return true;
    }

    bool noAnswer(const std::string &text)
    {
        return fault("answer", Fault::unexpectedReply, "The service " + text + ".",
                     "Look for its messages in the system log. Restart it.");
    }

    bool examineAnswer()
    {
        if (answer_ == "yes") {
            return passed("answer", "The service answers and is ready.");
        }
        if (answer_ == "no") {
            return fault("answer", Fault::notReady, "The service answers, but has not finished starting.",
                         "Wait: kvoctl ready --wait 30. If it never becomes ready, look at the system log.");
        }
        return fault("answer", Fault::unexpectedReply,
                     "The service answers \"" + answer_.substr(0, kLongestShown) + "\" when asked whether it is ready.",
                     "Is it this panel's hardware service? Check its version with kvoctl version.");
    }

    Descriptor socket_;
    std::string peer_;
    std::string answer_;
    std::vector<Finding> findings_;
};

}  // namespace

std::vector<Finding> probeService() { return Probe().run(); }

}  // namespace tools
