// Fuzzes the input of kvosim from its clients: requests to the service and to the control socket, in pieces, over the real
// sockets of a service in a separate folder. Each request gets one reply line. The service's replies, the effects of USB lock
// datagrams and the lines of agents are compared with reference implementations.
#include "kvosim_lines.h"
#include "support.h"

#include "common/control_protocol.h"
#include "kvosim/commands/commands.h"
#include "kvosim/plant_file/plant_file.h"
#include "kvosim/service.h"

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr std::size_t kMostRequests = 16;  // of one input
constexpr int kMostIdleRounds = 60;        // of the service's loop without progress while a client waits for a reply
constexpr std::size_t kLongestReply = std::size_t{1} << 20;
constexpr std::size_t kLongestRequest = 4096;  // to the service, without its line end

constexpr std::string_view kPlant = R"toml(
[[station]]
address = "10.0.0.5"
name = "Panel 1"
attr1 = 1
mcp_address = 5
kvo_index = 1
priority = "1:3"
viewer = "nc1:3"
usb_connectors = "X60:keyboard"
[[station.usb_device]]
ident2 = "usb1"
[[station]]
address = "10.0.0.6"
name = "Panel 2"
mcp_address = 5
handheld = 1
touch = 0
[[client]]
name = "HMI"
value = 7
)toml";

