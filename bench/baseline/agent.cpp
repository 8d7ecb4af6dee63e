// The baseline of the agent: only the system calls, one lock around each line, and a search in the command table.
#include "baseline.h"

#include <arpa/inet.h>
#include <cstring>
#include <initializer_list>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string_view>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace baseline {

namespace {

constexpr int kPollMilliseconds = 1000;
constexpr std::size_t kLongestLine = 256;
constexpr std::size_t kTag = 4;
constexpr unsigned kIndications = 99;

int gSocket = -1;
EmbCmdCallback gHost = nullptr;

// ---- Writing: the lock keeps a line in one piece ----

std::mutex gLine;
unsigned gNumber = 0;

void cork(int on) { setsockopt(gSocket, IPPROTO_TCP, TCP_CORK, &on, sizeof on); }

void write(std::initializer_list<std::string_view> parts)
{
    cork(1);
    for (const std::string_view part : parts) {
        send(gSocket, part.data(), part.size(), MSG_NOSIGNAL);
    }
    cork(0);
}

void reply(std::string_view tag, std::string_view text)
{
    const std::lock_guard lock(gLine);
    if (tag.empty()) {
        write({text});
    } else {
        write({tag, text});
    }
}

// ---- Requests ----

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// Returns the keyword that the request is or, for keywords with "=", begins with. Null if none matches.
const char *keywordOf(const char *request)
{
    for (const HwsCommand &command : cmds) {
        const std::size_t length = std::strlen(command.keyword);
        const bool prefix = command.keyword[length - 1] == '=';
        if ((prefix ? strncasecmp(request, command.keyword, length) : strcasecmp(request, command.keyword)) == 0) {
            return command.keyword;
        }
    }
    return nullptr;
}

void answer(const char *line)
{
    const bool tagged = isDigit(line[0]) && isDigit(line[1]) && isDigit(line[2]) && line[3] == ':';
    const std::string_view tag(line, tagged ? kTag : 0);
    const char *const request = line + tag.size();
    const char *const keyword = keywordOf(request);
    if (keyword == nullptr) {
        reply(tag, "bad request\r\n");
    } else if (std::strcmp(keyword, "ping") == 0) {
        reply(tag, "pong\r\n");
    } else {
        reply(tag, gHost(nullptr, request) == 1 ? "ok\r\n" : "failed\r\n");
    }
}

/// The line that is being received.
class Incoming {
public:
    /// Reads the bytes of one line and leaves the rest in the socket, as the library does. False at the end of the connection.
    bool readLine()
    {
        const ssize_t peeked = recv(gSocket, line_ + fill_, kLongestLine - fill_, MSG_PEEK);
        if (peeked <= 0) {
            return false;
        }
        const auto *const end = static_cast<const char *>(std::memchr(line_ + fill_, '\n', static_cast<std::size_t>(peeked)));
        const auto wanted = end != nullptr ? end - (line_ + fill_) + 1 : peeked;
        if (recv(gSocket, line_ + fill_, static_cast<std::size_t>(wanted), 0) != wanted) {
            return false;
        }
        fill_ += static_cast<std::size_t>(wanted);
        if (end != nullptr) {
            answerFirst(fill_);
            fill_ = 0;
        }
        return fill_ < kLongestLine;
    }

    /// Reads everything that fits, and answers the lines in it. False at the end of the connection.
    bool readAhead()
    {
        const ssize_t taken = recv(gSocket, line_ + fill_, sizeof line_ - 1 - fill_, 0);
        if (taken <= 0) {
            return false;
        }
        fill_ += static_cast<std::size_t>(taken);
        while (const auto *const end = static_cast<const char *>(std::memchr(line_, '\n', fill_))) {
            const auto length = static_cast<std::size_t>(end - line_) + 1;
            answerFirst(length);
            fill_ -= length;
            std::memmove(line_, line_ + length, fill_);
        }
        return fill_ < kLongestLine;
    }

private:
    void answerFirst(std::size_t length)
    {
        line_[length - 1] = '\0';
        if (length > 1 && line_[length - 2] == '\r') {
            line_[length - 2] = '\0';
        }
        answer(line_);
    }

    char line_[2 * kLongestLine];
    std::size_t fill_ = 0;
};

bool connectTo(uint16_t port)
{
    gSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(gSocket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        return false;
    }
    const int on = 1;
    setsockopt(gSocket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return true;
}

}  // namespace

void serveRemote(uint16_t port, EmbCmdCallback host, Reading reading)
{
    gHost = host;
    Incoming incoming;
    pollfd waiting{.fd = -1, .events = POLLIN, .revents = 0};
    for (bool open = connectTo(port); open;) {
        waiting.fd = gSocket;
        if (poll(&waiting, 1, kPollMilliseconds) > 0) {
            open = reading == Reading::oneLine ? incoming.readLine() : incoming.readAhead();
        }
    }
    close(gSocket);
}

void pushEvent(const char *text)
{
    const std::string_view event = text;
    char prefix[] = {'I', '0', '0', ':'};
    const std::lock_guard lock(gLine);
    gNumber = gNumber >= kIndications ? 1 : gNumber + 1;
    prefix[1] = static_cast<char>('0' + gNumber / 10);
    prefix[2] = static_cast<char>('0' + gNumber % 10);
    write({{prefix, sizeof prefix}, event, "\r\n"});
}

}  // namespace baseline
