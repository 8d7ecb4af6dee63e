// Fuzzes the reader of the remote service's requests: however the bytes are split, the replies on the wire are those of
// a reference implementation. Here, each command's handler replies with its keyword and its argument.
#include "support.h"

#include <kvo_hws/agent.h>

#include "agent/commands.h"
#include "agent/instance.h"
#include "agent/line_writer.h"
#include "runtime/clock.h"
#include "runtime/log.h"

#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::size_t kTag = 4;
constexpr std::size_t kLongestLine = 256;

std::string lowered(std::string text)
{
    for (char &character : text) {
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    }
    return text;
}

/// The keyword is the part of the line before the argument.
void reply(HmiSession *session, const char *tag, char *argument) noexcept
{
    const char *const command = session->lineBuffer + (tag != nullptr ? kTag : 0);
    if (argument < command || argument > session->lineBuffer + kLongestLine) {
        fuzz::fault("an argument is outside its line");
    }
    const std::string keyword = lowered({command, static_cast<const char *>(argument)});
    hmiconn_reply(session->socket, tag, keyword.c_str(), "(", argument, ")\r\n", static_cast<char *>(nullptr));
}

std::string lastMessage;

}  // namespace

/// The real keywords, all with the same handler.
const HwsCommand kvo_hws::agent::commands[60] = {
    {"show-panel-size", reply},
    {"show-hwid", reply},
    {"show-input-devices", reply},
    {"set-backlight=", reply},
    {"set-backlight-brightness=", reply},
    {"set-backlight-brightness-v2=", reply},
    {"get-backlight-brightness-v2=", reply},
    {"set-darken=", reply},
    {"set-disable-numlock=", reply},
    {"set-disable-capslock=", reply},
    {"get-disable-numlock", reply},
    {"get-disable-capslock", reply},
    {"get-station-type", reply},
    {"get-sw-capslock", reply},
    {"set-sw-capslock=", reply},
    {"get-kvo-name", reply},
    {"get-kvo-priority", reply},
    {"get-kvo-startup-active", reply},
    {"get-kvo-startup-prio", reply},
    {"set-channel-info=", reply},
    {"get-channel-info", reply},
    {"get-screen-on-focus", reply},
    {"get-channel-on-focus", reply},
    {"get-t2m2n", reply},
    {"get-mcpaddr", reply},
    {"set-mcpaddr=", reply},
    {"get-kvoindex", reply},
    {"set-kvoindex=", reply},
    {"get-dckaddr", reply},
    {"get-dckenable", reply},
    {"set-dckenable=", reply},
    {"get-cksindex", reply},
    {"set-cksindex=", reply},
    {"invalidate-calibration", reply},
    {"get-rv4mode", reply},
    {"set-rv4mode=", reply},
    {"get-calibparam", reply},
    {"set-calibparam=", reply},
    {"simulate-mcp=", reply},
    {"enable-mcp=", reply},
    {"reboot", reply},
    {"show-viewer-active", reply},
    {"show-current-server", reply},
    {"start-viewer=", reply},
    {"start-configured-viewer=", reply},
    {"stop-viewer-preempt", reply},
    {"stop-viewer-noclean", reply},
    {"stop-viewer", reply},
    {"activate-me", reply},
    {"servername=", reply},
    {"set-statusline=", reply},
    {"ping", reply},
    {"get-softkey-type", reply},
    {"get-keyboard-caps", reply},
    {"get-hardware-caps", reply},
    {"get-panel-oem-layout", reply},
    {"get-panel-rotation", reply},
    {"set-usb-lock=", reply},
    {"get-usb-lock", reply},
    {"sync-times=", reply},
};

// ---- Replacements of library functions, without pauses and without the system log ----

int kvo_hws::pause(std::chrono::milliseconds /*length*/) noexcept { return 0; }

void kvo_hws::debugValues(const char * /*format*/, ...) noexcept {}

