// The three functions that read one line. ReadSocket and ReadSocketDyn wait, peek at the received bytes, and read exactly up
// to the first line feed, so that the beginning of the next message stays in the socket. ReadSocketCache reads all available
// bytes and keeps the rest in the cache.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "runtime/clock.h"
#include "runtime/owners.h"
#include "service/socket.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <syslog.h>

using namespace std::chrono_literals;
using namespace std::string_view_literals;

namespace {

using kvo_hws::waitReadable;

constexpr std::size_t kReadSize = 1024;                           // bytes of one read
constexpr std::size_t kLargestReadSize = std::size_t{64} * 1024;  // bytes of one read of a long line
constexpr auto kReadPause = 10ms;                                 // waits for a slow writer instead of spinning

static_assert(sizeof(SocketCache::acData) == kReadSize + 4);

enum ReadResult : int {
    kLine = 1,
    kFailed = -1,
    kClosed = -3,
    kTimeout = -5,
    kWaitFailed = -6,
    kOutOfMemory = -8,
    kInterrupted = 0  // the read starts again; no reader returns it
};

int RecvErrorResult(const char *label, int error, int fd) noexcept
{
    switch (error) {
    case EBADF:
    case ENOTSOCK:
    case ENOTCONN:
    case ECONNREFUSED: LOG(LOG_DEBUG, "%s recv(%d) socket closed or socket invalid", label, fd); return kClosed;
    default: LOG(LOG_DEBUG, "%s recv(%d) errno=%d (%s)", label, fd, error, std::strerror(error)); return kFailed;
    }
}

/// The outcome of one recv(): the number of bytes, or a ReadResult of 0 or below.
struct Received {
    std::size_t count = 0;
    int result = kInterrupted;
};

Received receivedFrom(ssize_t count, const char *label, int fd) noexcept
{
    if (count > 0) {
        return {static_cast<std::size_t>(count), kLine};
    }
    if (count == 0) {
        return {0, kClosed};
    }
    return {0, errno == EINTR ? kInterrupted : RecvErrorResult(label, errno, fd)};
}

Received receive(int fd, char *to, std::size_t most, int flags, const char *label) noexcept
{
    return receivedFrom(recv(fd, to, most, flags), label, fd);
}

/// The number of peeked bytes that belong to the line, and whether they end it.
struct Piece {
    std::size_t length;
    bool endsLine;
};

Piece pieceOf(const char *peeked, std::size_t count) noexcept
{
    const auto *const lineFeed = static_cast<const char *>(std::memchr(peeked, '\n', count));
    return lineFeed == nullptr ? Piece{count, false} : Piece{static_cast<std::size_t>(lineFeed - peeked) + 1, true};
}

// ---- ReadSocket ----

/// Peeks first and waits only if nothing has arrived: a peer has usually written already, and the peek is cheaper than a wait.
Received peekOrAwait(int fd, char *to, std::size_t room) noexcept
{
    constexpr const char *kLabel = "ReadSocket peek:";
    const ssize_t count = recv(fd, to, room, MSG_PEEK | MSG_DONTWAIT);
    const bool waits = count < 0 && (errno == EAGAIN || errno == EBADF);  // with EBADF the failed wait must be logged too
    if (!waits) {
        return receivedFrom(count, kLabel, fd);
    }
    const int ready = waitReadable(fd, kvo_hws::kPeerTimeout);
    if (ready == 0) {
        LOG(LOG_INFO, "%s: select(%d) timeout", "ReadSocket", fd);
        return {0, kTimeout};
    }
    if (ready < 0) {
        // Continues nevertheless: the receive determines the error of the socket.
        LOG(LOG_INFO, "%s: select(%d) failed with %d (%s)", "ReadSocket", fd, errno, std::strerror(errno));
    }
    return receive(fd, to, room, MSG_PEEK, kLabel);
}

int readIntoBuffer(int fd, char *buffer) noexcept
{
    buffer[0] = '\0';
    std::size_t filled = 0;
    while (filled < kReadSize) {
        const std::size_t room = kReadSize - filled;
        char *const position = buffer + filled;
        const Received peeked = peekOrAwait(fd, position, room);
        if (peeked.result == kInterrupted) {
            continue;
        }
        if (peeked.result != kLine) {
            return peeked.result;
        }
        position[peeked.count] = '\0';
        const Piece piece = pieceOf(position, peeked.count);
        const Received taken = receive(fd, position, piece.length, 0, "ReadSocket:");
        if (taken.result == kInterrupted) {
            continue;
        }
        if (taken.result != kLine) {
            return taken.result;
        }
        filled += taken.count;
        if (piece.endsLine && taken.count == piece.length) {
            buffer[filled - 1] = '\0';
            if (filled > 1 && buffer[filled - 2] == '\r') {
                buffer[filled - 2] = '\0';
            }
            DEBUG(LOG_DEBUG, "ReadSocket: command/reply complete '%s' (socket %d)", buffer, fd);
            return kLine;
        }
        if (filled < kReadSize) {
            kvo_hws::pause(kReadPause);
        }
    }
    return kClosed;
}

// ---- ReadSocketDyn ----

/// A text whose capacity doubles, so that a long line is not copied for each read.
class GrowingText {
public:
    /// Reserves @p more bytes and a terminator after the text. Returns false if memory runs out; the text is unchanged.
    bool reserve(std::size_t more) noexcept
    {
        const uint64_t needed = uint64_t{length_} + more + 1;
        if (needed <= capacity_) {
            return true;
        }
        if (needed > kLongest) {
            return false;
        }
        const uint64_t grown = std::min(std::max(needed, uint64_t{capacity_} * 2), kLongest);
        auto *const block = static_cast<char *>(std::realloc(text_.get(), static_cast<std::size_t>(grown)));
        if (block == nullptr) {
            return false;
        }
        static_cast<void>(text_.release());
        text_.reset(block);
        capacity_ = static_cast<std::size_t>(grown);
        return true;
    }

