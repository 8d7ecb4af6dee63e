// Fuzzes what kvosim reads from its clients: requests of the service's protocol and of the control socket, in pieces, over the
// real sockets of a service in a folder of its own. Each gets one reply line; the service's are those of a plain reading. So are
// what comes of the USB lock's datagrams, and the lines of agents.
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
constexpr int kMostTurns = 60;             // of the service's loop, in which a reply is awaited
constexpr std::size_t kLongestReply = std::size_t{1} << 20;
constexpr std::size_t kLongestRequest = 4096;  // of the service's protocol, without its line end

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

/// A folder, removed at the end.
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
    bool ended;  ///< with a line feed; the last one may go without
    std::string line;
};

/// What an input has, line by line. Those to the control socket begin with "!", datagrams with "@", an agent's with ">", and
/// those that an agent leaves without an end with "<".
struct Input {
    std::vector<Request> requests;
    std::vector<std::string> datagrams;
    std::vector<std::string> agentPieces;

    void add(std::string_view line, bool ended)
    {
        const std::string end = ended ? "\n" : "";
        const char door = line.empty() ? '\0' : line.front();
        const std::string rest(line.substr(line.empty() ? 0 : 1));
        switch (door) {
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

/// What a client has read until the service closed, or nothing where it did not close in time.
using Received = std::optional<std::string>;

/// A client that does its part in turns with the service, on the service's loop.
class Client {
public:
    Client(kvosim::EventLoop &loop, std::vector<Request> requests, std::size_t piece)
        : loop_(loop), requests_(std::move(requests)), piece_(piece), turn_(eventfd(1, EFD_CLOEXEC))
    {
        loop_.watch(turn_, EPOLLIN, [this](uint32_t) {
            if (!goesOn()) {
                loop_.stop();
            }
        });
    }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;
    ~Client()
    {
        hangUp();
        loop_.forget(turn_);
        close(turn_);
    }

    [[nodiscard]] const std::vector<Request> &requests() const { return requests_; }
    /// One for each request that found the service.
    [[nodiscard]] const std::vector<Received> &received() const { return received_; }

private:
    bool goesOn()
    {
        if (socket_ < 0) {
            return received_.size() < requests_.size() && connectNext();
        }
        if (!unsent_.empty()) {
            sendPiece();
        }
        if (receive() || ++turns_ > kMostTurns) {
            received_.push_back(turns_ > kMostTurns ? Received() : Received(reply_));
            hangUp();
        }
        return true;
    }

    /// False where the service has ended.
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
        turns_ = 0;
        return true;
    }

    void sendPiece()
    {
        const std::string_view piece = std::string_view(unsent_).substr(0, piece_ == 0 ? unsent_.size() : piece_);
        const ssize_t sent = send(socket_, piece.data(), piece.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EAGAIN) {
            unsent_.clear();  // a service that has refused the request already does not read on
            return;
        }
        unsent_.erase(0, sent < 0 ? 0 : static_cast<std::size_t>(sent));
        turns_ = 0;
        if (unsent_.empty() && !ended_) {
            shutdown(socket_, SHUT_WR);
        }
    }

    /// True when the service has closed.
    bool receive()
    {
        char piece[4096];
        ssize_t count = 0;
        while ((count = recv(socket_, piece, sizeof piece, 0)) > 0) {
            reply_.append(piece, static_cast<std::size_t>(count));
            turns_ = 0;
        }
        return count == 0 || errno != EAGAIN;
    }

    void hangUp()
    {
        if (socket_ >= 0) {
            close(std::exchange(socket_, -1));
        }
    }

    kvosim::EventLoop &loop_;
    std::vector<Request> requests_;
    std::size_t piece_;
    int turn_;  ///< always readable: a turn comes in each of the loop's rounds
    std::vector<Received> received_;
    int socket_ = -1;
    std::string unsent_;
    bool ended_ = true;
    std::string reply_;
    int turns_ = 0;
};

/// One line, or nothing at all where the client or a fault broke the exchange off.
void expectOneLine(const std::string &reply, const Request &request)
{
    const bool oneLine = reply.find('\n') == reply.size() - 1 && reply.find('\0') == reply.npos;
    if (!reply.empty() && !oneLine) {
        fuzz::fault("\"%s\" is answered \"%s\", which is not one line", request.line.c_str(), reply.c_str());
    }
    if (reply.size() > kLongestReply) {
        fuzz::fault("\"%s\" has a reply of %zu bytes", request.line.c_str(), reply.size());
    }
    if (request.control && !reply.empty() && !tools::Json::parse(reply, nullptr, false).is_object()) {
        fuzz::fault("\"%s\" is answered \"%s\", which is no object", request.line.c_str(), reply.c_str());
    }
}

/// The service without its sockets: what each request is answered as long as none came to the control socket.
class PlainService {
public:
    PlainService() : plant_(kvosim::parsePlant(kPlant, "plant")), registry_(folder() / "plain"), context_{plant_, registry_}
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
        // Of the two registries, each has its own place.
        return reply == registry_.path() + '\n' ? (folder() / "registry").string() + "/\n" : reply;
    }

    kvosim::ServiceContext &context() { return context_; }

private:
    kvosim::Plant plant_;
    kvosim::Registry registry_;
    kvosim::ServiceContext context_;
};

void expectPlainReplies(const Client &client)
{
    PlainService plain;
    for (std::size_t i = 0; i < client.received().size() && !client.requests()[i].control; ++i) {
        const Request &request = client.requests()[i];
        const std::string wanted = plain.answer(request);
        const Received &received = client.received()[i];
        if (received != wanted) {
            fuzz::fault("\"%s\" is answered \"%s\", by a plain reading \"%s\"", request.line.c_str(),
                        received.value_or("(nothing in time)").c_str(), wanted.c_str());
        }
        if (plain.ending()) {
            return;
        }
    }
}

}  // namespace

/// Events go nowhere, and need no thread of their own for that.
int SendUsbMsg2DLL(const char * /*message*/) noexcept { return 1; }

int kvo_hws_CreateThread(void *(*start)(void *), void *argument) noexcept
{
    start(argument);
    return 1;
}

namespace {

void serve(std::vector<Request> requests, std::size_t piece)
{
    kvosim::EventLoop loop;
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
    expectPlainReplies(client);
}

}  // namespace

/// The first byte is the length of the requests' pieces, 0 for those that come whole, and in its two highest bits what an agent
/// may leave without an end; the rest are lines.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    constexpr const char *kUnended[] = {"", "none", "042:none", "none"};
    if (size == 0) {
        return 0;
    }
    Input input = inputOf({reinterpret_cast<const char *>(data) + 1, size - 1});
    fuzz::expectPlainAgentLines(input.agentPieces, kUnended[data[0] / 64]);
    if (!input.datagrams.empty()) {
        fuzz::expectPlainUsbLocks(PlainService().context(), input.datagrams);
    }
    if (!input.requests.empty()) {
        serve(std::move(input.requests), data[0] % 64);
    }
    return 0;
}