void kvo_hws::logAlways(int /*priority*/, const char *format, ...) noexcept
{
    char message[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    lastMessage = message;
}

namespace {

// ---- The reference implementation ----

struct Expected {
    std::string replies;
    bool negotiated = false;
    bool closed = false;  // by the agent, because a line is too long
};

/// Returns the keyword that the command is or, for keywords with "=", begins with. Nothing if none matches.
std::optional<std::string> keywordOf(const char *command)
{
    for (const HwsCommand &row : kvo_hws::agent::commands) {
        const std::string keyword = row.keyword;
        const bool prefix = keyword.back() == '=';
        if ((prefix ? strncasecmp(command, keyword.c_str(), keyword.size()) : strcasecmp(command, keyword.c_str())) == 0) {
            return keyword;
        }
    }
    return std::nullopt;
}

/// @param line  without its line feed; the part after a zero byte is ignored
void answerReference(std::string line, Expected &expected)
{
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    const char *command = line.c_str();
    int digits = 0;
    while (digits < 3 && std::isdigit(static_cast<unsigned char>(command[digits])) != 0) {
        ++digits;
    }
    if (digits == 3 && command[digits] == ':') {
        expected.replies.append(command, kTag);
        command += kTag;
    }
    if (const auto keyword = keywordOf(command)) {
        expected.replies += *keyword + "(" + (command + keyword->size()) + ")\r\n";
        expected.negotiated = true;
    } else {
        expected.replies += "bad request\r\n";
    }
}

Expected readReference(std::string_view bytes)
{
    Expected expected;
    std::string line;
    for (const char byte : bytes) {
        line += byte;
        if (byte == '\n') {
            line.pop_back();
            answerReference(line, expected);
            line.clear();
        } else if (line.size() == kLongestLine) {
            expected.closed = true;
            break;
        }
    }
    return expected;
}

// ---- The agent's reader, and a remote service that sends in pieces ----

class Remote {
public:
    Remote()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
            fuzz::fault("cannot create a pair of sockets");
        }
        remote_ = ends[0];
        server_.address = inet_addr("10.0.0.9");
        session_.server = &server_;
        session_.display = 3;
        session_.lineBuffer = buffer_.get();
        protocolNegotiated = 0;
        lastMessage.clear();
        kvo_hws::agent::openSocket(session_, ends[1]);
    }
    Remote(const Remote &) = delete;
    Remote &operator=(const Remote &) = delete;
    ~Remote()
    {
        kvo_hws::agent::closeSocket(session_);
        ::close(remote_);
    }

    /// Sends a piece, until the agent closes the session.
    void send(std::string_view piece)
    {
        while (!piece.empty() && isOpen()) {
            const ssize_t sent = ::send(remote_, piece.data(), piece.size(), MSG_NOSIGNAL);
            if (sent < 0 && errno != EAGAIN) {
                fuzz::fault("cannot send a piece: %s", std::strerror(errno));
            }
            piece.remove_prefix(sent < 0 ? 0 : static_cast<std::size_t>(sent));
            if (sent < 0) {
                serveAll();
            }
        }
    }

    /// Calls the agent once if bytes are available. Returns false if none are.
    bool serveOnce()
    {
        char byte = 0;
        if (!isOpen() || recv(session_.socket, &byte, 1, MSG_PEEK) != 1) {
            return false;
        }
        hmiconn_process_one_request(&session_);
        if (session_.lineFill > kLongestLine) {
            fuzz::fault("the line buffer contains %u bytes", session_.lineFill);
        }
        receive();
        return true;
    }

    void serveAll()
    {
        while (serveOnce()) {
        }
    }

    /// Ends the remote side after everything has been sent.
    void end()
    {
        serveAll();
        if (isOpen()) {
            shutdown(remote_, SHUT_WR);
            hmiconn_process_one_request(&session_);
            if (isOpen()) {
                fuzz::fault("the session is still open after the remote side has closed");
            }
            endedByRemote_ = true;
        }
    }

    void expectOutcome(const Expected &expected) const
    {
        if (replies_ != expected.replies) {
            fuzz::fault("the replies are\n%s\nand in the reference\n%s", replies_.c_str(), expected.replies.c_str());
        }
        if ((protocolNegotiated != 0) != expected.negotiated) {
            fuzz::fault("the protocol is %snegotiated", protocolNegotiated != 0 ? "" : "not ");
        }
        if (endedByRemote_ == expected.closed) {
            fuzz::fault("the agent %s the session because of a long line", endedByRemote_ ? "did not close" : "closed");
        }
        const std::string message =
            endedByRemote_ ? "In hmiconn_process_one_request: HWS connection to 10.0.0.9:3: connection closed by peer" : "";
        if (lastMessage != message) {
            fuzz::fault("the log has \"%s\" instead of \"%s\"", lastMessage.c_str(), message.c_str());
        }
    }

private:
    [[nodiscard]] bool isOpen() { return kvo_hws::agent::socketOf(session_) >= 0; }

    void receive()
    {
        char piece[4096];
        for (ssize_t count = 0; (count = recv(remote_, piece, sizeof piece, 0)) > 0;) {
            replies_.append(piece, static_cast<std::size_t>(count));
        }
    }

    int remote_ = -1;
    std::unique_ptr<char[]> buffer_ = std::make_unique<char[]>(kLongestLine + 1);  // exactly its size
    HmiServer server_{};
    HmiSession session_{};
    std::string replies_;
    bool endedByRemote_ = false;
};

}  // namespace

/// The first byte, modulo 8, is one less than the number of length bytes after it. A length byte is one less than the length of
/// a piece; the lengths repeat. The rest of the input is sent. After a piece with a length byte of 128 or more, the agent is
/// called at most once, otherwise until it has read everything.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    if (size == 0 || size < 2U + data[0] % 8) {
        return 0;
    }
    const std::size_t lengths = 1U + data[0] % 8;
    std::string_view bytes(reinterpret_cast<const char *>(data) + 1 + lengths, size - 1 - lengths);
    const Expected expected = readReference(bytes);
    Remote remote;
    for (std::size_t piece = 0; !bytes.empty(); ++piece) {
        const uint8_t length = data[1 + piece % lengths];
        remote.send(bytes.substr(0, length + 1U));
        bytes.remove_prefix(std::min<std::size_t>(bytes.size(), length + 1U));
        if (length < 128) {
            remote.serveAll();
        } else {
            remote.serveOnce();
        }
    }
    remote.end();
    remote.expectOutcome(expected);
    return 0;
}