/// A temporary folder, removed by the destructor.
class Folder {
public:
    Folder() : path_(std::filesystem::temp_directory_path() / ("kvosim." + std::to_string(getpid())))
    {
        std::filesystem::create_directories(path_);
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    ~Folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] std::filesystem::path operator/(const char *name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

const Folder &folder()
{
    static const Folder only;
    return only;
}

struct Request {
    bool control;
    bool ended;  ///< with a line feed; the last one may have none
    std::string line;
};

/// The lines of an input. Requests to the control socket begin with "!", datagrams with "@", lines of an agent with ">", and
/// lines of an agent without a line end with "<". All others are requests to the service.
struct Input {
    std::vector<Request> requests;
    std::vector<std::string> datagrams;
    std::vector<std::string> agentPieces;

    void add(std::string_view line, bool ended)
    {
        const std::string end = ended ? "\n" : "";
        const char prefix = line.empty() ? '\0' : line.front();
        const std::string rest(line.substr(line.empty() ? 0 : 1));
        switch (prefix) {
        case '@': datagrams.push_back(rest + end); break;
        case '>': agentPieces.push_back(rest + end); break;
        case '<': agentPieces.push_back(rest); break;
        case '!': requests.push_back({true, ended, rest}); break;
        default: requests.push_back({false, ended, std::string(line)}); break;
        }
    }
};

Input inputOf(std::string_view text)
{
    Input input;
    while (!text.empty() && input.requests.size() < kMostRequests) {
        const std::size_t end = text.find('\n');
        input.add(text.substr(0, end), end != text.npos);
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
    return input;
}

/// The bytes that a client received before the service closed the connection. Nothing if the service did not close it in time.
using Received = std::optional<std::string>;

/// A client that runs on the service's event loop, alternating with the service.
class Client {
public:
    Client(tools::EventLoop &loop, std::vector<Request> requests, std::size_t piece)
        : loop_(loop), requests_(std::move(requests)), piece_(piece), wakeup_(eventfd(1, EFD_CLOEXEC))
    {
        loop_.watch(wakeup_, EPOLLIN, [this](uint32_t) {
            if (!proceed()) {
                loop_.stop();
            }
        });
    }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;
    ~Client()
    {
        disconnect();
        loop_.unwatch(wakeup_);
        close(wakeup_);
    }

    [[nodiscard]] const std::vector<Request> &requests() const { return requests_; }
    /// One for each request that reached the service.
    [[nodiscard]] const std::vector<Received> &received() const { return received_; }

private:
    /// Returns false after the last request.
    bool proceed()
    {
        if (socket_ < 0) {
            return received_.size() < requests_.size() && connectNext();
        }
        if (!unsent_.empty()) {
            sendPiece();
        }
        if (receive() || ++idleRounds_ > kMostIdleRounds) {
            received_.push_back(idleRounds_ > kMostIdleRounds ? Received() : Received(reply_));
            disconnect();
        }
        return true;
    }

    /// Returns false if the service has ended.
    bool connectNext()
    {
        const Request &request = requests_[received_.size()];
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = (folder() / (request.control ? "control" : "commands")).string();
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (connect(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            return false;
        }
        unsent_ = request.line + (request.ended ? "\n" : "");
        ended_ = request.ended;
        reply_.clear();
        idleRounds_ = 0;
        return true;
    }

    void sendPiece()
    {
        const std::string_view piece = std::string_view(unsent_).substr(0, piece_ == 0 ? unsent_.size() : piece_);
        const ssize_t sent = send(socket_, piece.data(), piece.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EAGAIN) {
            unsent_.clear();  // a service that has already refused the request stops reading
            return;
        }
        unsent_.erase(0, sent < 0 ? 0 : static_cast<std::size_t>(sent));
        idleRounds_ = 0;
        if (unsent_.empty() && !ended_) {
            shutdown(socket_, SHUT_WR);
        }
    }

    /// Returns true when the service has closed the connection.
    bool receive()
    {
        char piece[4096];
        ssize_t count = 0;
        while ((count = recv(socket_, piece, sizeof piece, 0)) > 0) {
            reply_.append(piece, static_cast<std::size_t>(count));
            idleRounds_ = 0;
        }
        return count == 0 || errno != EAGAIN;
    }

    void disconnect()
    {
        if (socket_ >= 0) {
            close(std::exchange(socket_, -1));
        }
    }

    tools::EventLoop &loop_;
    std::vector<Request> requests_;
    std::size_t piece_;
    int wakeup_;  ///< always readable, so the client runs in every round of the loop
    std::vector<Received> received_;
    int socket_ = -1;
    std::string unsent_;
    bool ended_ = true;
    std::string reply_;
    int idleRounds_ = 0;
};

/// Expects one line, or no reply if the client or an injected fault aborted the exchange.
void expectOneLine(const std::string &reply, const Request &request)
{
    const bool oneLine = reply.find('\n') == reply.size() - 1 && reply.find('\0') == reply.npos;
    if (!reply.empty() && !oneLine) {
        fuzz::fault("the reply to \"%s\" is \"%s\", which is not one line", request.line.c_str(), reply.c_str());
    }
    if (reply.size() > kLongestReply) {
        fuzz::fault("the reply to \"%s\" has %zu bytes", request.line.c_str(), reply.size());
    }
    if (request.control && !reply.empty() && !tools::Json::parse(reply, nullptr, false).is_object()) {
        fuzz::fault("the reply to \"%s\" is \"%s\", which is not a JSON object", request.line.c_str(), reply.c_str());
    }
}

/// The reference: the service without its sockets. Its replies are valid until the first request to the control socket.
class ReferenceService {
public:
    ReferenceService()
        : plant_(kvosim::parsePlant(kPlant, "plant")), registry_(folder() / "reference"), context_{plant_, registry_}
    {
        registry_.start(plant_);
    }

    [[nodiscard]] bool ending() const { return context_.ending; }

    std::string answer(const Request &request)
    {
        if (!request.ended) {
            return {};
        }
        std::string line = request.line;
        if (line.size() > kLongestRequest) {
            return "failed\n";
        }
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        std::string reply = kvosim::answer(context_, line) + '\n';
        // The two registries have different paths.
        return reply == registry_.path() + '\n' ? (folder() / "registry").string() + "/\n" : reply;
    }

    kvosim::ServiceContext &context() { return context_; }

private:
    kvosim::Plant plant_;
    kvosim::Registry registry_;
    kvosim::ServiceContext context_;
};

void compareReplies(const Client &client)
{
    ReferenceService reference;
    for (std::size_t i = 0; i < client.received().size() && !client.requests()[i].control; ++i) {
        const Request &request = client.requests()[i];
        const std::string wanted = reference.answer(request);
        const Received &received = client.received()[i];
        if (received != wanted) {
            fuzz::fault("the reply to \"%s\" is \"%s\", in the reference \"%s\"", request.line.c_str(),
                        received.value_or("(none in time)").c_str(), wanted.c_str());
        }
        if (reference.ending()) {
            return;
        }
    }
}

}  // namespace

/// Events are discarded. Threads run at once, on the thread of the caller.
int SendUsbMsg2DLL(const char * /*message*/) noexcept { return 1; }

int kvo_hws_CreateThread(void *(*start)(void *), void *argument) noexcept
{
    start(argument);
    return 1;
}

namespace {

void serve(std::vector<Request> requests, std::size_t piece)
{
    tools::EventLoop loop;
    kvosim::Service service(loop, kvosim::parsePlant(kPlant, "plant"),
                            {.socket = folder() / "commands",
                             .controlSocket = folder() / "control",
                             .eventSocket = folder() / "events",
                             .registry = folder() / "registry"},
                            [] {});
    Client client(loop, std::move(requests), piece);
    loop.run();
    for (std::size_t i = 0; i < client.received().size(); ++i) {
        if (client.received()[i]) {
            expectOneLine(*client.received()[i], client.requests()[i]);
        }
    }
    compareReplies(client);
}

}  // namespace

/// The lower six bits of the first byte are the length of the requests' pieces, 0 for whole requests. Its two highest bits
/// select the line that an agent may send without a line end. The rest are lines.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    constexpr const char *kUnended[] = {"", "none", "042:none", "none"};
    if (size == 0) {
        return 0;
    }
    Input input = inputOf({reinterpret_cast<const char *>(data) + 1, size - 1});
    fuzz::compareAgentLines(input.agentPieces, kUnended[data[0] / 64]);
    if (!input.datagrams.empty()) {
        fuzz::compareUsbLocks(ReferenceService().context(), input.datagrams);
    }
    if (!input.requests.empty()) {
        serve(std::move(input.requests), data[0] % 64);
    }
    return 0;
}