    [[nodiscard]] char *end() noexcept { return text_.get() + length_; }
    void grew(std::size_t count) noexcept { length_ += count; }
    [[nodiscard]] std::size_t length() const noexcept { return length_; }
    [[nodiscard]] char *text() const noexcept { return text_.get(); }
    char *release() noexcept { return text_.release(); }

private:
    /// The length of a reply has 32 bits, and no block is larger than PTRDIFF_MAX.
    static constexpr uint64_t kLongest = std::min<uint64_t>(UINT32_MAX, PTRDIFF_MAX);

    kvo_hws::HeapText text_;
    std::size_t length_ = 0;
    std::size_t capacity_ = 0;
};

/// The buffer to peek into.
struct Window {
    char *start;
    std::size_t size;
};

/// The window for the next peek. For a line of more than one read it is the memory after the text, and its size grows with the
/// line. If that memory runs out, the small buffer is used: the rest of the line may be short enough for the remaining memory.
Window windowFor(GrowingText &text, char (&small)[kReadSize]) noexcept
{
    constexpr std::size_t kGrowth = 4;  // peek at up to four times the length of the line so far
    const std::size_t size = kGrowth * std::min(text.length(), kLargestReadSize / kGrowth);
    return text.length() >= kReadSize && text.reserve(size) ? Window{text.end(), size} : Window{small, kReadSize};
}

int readIntoHeap(int fd, GrowingText &text) noexcept
{
    char small[kReadSize];
    for (;;) {
        const int ready = waitReadable(fd, kvo_hws::kPeerTimeout);
        if (ready == 0) {
            return kTimeout;
        }
        if (ready < 0) {
            // The error number is logged twice: parsers of this line count its fields.
            LOG(LOG_DEBUG, "ReadSocketDyn: select(%d) returns %d errno:%d (%s) serrno:%d", fd, ready, errno,
                std::strerror(errno), errno);
            return kWaitFailed;
        }
        const Window window = windowFor(text, small);
        const Received peeked = receive(fd, window.start, window.size, MSG_PEEK, "ReadSocketDyn:");
        if (peeked.result == kInterrupted) {
            continue;
        }
        if (peeked.result != kLine) {
            return peeked.result;
        }
        const Piece piece = pieceOf(window.start, peeked.count);
        if (!text.reserve(piece.length)) {
            return kOutOfMemory;
        }
        const Received taken = receive(fd, text.end(), piece.length, 0, "ReadSocketDyn:");
        if (taken.result == kInterrupted) {
            continue;
        }
        if (taken.result != kLine) {
            return taken.result;
        }
        text.grew(taken.count);
        if (piece.endsLine && taken.count == piece.length) {
            *text.end() = '\0';
            char *end = text.end();
            while (end > text.text() && (end[-1] == '\n' || end[-1] == '\r')) {
                *--end = '\0';
            }
            return kLine;
        }
        // A smaller read took all available bytes, so the writer is slow. After a larger read the writer is fast and sends
        // more soon, so no pause is needed.
        if (taken.count < kReadSize) {
            kvo_hws::pause(kReadPause);
        }
    }
}

// ---- ReadSocketCache ----

/// The cache is null-terminated, but may also contain received NUL bytes.
const char *lineFeedIn(const SocketCache &cache) noexcept
{
    return static_cast<const char *>(std::memchr(cache.acData, '\n', cache.uiFill));
}

int fillCache(int fd, SocketCache &cache, std::chrono::milliseconds timeout) noexcept
{
    do {
        const int ready = waitReadable(fd, timeout);
        if (ready == 0) {
            return kTimeout;
        }
        if (ready < 0) {
            LOG(LOG_DEBUG, "ReadSocketCache: select(%d) returns %d errno:%d (%s)", fd, ready, errno, std::strerror(errno));
            return kWaitFailed;
        }
        // With a full cache this reads 0 bytes, which has the same result as a closed connection.
        const Received taken = receive(fd, cache.acData + cache.uiFill, kReadSize - cache.uiFill, 0, "ReadSocketCache:");
        if (taken.result == kInterrupted) {
            continue;
        }
        if (taken.result != kLine) {
            return taken.result;
        }
        cache.uiFill += static_cast<uint32_t>(taken.count);
        cache.acData[cache.uiFill] = '\0';
    } while (lineFeedIn(cache) == nullptr);
    return kLine;
}

void takeLine(char *line, SocketCache &cache) noexcept
{
    const char *const lineFeed = lineFeedIn(cache);
    const auto length = static_cast<std::size_t>(lineFeed - cache.acData);
    std::memcpy(line, cache.acData, length);
    line[length] = '\0';
    // A line that consists of a carriage return only has always been returned as "\r".
    if (length > 1 && line[length - 1] == '\r') {
        line[length - 1] = '\0';
    }
    cache.uiFill -= static_cast<uint32_t>(length + 1);
    std::memmove(cache.acData, lineFeed + 1, cache.uiFill + 1);
}

/// The reply to a "ping" with a tag of four characters. It is too frequent to be logged.
bool isPong(const char *line) noexcept { return strnlen(line, 4) == 4 && line + 4 == "pong"sv; }

}  // namespace

