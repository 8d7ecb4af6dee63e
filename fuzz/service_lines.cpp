// Fuzzes the three readers of one line: however the bytes are split, the lines, the results and the bytes left in the
// socket are those of a reference implementation.
#include "pieces.h"

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "runtime/clock.h"
#include "service/socket.h"

#include <cstdlib>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t kLongestLine = 1024;  // of the readers into a buffer, with its line feed
constexpr int kLine = 1;
constexpr int kClosed = -3;

bool readable(int fd)
{
    pollfd look{.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&look, 1, 0) == 1;
}

/// A writer that sends its next piece whenever the reader waits, and closes after the last one.
class Writer {
public:
    explicit Writer(std::deque<std::string> pieces) : pieces_(std::move(pieces))
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            fuzz::fault("cannot create a pair of sockets");
        }
        reader_ = ends[0];
        writer_ = ends[1];
    }
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;
    ~Writer()
    {
        close(reader_);
        close(writer_);
    }

    [[nodiscard]] int fd() const { return reader_; }

    void sendNext()
    {
        if (pieces_.empty()) {
            shutdown(writer_, SHUT_WR);
            return;
        }
        const std::string piece = std::move(pieces_.front());
        pieces_.pop_front();
        if (send(writer_, piece.data(), piece.size(), MSG_NOSIGNAL | MSG_DONTWAIT) != static_cast<ssize_t>(piece.size())) {
            fuzz::fault("cannot send a piece");
        }
    }

private:
    std::deque<std::string> pieces_;
    int reader_ = -1;
    int writer_ = -1;
};

Writer *writing = nullptr;

}  // namespace

// ---- Replacements of the functions with which readers wait: the writer sends its next piece ----

int kvo_hws::pause(std::chrono::milliseconds /*length*/) noexcept
{
    writing->sendNext();
    return 0;
}

int kvo_hws::waitReadable(int fd, std::chrono::milliseconds /*timeout*/) noexcept
{
    if (!readable(fd)) {
        writing->sendNext();
    }
    return 1;
}

void LOG(int /*priority*/, const char * /*format*/, ...) noexcept {}
void DEBUG(int /*priority*/, const char * /*format*/, ...) noexcept {}

namespace {

/// The outcome of one call.
struct Read {
    int result;
    std::string line{};
    uint32_t length = 0;  ///< from the reader that allocates its buffer
    bool operator==(const Read &) const = default;
};

// ---- The reference implementations ----

std::vector<Read> referenceReads(std::string_view bytes, bool bounded)
{
    std::vector<Read> reads;
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        const std::size_t length = end == bytes.npos ? bytes.size() : end + 1;
        if (bounded && length > kLongestLine) {
            reads.push_back({kClosed});
            bytes.remove_prefix(kLongestLine);
        } else if (end == bytes.npos) {
            break;
        } else {
            std::string line(bytes.substr(0, end));
            if (bounded) {
                line.resize(line.size() - (line.ends_with('\r') ? 1 : 0));
            } else {
                line.resize(line.find_last_not_of('\r') + 1);  // npos + 1 is 0: only carriage returns
            }
            reads.push_back({kLine, line, bounded ? 0 : static_cast<uint32_t>(length)});
            bytes.remove_prefix(length);
        }
    }
    reads.push_back({kClosed});
    return reads;
}

/// Reads through a cache of 1024 bytes, which receives the bytes that have arrived.
std::vector<Read> referenceThroughCache(std::deque<std::string> pieces)
{
    std::vector<Read> reads;
    std::string cache;
    std::string socket;
    for (;;) {
        bool closed = false;
        while (cache.find('\n') == cache.npos && !closed) {
            if (socket.empty() && !pieces.empty()) {
                socket = std::move(pieces.front());
                pieces.pop_front();
            }
            const std::string taken = socket.substr(0, kLongestLine - cache.size());
            closed = taken.empty();
            cache += taken;
            socket.erase(0, taken.size());
        }
        if (closed) {
            reads.push_back({kClosed});
            if (!cache.empty()) {
                reads.push_back({kLine});  // a line without its end
            }
            return reads;
        }
        for (std::size_t end = cache.find('\n'); end != cache.npos; end = cache.find('\n')) {
            const bool carriageReturn = end > 1 && cache[end - 1] == '\r';
            reads.push_back({kLine, cache.substr(0, end - (carriageReturn ? 1 : 0))});
            cache.erase(0, end + 1);
        }
        if (!cache.empty()) {
            reads.push_back({kLine});
            cache.clear();  // as callers do
        }
    }
}

