// Speaks to the socket itself: the library tells all that can go wrong by two numbers, and waits as long as bytes drip in.
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

constexpr auto kQueuePatience = 2s;
constexpr auto kQueuePause = 50ms;
/// As long as the library waits for a reply's first byte.
constexpr auto kReplyPatience = 4s;
/// No answer to the question is so long.
constexpr std::size_t kLongestAnswer = 256;
constexpr std::size_t kLongestShown = 80;

constexpr std::string_view kQuestion = "isInitComplete\n";

const std::string kIsItRunning = "Start the hardware service. For a simulated one: kvosim run -- kvoctl ...";
const std::string kAskForRights = "Run kvoctl as a user of the panel's programs, or as root.";

std::string errorText() { return std::strerror(errno); }

class Probe {
public:
    std::vector<Finding> run() &&
    {
        const bool ready = examineDirectory() && examineSocket() && connect() && ask() && examineAnswer();
        static_cast<void>(ready);  // the findings say it better
        return std::move(findings_);
    }

private:
    bool well(const std::string &check, const std::string &words)
    {
        findings_.push_back({.check = check, .words = words});
        return true;
    }
    bool fault(const std::string &check, Fault fault, const std::string &words, const std::string &advice)
    {
        findings_.push_back({.check = check, .words = words, .advice = advice, .fault = fault});
        return false;
    }

    bool examineDirectory()
    {
        const std::string path = kSocketDirectory;
        struct stat status {};
        if (stat(kSocketDirectory, &status) != 0) {
            return fault("directory", Fault::directoryMissing, "The directory " + path + ": " + errorText() + ".",
                         "The hardware service has not run since the panel started. " + kIsItRunning);
        }
        if (!S_ISDIR(status.st_mode)) {
            return fault("directory", Fault::noSocket, path + " is no directory.",
                         "Remove it and start the hardware service again.");
        }
        return well("directory", "The directory " + path + " is there.");
    }

    bool examineSocket()
    {
        const std::string path = kCommandSocket;
        struct stat status {};
        if (stat(kCommandSocket, &status) != 0) {
            if (errno == EACCES) {
                return fault("socket", Fault::notPermitted,
                             std::string("This user may not look into ") + kSocketDirectory + ".", kAskForRights);
            }
            return fault("socket", Fault::socketMissing, "The socket " + path + ": " + errorText() + ".", kIsItRunning);
        }
        if (!S_ISSOCK(status.st_mode)) {
            return fault("socket", Fault::noSocket, path + " is no socket.", "Remove it and start the hardware service again.");
        }
        return well("socket", "The socket " + path + " is there.");
    }

    bool connect()
    {
        socket_ = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket");
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        std::string_view(kCommandSocket).copy(address.sun_path, sizeof address.sun_path - 1);
        const auto deadline = Clock::now() + kQueuePatience;
        while (::connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            // A full queue tells so at once; it may be a moment's rush.
            if (errno != EAGAIN || Clock::now() > deadline) {
                return connectFault();
            }
            std::this_thread::sleep_for(kQueuePause);
        }
        peer_ = peerName();
        return well("connection", "The service accepts connections" + (peer_.empty() ? "" : ": " + peer_) + ".");
    }

    bool connectFault()
    {
        switch (errno) {
        case ECONNREFUSED:
            return fault("connection", Fault::staleSocket,
                         "Nobody listens at the socket: the service has ended without tidying up.",
                         "Start the hardware service again; it replaces the socket. If it does not, remove it by hand.");
        case EACCES: return fault("connection", Fault::notPermitted, "This user may not write to the socket.", kAskForRights);
        case EAGAIN:
            return fault(
                "connection", Fault::queueFull,
                "The queue of the socket stays full: the service accepts no connections any more.",
                "The service hangs, or more programs ask it than it can answer. Look for such programs; else restart it.");
        case ENOENT: return fault("connection", Fault::socketMissing, "The socket has just disappeared.", kIsItRunning);
        default: throw std::system_error(errno, std::generic_category(), "connect");
        }
    }

    /// Who listens, as far as the system tells.
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
            return noAnswer("takes no request: " + errorText());
        }
        const auto deadline = Clock::now() + kReplyPatience;
        while (answer_.find('\n') == std::string::npos && answer_.size() < kLongestAnswer) {
            if (!waitUntil(deadline)) {
                return fault("answer", Fault::silent,
                             "The service accepts the request and sends no whole answer within " +
                                 std::to_string(kReplyPatience.count()) + " s, which is as long as programs wait.",
                             "The service hangs. Restart it" + (peer_.empty() ? "" : ": " + peer_) + ".");
            }
            if (!receive()) {
                return false;
            }
        }
        answer_.erase(std::min(answer_.find_first_of("\r\n"), answer_.size()));
        return true;
    }

    /// Whether something can be read in time.
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
            return noAnswer(count == 0 ? "closes the connection without an answer"
                                       : "breaks the connection off: " + errorText());
        }
        answer_.append(piece.data(), static_cast<std::size_t>(count));
        return true;
    }

    bool noAnswer(const std::string &words)
    {
        return fault("answer", Fault::oddAnswer, "The service " + words + ".",
                     "Look into the system's log for what it says; restart it.");
    }

    bool examineAnswer()
    {
        if (answer_ == "yes") {
            return well("answer", "The service answers and is ready.");
        }
        if (answer_ == "no") {
            return fault("answer", Fault::notReady, "The service answers, but has not finished starting.",
                         "Wait: kvoctl ready --wait 30. If it never becomes ready, look into the system's log.");
        }
        return fault("answer", Fault::oddAnswer,
                     "Asked whether it is ready, the service answers \"" + answer_.substr(0, kLongestShown) + "\".",
                     "Is it the hardware service of this panel, and of the right version? kvoctl version shows it.");
    }

    Descriptor socket_;
    std::string peer_;
    std::string answer_;
    std::vector<Finding> findings_;
};

}  // namespace

std::vector<Finding> probeService() { return Probe().run(); }

}  // namespace tools