int ReadSocket(int fd, char *buffer) noexcept
{
    const kvo_hws::NoCancellation wholeLine;
    const int result = readIntoBuffer(fd, buffer);
    if (result != kLine) {
        DEBUG(LOG_INFO, "ReadSocket: return %d (socket %d)", result, fd);
    }
    return result;
}

int ReadSocketDyn(int fd, DynBuffer *reply) noexcept
{
    if (reply == nullptr) {
        return kFailed;
    }
    const kvo_hws::NoCancellation wholeLine;
    GrowingText text;
    const int result = readIntoHeap(fd, text);
    if (result != kLine) {
        *reply = {nullptr, 0};
        DEBUG(LOG_INFO, "ReadSocketDyn: return %d (socket %d)", result, fd);
        return result;
    }
    DEBUG(LOG_DEBUG, "ReadSocketDyn: command/reply complete '%s' (socket %d)", text.text(), fd);
    reply->uiLength = static_cast<uint32_t>(text.length());
    reply->pcData = text.release();
    return kLine;
}

int ReadSocketCache(int fd, char *line, SocketCache *cache, unsigned timeoutMilliseconds) noexcept
{
    const kvo_hws::NoCancellation wholeLine;
    line[0] = '\0';
    if (cache->uiFill != 0 && lineFeedIn(*cache) == nullptr) {
        // For an incomplete line each call returns an empty line, until the caller clears the cache.
        return kLine;
    }
    if (cache->uiFill == 0) {
        const int result = fillCache(fd, *cache, std::chrono::milliseconds(timeoutMilliseconds));
        if (result != kLine) {
            if (result != kTimeout) {
                LOG(LOG_DEBUG, "ReadSocketCache: return %d (socket %d)", result, fd);
            }
            return result;
        }
    }
    takeLine(line, *cache);
    if (!isPong(line)) {
        LOG(LOG_DEBUG, "ReadSocketCache: command/reply complete '%s' (socket %d)", line, fd);
    }
    return kLine;
}