// ---- The readers ----

/// Reads into a buffer between guards. The length of the wanted line delimits the result, which may contain zero bytes.
Read intoBuffer(const Read &wanted, int (*read)(void *state, char *buffer), void *state)
{
    fuzz::GuardedArea buffer(kLongestLine + 1, 0xA5);
    auto *const text = reinterpret_cast<char *>(buffer.area());
    Read got{read(state, text)};
    if (!buffer.guardsIntact()) {
        fuzz::fault("wrote outside the buffer");
    }
    if (got.result == kLine) {
        got.line.assign(text, std::min(wanted.line.size(), kLongestLine));
        if (text[got.line.size()] != '\0') {
            fuzz::fault("the line ends at the wrong position");
        }
    }
    return got;
}

Read readFixed(const Read &wanted)
{
    return intoBuffer(
        wanted, [](void *, char *buffer) { return ReadSocket(writing->fd(), buffer); }, nullptr);
}

Read readDynamic(const Read & /*wanted*/)
{
    DynBuffer reply{const_cast<char *>("stale"), 77};
    Read got{ReadSocketDyn(writing->fd(), &reply)};
    if (got.result != kLine) {
        if (reply.pcData != nullptr || reply.uiLength != 0) {
            fuzz::fault("a failed call returned %u bytes", reply.uiLength);
        }
        return got;
    }
    got.length = reply.uiLength;
    // The length includes zero bytes of the line, and those that replace its end.
    got.line.assign(reply.pcData, reply.uiLength);
    const char *const end = reply.pcData + reply.uiLength;
    if (*end != '\0') {
        fuzz::fault("the line is not terminated");
    }
    std::free(reply.pcData);
    return got;
}

void compare(const std::vector<Read> &wanted, Read (*read)(const Read &wanted))
{
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        Read expected = wanted[i];
        expected.line.resize(std::max<std::size_t>(expected.line.size(), expected.length));  // zero bytes replace its end
        const Read got = read(expected);
        if (got != expected) {
            fuzz::fault("read %zu: %d \"%s\" (%u bytes), in the reference %d \"%s\" (%u bytes)", i, got.result,
                        got.line.c_str(), got.length, expected.result, expected.line.c_str(), expected.length);
        }
    }
}

SocketCache cache;

Read readCached(const Read &wanted)
{
    const bool beginning = cache.uiFill != 0 && std::memchr(cache.acData, '\n', cache.uiFill) == nullptr;
    const Read got = intoBuffer(
        wanted,
        [](void *state, char *buffer) { return ReadSocketCache(writing->fd(), buffer, static_cast<SocketCache *>(state), 1); },
        &cache);
    if (cache.uiFill > kLongestLine || cache.acData[cache.uiFill] != '\0') {
        fuzz::fault("the cache contains %u bytes, or is not null-terminated", cache.uiFill);
    }
    if (beginning) {
        cache.uiFill = 0;  // as callers do
        cache.acData[0] = '\0';
    }
    return got;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    const std::deque<std::string> pieces = fuzz::piecesOf(data, size);
    const std::string bytes = fuzz::joined(pieces);
    Writer fixed(pieces);
    writing = &fixed;
    compare(referenceReads(bytes, true), readFixed);
    Writer dynamic(pieces);
    writing = &dynamic;
    compare(referenceReads(bytes, false), readDynamic);
    Writer cached(pieces);
    writing = &cached;
    cache = {};
    compare(referenceThroughCache(pieces), readCached);
    return 0;
}
