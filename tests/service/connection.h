// A socket pair with the library at one end, and a line read from it.
#pragma once

#include <kvo_hws/service.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace service_test {

/// A socket pair: the library reads at one end, the test writes at the other.
class Pair {
public:
    Pair()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::runtime_error("socketpair");
        }
        reader_ = ends[0];
        writer_ = ends[1];
        // Large enough for all that a test writes before it reads, whatever the machine's default is.
        const int bytes = 1 << 20;
        setsockopt(writer_, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
    }
    Pair(const Pair &) = delete;
    Pair &operator=(const Pair &) = delete;
    ~Pair()
    {
        close(reader_);
        hangUp();
    }

    [[nodiscard]] int fd() const { return reader_; }

    Pair &write(const std::string &bytes)
    {
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t count = send(writer_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                throw std::runtime_error("write");
            }
            sent += static_cast<std::size_t>(count);
        }
        return *this;
    }

    void hangUp()
    {
        if (writer_ >= 0) {
            close(std::exchange(writer_, -1));
        }
    }

    /// The bytes left in the socket.
    [[nodiscard]] std::string rest() const
    {
        std::string rest(4096, '\0');
        const ssize_t count = recv(reader_, rest.data(), rest.size(), MSG_DONTWAIT);
        rest.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return rest;
    }

private:
    int reader_;
    int writer_;
};

/// A line from ReadSocketDyn.
struct DynLine {
    explicit DynLine(int fd) { result = ReadSocketDyn(fd, &reply); }
    DynLine(const DynLine &) = delete;
    DynLine &operator=(const DynLine &) = delete;
    ~DynLine() { free(reply.pcData); }
    [[nodiscard]] std::string text() const { return reply.pcData == nullptr ? "(null)" : reply.pcData; }

    DynBuffer reply{const_cast<char *>("stale"), 77};
    int result;
};

}  // namespace service_test
