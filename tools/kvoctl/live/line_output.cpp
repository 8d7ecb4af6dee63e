// Writes a line when poll reports that the output accepts it.
#include "kvoctl/live/line_output.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string_view>

namespace kvoctl {

pollfd LineOutput::pollRequest() const noexcept
{
    return {.fd = hasEnded() ? -1 : descriptor_, .events = static_cast<short>(lines_.empty() ? 0 : POLLOUT), .revents = 0};
}

void LineOutput::handle(const pollfd &polled)
{
    if ((polled.revents & (POLLERR | POLLHUP)) != 0) {
        error_ = EPIPE;
    } else if ((polled.revents & POLLNVAL) != 0) {
        error_ = EBADF;
    } else if ((polled.revents & POLLOUT) != 0) {
        writeFirst();
    }
}

/// A pipe that is ready takes PIPE_BUF bytes without blocking. Standard output and standard error may be the same pipe: a thread
/// that writes to the other one must not fill it between the look and the write.
void LineOutput::writeFirst()
{
    static std::mutex oneAtATime;
    const std::lock_guard lock(oneAtATime);
    pollfd ready{.fd = descriptor_, .events = POLLOUT, .revents = 0};
    if (poll(&ready, 1, 0) != 1 || (ready.revents & POLLOUT) == 0) {
        return;
    }
    const std::string_view rest = std::string_view(lines_.front()).substr(written_);
    const ssize_t written = ::write(descriptor_, rest.data(), std::min<std::size_t>(rest.size(), PIPE_BUF));
    if (written < 0) {
        error_ = errno == EINTR || errno == EAGAIN ? 0 : errno;
        return;
    }
    written_ += static_cast<std::size_t>(written);
    if (written_ == lines_.front().size()) {
        lines_.pop_front();
        written_ = 0;
    }
}

void LineOutput::drain()
{
    while (!lines_.empty() && !hasEnded()) {
        pollfd output = pollRequest();
        if (poll(&output, 1, 0) <= 0) {
            return;
        }
        handle(output);
    }
}

void LineOutput::check() const
{
    if (hasEnded() && error_ != EPIPE) {
        throw std::runtime_error(std::string("cannot write to standard output: ") + std::strerror(error_));
    }
}

}  // namespace kvoctl
