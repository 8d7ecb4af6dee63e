// Reads request lines of the remote service, finds each command in the table, and calls its handler. Only complete lines are
// processed.
#include <kvo_hws/agent.h>
#include <kvo_hws/runtime.h>

#include "agent/commands.h"
#include "agent/instance.h"
#include "agent/line_writer.h"
#include "runtime/clock.h"
#include "runtime/letters.h"
#include "runtime/log.h"
#include "runtime/owners.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <syslog.h>

using namespace std::chrono_literals;

namespace {

using kvo_hws::agent::kLineSize;

constexpr auto kPiecePause = 10ms;  // so that a slow sender does not wake this thread for each byte
constexpr std::size_t kTagLength = 4;

/// The bytes of the line that were read, and whether they end it.
struct Arrived {
    std::size_t bytes = 0;
    bool endsLine = false;
};

bool isDigit(char character) noexcept { return character >= '0' && character <= '9'; }

void closeLost(HmiSession &session, const char *reason) noexcept
{
    kvo_hws::logAlways(LOG_INFO, "In hmiconn_process_one_request: HWS connection to %s: %s", sesstoa(&session), reason);
    hmi_close_x(&session);
}

/// Reads the bytes that belong to the line and appends them to the buffer. Returns no bytes if none have arrived. Closes the
/// session and returns no bytes if the connection is lost.
Arrived takePiece(HmiSession &session) noexcept
{
    const int socket = kvo_hws::agent::socketOf(session);
    char *const position = session.lineBuffer + session.lineFill;
    const std::size_t space = kLineSize - session.lineFill;
    const ssize_t peeked = recv(socket, position, space, MSG_PEEK | MSG_DONTWAIT);
    if (peeked < 0 && (errno == EAGAIN || errno == EINTR)) {
        return {};
    }
    if (peeked <= 0) {
        closeLost(session, peeked == 0 ? "connection closed by peer" : std::strerror(errno));
        return {};
    }
    timeval_get(&session.lastActivity);
    session.chunk = 0;

    const auto *const lineFeed = static_cast<const char *>(std::memchr(position, '\n', static_cast<std::size_t>(peeked)));
    const std::size_t wanted =
        lineFeed == nullptr ? static_cast<std::size_t>(peeked) : static_cast<std::size_t>(lineFeed - position) + 1;
    const ssize_t taken = recv(socket, position, wanted, MSG_DONTWAIT);
    if (taken <= 0) {
        return {};  // another reader of this socket was faster
    }
    position[taken] = '\0';
    return {static_cast<std::size_t>(taken), lineFeed != nullptr && static_cast<std::size_t>(taken) == wanted};
}

/// Removes the line end, which is directly before @p end.
void cutLineEnd(char *line, char *end) noexcept
{
    *--end = '\0';
    if (end > line && end[-1] == '\r') {
        end[-1] = '\0';
    }
}

const HwsCommand *commandOf(std::string_view request) noexcept
{
    for (const HwsCommand &command : kvo_hws::agent::commands) {
        const std::string_view keyword = command.keyword;
        const std::string_view compared = keyword.ends_with('=') ? request.substr(0, keyword.size()) : request;
        if (kvo_hws::sameLetters(compared, keyword)) {
            return &command;
        }
    }
    return nullptr;
}

void answer(HmiSession &session, char *line) noexcept
{
    char tag[kTagLength + 1] = {};
    const bool tagged = isDigit(line[0]) && isDigit(line[1]) && isDigit(line[2]) && line[3] == ':';
    if (tagged) {
        std::memcpy(tag, line, kTagLength);
        line += kTagLength;
    }
    const char *const tagText = tagged ? tag : nullptr;
    if (const HwsCommand *const command = commandOf(line)) {
        command->handler(&session, tagText, line + std::strlen(command->keyword));
        kvo_hws::shared(protocolNegotiated).store(1);
    } else {
        hmiconn_reply(kvo_hws::agent::socketOf(session), tagText, "bad request\r\n", static_cast<char *>(nullptr));
    }
}

}  // namespace

void hmiconn_process_one_request(HmiSession *session) noexcept
{
    const kvo_hws::NoCancellation wholeRequest;
    const Arrived arrived = takePiece(*session);
    if (arrived.bytes == 0) {
        return;
    }
    session->lineFill += static_cast<uint32_t>(arrived.bytes);
    if (arrived.endsLine) {
        cutLineEnd(session->lineBuffer, session->lineBuffer + session->lineFill);
        session->lineFill = 0;
        answer(*session, session->lineBuffer);
    } else if (session->lineFill >= kLineSize) {
        hmi_close_x(session);
    } else {
        kvo_hws::pause(kPiecePause);
    }
}

void hmi_close_x(HmiSession *session) noexcept
{
    kvo_hws::debugValues("KVO_HWS DLL - hmi_close_x - socket %d", kvo_hws::agent::socketOf(*session));
    kvo_hws::agent::closeSocket(*session);
}
